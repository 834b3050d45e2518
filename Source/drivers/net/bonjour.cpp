#include "vox/drivers/net/bonjour.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "vox/platform/FileDescriptor.h"
#include "vox/platform/Folders.h"

namespace vox {
namespace {

constexpr char kLockFile[] = "/var/tmp/com.veltronix.vox.lpd.lock";
constexpr mode_t kEveryUser = 0666;
constexpr std::size_t kPortTextSize = 16;  // bytes read at most

// whole_file is the lock that lockf(fd, F_TLOCK, 0) takes at the beginning of a file.
struct flock whole_file() {
  struct flock lock {};
  lock.l_type = F_WRLCK;
  lock.l_whence = SEEK_SET;
  return lock;
}

int open_in_place(const std::string& path) {
  return ::open(path.c_str(), O_RDWR | O_NOFOLLOW | O_CLOEXEC | O_NOCTTY);
}

// A file that exists is opened without O_CREAT: in a sticky folder the kernel refuses O_CREAT on
// another user's file (fs.protected_regular), and the lock file of an earlier server may be one.
int open_or_create(const std::string& path) {
  const int existing = open_in_place(path);
  if (existing >= 0 || errno != ENOENT) return existing;
  std::error_code ignored;  // a folder that cannot be made shows when the file is made
  std::filesystem::create_directories(std::filesystem::path(path).parent_path(), ignored);
  const int created =
      ::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, kEveryUser);
  if (created >= 0 || errno != EEXIST) return created;
  return open_in_place(path);
}

// is_own_kind refuses devices and pipes, and a second name of somebody's file: what is written next
// would land there.
bool is_own_kind(int fd) {
  struct stat status {};
  if (::fstat(fd, &status) != 0) return false;
  if (S_ISREG(status.st_mode) && status.st_nlink == 1) return true;
  errno = EINVAL;
  return false;
}

bool take_lock(int fd) {
  struct flock lock = whole_file();
  if (::fcntl(fd, F_OFD_SETLK, &lock) == 0) return true;
  if (errno == EACCES) errno = EWOULDBLOCK;
  return false;
}

bool write_port(int fd, unsigned short port) {
  char text[kPortTextSize];
  const int size = std::snprintf(text, sizeof text, "%d\n", port);
  if (::ftruncate(fd, 0) != 0) return false;
  return ::pwrite(fd, text, static_cast<std::size_t>(size), 0) == size;
}

bool is_locked_by_another(int fd) {
  struct flock lock = whole_file();
  return ::fcntl(fd, F_OFD_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
}

}  // namespace

int bonjour_register(const char* /*name*/, const char* /*type*/, unsigned short port) {
  FileDescriptor file(open_or_create(bonjour_lock_file()));
  if (!file || !is_own_kind(file.Get()) || !take_lock(file.Get())) return -1;
  // Only the owner may change the mode; another user's file was opened all the same.
  [[maybe_unused]] const int changed = ::fchmod(file.Get(), kEveryUser);
  return write_port(file.Get(), port) ? file.Release() : -1;
}

int bonjour_resolve(const char* /*name*/, const char* /*type*/, unsigned short* port) {
  const FileDescriptor file(open_in_place(bonjour_lock_file()));
  if (!file || !is_locked_by_another(file.Get())) return -1;
  char text[kPortTextSize + 1] = {};
  if (::pread(file.Get(), text, kPortTextSize, 0) <= 0) return -1;
  char* end = nullptr;
  const long number = std::strtol(text, &end, 10);
  if (end == text || number < 1 || number > 0xFFFF) return -1;
  *port = static_cast<unsigned short>(number);
  return 0;
}

std::string bonjour_lock_file() {
  return MachinePath(kLockFile);
}

void bonjour_unregister(int descriptor) {
  if (descriptor >= 0) ::close(descriptor);
}

}  // namespace vox
