// TIFF through libtiff's RGBA interface, which knows every photometric kind; one page a directory.
#include <tiffio.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>
#include <utility>

#include "sim/PageFiles.h"

namespace vox::sim {
namespace {

// The file in memory, read through libtiff's client callbacks.
struct MemoryFile {
  std::span<const std::uint8_t> bytes;
  std::uint64_t position = 0;
  std::string error;
};

MemoryFile& FileOf(thandle_t handle) {
  return *static_cast<MemoryFile*>(handle);
}

tmsize_t ReadProc(thandle_t handle, void* to, tmsize_t size) {
  MemoryFile& file = FileOf(handle);
  if (size <= 0 || file.position >= file.bytes.size()) return 0;
  const std::uint64_t count =
      std::min<std::uint64_t>(static_cast<std::uint64_t>(size), file.bytes.size() - file.position);
  std::memcpy(to, file.bytes.data() + file.position, count);
  file.position += count;
  return static_cast<tmsize_t>(count);
}

tmsize_t WriteProc(thandle_t, void*, tmsize_t) {
  return 0;
}

toff_t SeekProc(thandle_t handle, toff_t offset, int whence) {
  MemoryFile& file = FileOf(handle);
  const std::uint64_t base = whence == SEEK_CUR   ? file.position
                             : whence == SEEK_END ? file.bytes.size()
                                                  : 0;
  file.position = base + offset;  // wraps for a negative offset, as it should
  return file.position;
}

int CloseProc(thandle_t) {
  return 0;
}
toff_t SizeProc(thandle_t handle) {
  return FileOf(handle).bytes.size();
}

__attribute__((format(printf, 4, 0))) int ErrorProc(TIFF*, void* user, const char*,
                                                    const char* format, va_list arguments) {
  char text[256];
  std::vsnprintf(text, sizeof text, format, arguments);
  std::string& error = static_cast<MemoryFile*>(user)->error;
  if (error.empty()) error = text;
  return 1;
}
int WarningProc(TIFF*, void*, const char*, const char*, va_list) {
  return 1;
}

struct CloseTiff {
  void operator()(TIFF* tiff) const { TIFFClose(tiff); }
};
using TiffPtr = std::unique_ptr<TIFF, CloseTiff>;

TiffPtr Open(MemoryFile& file, const PageFileLimits& limits) {
  const std::unique_ptr<TIFFOpenOptions, decltype(&TIFFOpenOptionsFree)> options(
      TIFFOpenOptionsAlloc(), &TIFFOpenOptionsFree);
  if (!options) return nullptr;
  const std::uint64_t most = std::min<std::uint64_t>(limits.max_bytes, std::uint64_t{1} << 30);
  TIFFOpenOptionsSetMaxSingleMemAlloc(options.get(), static_cast<tmsize_t>(most));
  TIFFOpenOptionsSetErrorHandlerExtR(options.get(), ErrorProc, &file);
  TIFFOpenOptionsSetWarningHandlerExtR(options.get(), WarningProc, nullptr);
  return TiffPtr(TIFFClientOpenExt("page", "rm", &file, ReadProc, WriteProc, SeekProc, CloseProc,
                                   SizeProc, nullptr, nullptr, options.get()));
}

void ReadResolution(TIFF* tiff, Image& image) {
  float x = 0, y = 0;
  std::uint16_t unit = RESUNIT_INCH;
  TIFFGetFieldDefaulted(tiff, TIFFTAG_RESOLUTIONUNIT, &unit);
  const double per_inch = unit == RESUNIT_INCH ? 1 : unit == RESUNIT_CENTIMETER ? 2.54 : 0;
  if (TIFFGetField(tiff, TIFFTAG_XRESOLUTION, &x)) image.x_millidpi = MillidpiOf(x * per_inch);
  if (TIFFGetField(tiff, TIFFTAG_YRESOLUTION, &y)) image.y_millidpi = MillidpiOf(y * per_inch);
}

bool IsGrey(TIFF* tiff) {
  std::uint16_t photometric = PHOTOMETRIC_RGB;
  TIFFGetField(tiff, TIFFTAG_PHOTOMETRIC, &photometric);
  return photometric == PHOTOMETRIC_MINISWHITE || photometric == PHOTOMETRIC_MINISBLACK;
}

// The RGBA interface multiplies by alpha; white paper shows through the rest.
std::uint8_t OnPaper(std::uint32_t sample, std::uint32_t alpha) {
  return static_cast<std::uint8_t>(std::min(255u, sample + 255u - alpha));
}

void CopySamples(const std::vector<std::uint32_t>& raster, Image& image) {
  std::uint8_t* out = image.samples.data();
  for (const std::uint32_t pixel : raster) {
    const std::uint32_t alpha = TIFFGetA(pixel);
    *out++ = OnPaper(TIFFGetR(pixel), alpha);
    if (image.channels == 1) continue;
    *out++ = OnPaper(TIFFGetG(pixel), alpha);
    *out++ = OnPaper(TIFFGetB(pixel), alpha);
  }
}

// One directory; an empty text, or why it cannot be had.
std::string ReadDirectory(TIFF* tiff, MemoryFile& file, ImageBudget& budget, Image& image) {
  char reason[1024] = "";
  if (!TIFFRGBAImageOK(tiff, reason)) return reason;
  if (!TIFFGetField(tiff, TIFFTAG_IMAGEWIDTH, &image.width) ||
      !TIFFGetField(tiff, TIFFTAG_IMAGELENGTH, &image.height)) {
    return "no size";
  }
  // Four bytes a pixel while it is read; counted at that.
  std::string refusal = budget.Take(image.width, image.height, 4);
  if (!refusal.empty()) return refusal;
  ReadResolution(tiff, image);
  image.channels = IsGrey(tiff) ? 1 : 3;
  std::vector<std::uint32_t> raster(std::size_t{image.width} * image.height);
  if (!TIFFReadRGBAImageOriented(tiff, image.width, image.height, raster.data(),
                                 ORIENTATION_TOPLEFT, 1)) {
    return file.error.empty() ? "the image cannot be decoded" : file.error;
  }
  image.samples.resize(raster.size() * image.channels);
  CopySamples(raster, image);
  return {};
}

}  // namespace

bool LooksLikeTiff(std::span<const std::uint8_t> bytes) {
  if (bytes.size() < 4) return false;
  const std::uint8_t version = 42, big_version = 43;
  const bool little = bytes[0] == 'I' && bytes[1] == 'I' && bytes[3] == 0 &&
                      (bytes[2] == version || bytes[2] == big_version);
  const bool big = bytes[0] == 'M' && bytes[1] == 'M' && bytes[2] == 0 &&
                   (bytes[3] == version || bytes[3] == big_version);
  return little || big;
}

DecodedFile DecodeTiff(std::span<const std::uint8_t> bytes, const PageFileLimits& limits) {
  MemoryFile memory{bytes, 0, {}};
  const TiffPtr tiff = Open(memory, limits);
  if (!tiff) return {{}, "TIFF: " + (memory.error.empty() ? "cannot be opened" : memory.error)};
  DecodedFile file;
  ImageBudget budget(limits);
  do {
    if (file.images.size() >= limits.max_pages) return {{}, "TIFF: too many images"};
    Image image;
    const std::string error = ReadDirectory(tiff.get(), memory, budget, image);
    if (!error.empty()) return {{}, "TIFF: " + error};
    file.images.push_back(std::move(image));
  } while (TIFFReadDirectory(tiff.get()));
  // The end of the chain is no error; a directory that cannot be read is.
  if (!memory.error.empty()) return {{}, "TIFF: " + memory.error};
  return file;
}

}  // namespace vox::sim
