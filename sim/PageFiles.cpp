#include "sim/PageFiles.h"

#include <fstream>
#include <utility>

namespace vox::sim {
namespace {

constexpr std::uint64_t kMaxSide = 100000;  // pixels
constexpr double kMinDpi = 10, kMaxDpi = kMaxResolution;

DecodedFile Decode(std::span<const std::uint8_t> bytes, const PageFileLimits& limits) {
  if (LooksLikePnm(bytes)) return DecodePnm(bytes, limits);
  if (LooksLikePng(bytes)) return DecodePng(bytes, limits);
  if (LooksLikeTiff(bytes)) return DecodeTiff(bytes, limits);
  return {{}, "neither PNM nor PNG nor TIFF"};
}

void SettleResolution(Image& image, const PageFileLimits& limits) {
  const std::uint32_t forced = MillidpiOf(limits.force_dpi);
  const std::uint32_t otherwise = MillidpiOf(limits.default_dpi);
  if (forced != 0) image.x_millidpi = image.y_millidpi = forced;
  if (image.x_millidpi == 0) image.x_millidpi = otherwise != 0 ? otherwise : 300000;
  if (image.y_millidpi == 0) image.y_millidpi = image.x_millidpi;
}

}  // namespace

std::string ImageBudget::Take(std::uint64_t width, std::uint64_t height,
                              std::uint64_t bytes_per_pixel) {
  if (width == 0 || height == 0) return "an image without pixels";
  if (width > kMaxSide || height > kMaxSide) return "an image wider or higher than 100000 pixels";
  const std::uint64_t bytes = width * height * bytes_per_pixel;
  if (bytes > left_) return "too large for the memory that pages may take";
  left_ -= bytes;
  return {};
}

std::uint32_t MillidpiOf(double dpi) {
  if (!(dpi >= kMinDpi && dpi <= kMaxDpi)) return 0;
  return static_cast<std::uint32_t>(dpi * 1000 + 0.5);
}

LoadedPages LoadPages(std::span<const std::uint8_t> bytes, const PageFileLimits& limits) {
  DecodedFile file = Decode(bytes, limits);
  if (!file.error.empty()) return {{}, file.error};
  LoadedPages loaded;
  for (Image& image : file.images) {
    SettleResolution(image, limits);
    loaded.pages.push_back(MakeImagePage(std::move(image)));
  }
  if (loaded.pages.empty()) loaded.error = "no image in it";
  return loaded;
}

LoadedPages LoadPageFile(const std::string& path, const PageFileLimits& limits) {
  std::ifstream stream(path, std::ios::binary | std::ios::ate);
  if (!stream) return {{}, path + ": cannot be opened"};
  const std::streamoff size = stream.tellg();
  if (size < 0) return {{}, path + ": not a plain file"};
  // A PNM with 16 bits a sample is twice as large as what is decoded from it, plain text six times.
  if (static_cast<std::uint64_t>(size) / 8 > limits.max_bytes) return {{}, path + ": too large"};
  std::vector<std::uint8_t> bytes(static_cast<std::size_t>(size));
  stream.seekg(0);
  if (!stream.read(reinterpret_cast<char*>(bytes.data()), size)) {
    return {{}, path + ": cannot be read"};
  }
  LoadedPages loaded = LoadPages(bytes, limits);
  if (!loaded.error.empty()) loaded.error = path + ": " + loaded.error;
  return loaded;
}

}  // namespace vox::sim
