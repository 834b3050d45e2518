#include "sim/PageFiles.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <utility>

#include "vox/platform/FileDescriptor.h"

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

LoadedPages Unreadable(const std::string& path, int error) {
  return {{}, path + ": " + std::generic_category().message(error), error};
}

// False at an error, and at an end that comes too early; errno says why.
bool ReadWhole(int fd, std::span<std::uint8_t> bytes) {
  while (!bytes.empty()) {
    const auto got = ::read(fd, bytes.data(), bytes.size());
    if (got < 0 && errno == EINTR) continue;
    if (got == 0) errno = EIO;
    if (got <= 0) return false;
    bytes = bytes.subspan(static_cast<std::size_t>(got));
  }
  return true;
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
  // Opening a pipe that nobody writes to must not wait.
  const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (!file) return Unreadable(path, errno);
  struct stat there {};
  if (::fstat(file.Get(), &there) != 0) return Unreadable(path, errno);
  if (S_ISDIR(there.st_mode)) return Unreadable(path, EISDIR);
  if (!S_ISREG(there.st_mode)) return {{}, path + ": not a plain file"};
  const auto size = static_cast<std::uint64_t>(there.st_size);
  // A PNM with 16 bits a sample is twice as large as what is decoded from it, plain text six times.
  if (size / 8 > limits.max_bytes) return {{}, path + ": too large"};
  std::vector<std::uint8_t> bytes(static_cast<std::size_t>(size));
  if (!ReadWhole(file.Get(), bytes)) return Unreadable(path, errno);
  LoadedPages loaded = LoadPages(bytes, limits);
  if (!loaded.error.empty()) loaded.error = path + ": " + loaded.error;
  return loaded;
}

}  // namespace vox::sim
