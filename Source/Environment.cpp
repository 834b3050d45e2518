#include "vox/Environment.h"

#include <cerrno>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "vox/platform/HelpViewer.h"
#include "vox/platform/SystemLog.h"

namespace vox {
namespace {

constexpr const char* kRegisterHelpBook = "-[Environment registerHelpBook]";
constexpr const char* kHelpBundle = "/Veltronix Vox/Veltronix_Vox_Help.bundle";
constexpr mode_t kEveryone = 0666;

// Only an absolute path that a file system can bear has a file URL.
bool has_file_url(const std::string& path) {
  return path.starts_with('/') && path.find('\0') == std::string::npos;
}

bool refers_to_a_file(const std::string& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0;
}

void register_help_bundle(const std::string& path) {
  if (!has_file_url(path)) {
    LogToSystem("%s: failed to get help bundle url", kRegisterHelpBook);
  } else if (!refers_to_a_file(path)) {
    LogToSystem("%s: failed to get help bundle file system reference", kRegisterHelpBook);
  } else if (HelpViewer::Current().RegisterBook(path) != 0) {
    LogToSystem("%s: failed to register help book", kRegisterHelpBook);
  } else {
    LogToSystem("%s: success register help book(%s)", kRegisterHelpBook, path.c_str());
  }
}

int open_for_writing(const std::string& path) {
  int fd;
  // A pipe without a reader is an error instead of a wait.
  do {
    fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | O_NONBLOCK, kEveryone);
  } while (fd < 0 && errno == EINTR);
  return fd;
}

}  // namespace

template <>
Singleton<Environment>::Slot& Singleton<Environment>::slot() {
  static Slot& slot = *new Slot;  // never destroyed: threads may outlive main
  return slot;
}

std::optional<std::string> Environment::findFolderInDomain(FolderType type, FolderDomain domain) {
  return FindFolder(type, domain);
}

std::string Environment::userTemporaryFolder() {
  const std::string folder = UserTemporaryFolder();
  return folder.empty() ? "/tmp/" : folder;
}

bool Environment::registerHelpBook() {
  // Without the folder there is no path, and so no URL.
  const auto support = findFolderInDomain(kApplicationSupportFolder, FolderDomain::SystemDisk);
  register_help_bundle(support ? *support + kHelpBundle : std::string());
  return true;
}

int Environment::seizeFileLock(const std::string& path) {
  const int fd = open_for_writing(path);
  if (fd < 0) return -1;
  struct flock first_byte {};
  first_byte.l_type = F_WRLCK;
  first_byte.l_whence = SEEK_SET;
  first_byte.l_start = 0;
  first_byte.l_len = 1;
  // After a refusal the descriptor stays open: see the header.
  return ::fcntl(fd, F_SETLK, &first_byte) == 0 ? fd : -1;
}

}  // namespace vox
