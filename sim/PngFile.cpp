// PNG through libpng's simplified interface, which keeps its long jumps to itself; the resolution
// is read from the pHYs chunk here, since that interface does not tell it.
#include <png.h>

#include <algorithm>
#include <array>
#include <utility>

#include "sim/PageFiles.h"
#include "vox/platform/Bytes.h"

namespace vox::sim {
namespace {

constexpr std::array<std::uint8_t, 8> kSignature = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
constexpr std::uint32_t kPhys = 0x70485973;  // "pHYs"
constexpr std::uint32_t kIdat = 0x49444154;  // "IDAT"
constexpr double kMetresPerInch = 0.0254;

// pHYs: pixels per unit, x and y, and the unit, 1 for the metre; it stands before the first IDAT.
void ReadResolution(std::span<const std::uint8_t> bytes, Image& image) {
  ByteReader reader(bytes.data() + kSignature.size(), bytes.size() - kSignature.size());
  while (true) {
    const auto length = reader.TakeBe32();
    const auto type = reader.TakeBe32();
    if (!length || !type || *type == kIdat) return;
    const auto chunk = reader.Take(*length);
    if (!chunk || !reader.Take(4)) return;
    if (*type != kPhys || chunk->size() != 9 || (*chunk)[8] != 1) continue;
    image.x_millidpi = MillidpiOf(LoadBe32(chunk->data()) * kMetresPerInch);
    image.y_millidpi = MillidpiOf(LoadBe32(chunk->data() + 4) * kMetresPerInch);
    return;
  }
}

// The control block of the simplified interface, freed on every path.
struct PngReader {
  png_image control{};
  PngReader() { control.version = PNG_IMAGE_VERSION; }
  ~PngReader() { png_image_free(&control); }
  PngReader(const PngReader&) = delete;
  PngReader& operator=(const PngReader&) = delete;
  std::string Error() const { return std::string("PNG: ") + control.message; }
};

}  // namespace

bool LooksLikePng(std::span<const std::uint8_t> bytes) {
  return bytes.size() >= kSignature.size() &&
         std::equal(kSignature.begin(), kSignature.end(), bytes.begin());
}

DecodedFile DecodePng(std::span<const std::uint8_t> bytes, const PageFileLimits& limits) {
  PngReader reader;
  png_image& control = reader.control;
  if (png_image_begin_read_from_memory(&control, bytes.data(), bytes.size()) == 0) {
    return {{}, reader.Error()};
  }
  const bool colour = (control.format & PNG_FORMAT_FLAG_COLOR) != 0;
  Image image{control.width, control.height, colour ? 3u : 1u, 0, 0, {}};
  const std::string refusal = ImageBudget(limits).Take(image.width, image.height, image.channels);
  if (!refusal.empty()) return {{}, "PNG: " + refusal};
  ReadResolution(bytes, image);
  control.format = colour ? PNG_FORMAT_RGB : PNG_FORMAT_GRAY;
  image.samples.resize(PNG_IMAGE_SIZE(control));
  const png_color paper = {255, 255, 255};  // shows through what is transparent
  if (png_image_finish_read(&control, &paper, image.samples.data(), 0, nullptr) == 0) {
    return {{}, reader.Error()};
  }
  DecodedFile file;
  file.images.push_back(std::move(image));
  return file;
}

}  // namespace vox::sim
