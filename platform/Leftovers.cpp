#include "vox/platform/Leftovers.h"

#include <memory>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace vox {
namespace {

constexpr std::size_t kMadeUp = 6;  // characters of a name that mkstemp chooses

struct CloseFolder {
  void operator()(DIR* folder) const { ::closedir(folder); }
};
using OpenFolder = std::unique_ptr<DIR, CloseFolder>;

bool IsWrittenAside(std::string_view leaf, std::string_view prefix) {
  return leaf.size() == prefix.size() + kMadeUp && leaf.starts_with(prefix);
}

bool IsLeftover(int folder, const char* leaf, std::time_t now) {
  struct stat status {};
  return ::fstatat(folder, leaf, &status, AT_SYMLINK_NOFOLLOW) == 0 && S_ISREG(status.st_mode) &&
         status.st_uid == ::geteuid() && status.st_mtime < now - kLeftoverAge;
}

}  // namespace

void RemoveLeftovers(int folder, std::string_view prefix) {
  // A descriptor of its own, as reading a folder moves its place.
  const int fd = ::openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return;
  const OpenFolder open(::fdopendir(fd));
  if (!open) {
    ::close(fd);
    return;
  }
  const std::time_t now = std::time(nullptr);
  while (const dirent* entry = ::readdir(open.get())) {
    if (IsWrittenAside(entry->d_name, prefix) && IsLeftover(fd, entry->d_name, now))
      ::unlinkat(fd, entry->d_name, 0);
  }
}

}  // namespace vox
