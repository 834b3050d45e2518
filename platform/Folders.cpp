#include "vox/platform/Folders.h"

#include <cstdlib>
#include <filesystem>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "vox/platform/FileDescriptor.h"

namespace vox {
namespace {

constexpr mode_t kOwnerOnly = 0700;

std::string Variable(const char* name) {
  const char* value = ::secure_getenv(name);
  return value != nullptr ? value : "";
}

// All questions go to the open folder, not to its name, so that nobody can swap it in between.
// A folder of the user's own with a wider mode (restored from a backup, say) is narrowed.
bool IsPrivateFolder(const std::string& path) {
  const FileDescriptor folder(
      ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  struct stat status {};
  if (!folder || ::fstat(folder.Get(), &status) != 0) return false;
  if (status.st_uid != ::geteuid()) return false;
  return (status.st_mode & 07777) == kOwnerOnly || ::fchmod(folder.Get(), kOwnerOnly) == 0;
}

std::string PrivateFolderIn(const std::string& place) {
  if (place.empty() || place.front() != '/') return {};
  const std::string path =
      (std::filesystem::path(place) / ("com.veltronix.vox-" + std::to_string(::geteuid())))
          .string();
  // A name that exists already is judged like a new one.
  ::mkdir(path.c_str(), kOwnerOnly);
  return IsPrivateFolder(path) ? path : std::string();
}

}  // namespace

std::string MachinePath(const std::string& absolute) {
  std::string root = Variable("VOX_ROOT");
  while (!root.empty() && root.back() == '/') root.pop_back();
  return root + absolute;
}

std::string UserTemporaryFolder() {
  std::string folder = PrivateFolderIn(Variable("TMPDIR"));
  if (!folder.empty()) return folder;
  const std::string place = MachinePath("/var/tmp");
  std::error_code ignored;  // a place that cannot be made shows when the folder is made
  std::filesystem::create_directories(place, ignored);
  return PrivateFolderIn(place);
}

}  // namespace vox
