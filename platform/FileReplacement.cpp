#include "vox/platform/FileReplacement.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

#include "vox/platform/FileDescriptor.h"
#include "vox/platform/Leftovers.h"

namespace vox {
namespace {

constexpr int kMaxLinks = 40;             // as many as the kernel follows
constexpr char kAsidePrefix[] = ".vox-";  // of files that are written aside
constexpr mode_t kOthersCanWrite = S_IWGRP | S_IWOTH;

FileReplacementSystem system_calls{::write, ::fsync, ::rename};

std::string FolderOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return path.substr(0, std::max<std::size_t>(slash, 1));
}

int StatusOf(const std::string& path, struct stat* status) {
  return ::lstat(path.c_str(), status) == 0 ? 0 : errno;
}

bool IsTrustedLink(const struct stat& link, const struct stat& folder) {
  if ((folder.st_mode & kOthersCanWrite) == 0) return true;
  return link.st_uid == ::geteuid() || link.st_uid == folder.st_uid;
}

// FollowLink replaces *path, which is a link, by what it names.
int FollowLink(const struct stat& link, std::string* path) {
  const std::string folder = FolderOf(*path);
  struct stat folder_status {};
  if (::stat(folder.c_str(), &folder_status) != 0) return errno;
  if (!IsTrustedLink(link, folder_status)) return EACCES;
  char text[PATH_MAX];
  const ssize_t size = ::readlink(path->c_str(), text, sizeof text);
  if (size < 0) return errno;
  if (size == sizeof text) return ENAMETOOLONG;
  const std::string named(text, static_cast<std::size_t>(size));
  *path = named.starts_with('/') ? named : folder + "/" + named;
  return 0;
}

int WriteAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written = system_calls.write(fd, bytes.data(), bytes.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) return errno;
    if (written == 0) return EIO;
    bytes.remove_prefix(static_cast<std::size_t>(written));
  }
  return 0;
}

// GiveOwnership: what this user may not give stays as the system made it, and then the group gets
// no more than everybody.
int GiveOwnership(int fd, const struct stat& old) {
  mode_t mode = old.st_mode & 0777;
  if (::fchown(fd, old.st_uid, old.st_gid) != 0 && ::fchown(fd, -1, old.st_gid) != 0) {
    mode &= ~static_cast<mode_t>(S_IRWXG) | ((mode & S_IRWXO) << 3);
  }
  return ::fchmod(fd, mode) == 0 ? 0 : errno;
}

// NewFile is the file that is written aside; it vanishes unless it is put in place.
class NewFile {
 public:
  explicit NewFile(const std::string& target) {
    name_ = FolderOf(target) + "/" + kAsidePrefix + "XXXXXX";
    fd_.Reset(::mkostemp(name_.data(), O_CLOEXEC));
    error_ = fd_ ? 0 : errno;
  }
  NewFile(const NewFile&) = delete;
  NewFile& operator=(const NewFile&) = delete;
  ~NewFile() {
    if (!name_.empty() && error_ == 0) ::unlink(name_.c_str());
  }

  int Error() const { return error_; }
  int Get() const { return fd_.Get(); }

  int Fill(std::string_view bytes) {
    if (const int error = WriteAll(Get(), bytes)) return error;
    if (system_calls.sync(Get()) != 0) return errno;
    return ::close(fd_.Release()) == 0 ? 0 : errno;
  }

  int PutInPlace(const std::string& target) {
    if (system_calls.rename(name_.c_str(), target.c_str()) != 0) return errno;
    name_.clear();
    return 0;
  }

 private:
  std::string name_;  // empty once it is in place
  FileDescriptor fd_;
  int error_ = 0;
};

int ReplaceTarget(const std::string& target, std::string_view bytes, mode_t new_mode) {
  struct stat old {};
  const int missing = StatusOf(target, &old);
  if (missing != 0 && missing != ENOENT) return missing;
  if (missing == 0 && !S_ISREG(old.st_mode)) return EINVAL;
  const FileDescriptor folder(::open(FolderOf(target).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!folder) return errno;
  RemoveLeftovers(folder.Get(), kAsidePrefix);

  NewFile file(target);
  if (file.Error() != 0) return file.Error();
  if (missing != 0 && ::fchmod(file.Get(), new_mode) != 0) return errno;
  if (missing == 0) {
    if (const int error = GiveOwnership(file.Get(), old)) return error;
  }
  if (const int error = file.Fill(bytes)) return error;
  if (const int error = file.PutInPlace(target)) return error;
  // Some file systems cannot store a folder apart, and say so with EINVAL.
  return system_calls.sync(folder.Get()) == 0 || errno == EINVAL ? 0 : errno;
}

}  // namespace

FileReplacementSystem SetFileReplacementSystem(const FileReplacementSystem& system) {
  return std::exchange(system_calls, system);
}

int TargetOfLinks(const std::string& path, std::string* target) {
  *target = path;
  for (int links = 0; links <= kMaxLinks; ++links) {
    struct stat status {};
    const int error = StatusOf(*target, &status);
    if (error == ENOENT) return ::access(FolderOf(*target).c_str(), F_OK) == 0 ? 0 : errno;
    if (error != 0) return error;
    if (!S_ISLNK(status.st_mode)) return 0;
    if (const int refused = FollowLink(status, target)) return refused;
  }
  return ELOOP;
}

int ReadWholeFile(const std::string& path, std::size_t limit, std::vector<std::uint8_t>* bytes,
                  struct stat* status) {
  bytes->clear();
  const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  return file ? ReadOpenFile(file.Get(), limit, bytes, status) : errno;
}

int ReadOpenFile(int fd, std::size_t limit, std::vector<std::uint8_t>* bytes, struct stat* status) {
  bytes->clear();
  struct stat own {};
  if (::fstat(fd, &own) != 0) return errno;
  if (status != nullptr) *status = own;
  if (!S_ISREG(own.st_mode)) return EINVAL;
  for (;;) {
    std::uint8_t block[16384];
    const ssize_t got = ::read(fd, block, sizeof block);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return errno;
    if (got == 0) return 0;
    if (bytes->size() + static_cast<std::size_t>(got) > limit) return EFBIG;
    bytes->insert(bytes->end(), block, block + got);
  }
}

int ReplaceFile(const std::string& path, std::string_view bytes, mode_t new_mode) {
  std::string target;
  if (const int error = TargetOfLinks(path, &target)) return error;
  return ReplaceTarget(target, bytes, new_mode);
}

}  // namespace vox
