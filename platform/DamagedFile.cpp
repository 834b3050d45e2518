#include "vox/platform/PropertyListFile.h"

#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "vox/platform/FileDescriptor.h"
#include "vox/platform/FileReplacement.h"
#include "vox/platform/PropertyList.h"

namespace vox {
namespace {

constexpr int kMaxKept = 9;  // contents of one file

std::string NameOfKept(const std::string& target, int number) {
  const std::string name = target + ".damaged";
  return number == 1 ? name : name + "." + std::to_string(number);
}

// DamagedContent is the file as it was found, held open, so that it stays the one that was judged
// when another takes its name.
class DamagedContent {
 public:
  // Open: 0, ENOENT when the file is not damaged, or the errno.
  int Open(const std::string& target) {
    fd_.Reset(::open(target.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOFOLLOW));
    if (!fd_) return errno;
    const int error = ReadOpenFile(fd_.Get(), kPropertyListBytes, &bytes_, &status_);
    if (error == EFBIG) return 0;
    if (error != 0) return error;
    const auto value = ParsePropertyList(bytes_);
    return value && value->AsDictionary() != nullptr ? ENOENT : 0;
  }

  bool IsKeptAs(const std::string& name) const {
    struct stat status {};
    if (::lstat(name.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return false;
    if (status.st_dev == status_.st_dev && status.st_ino == status_.st_ino) return true;
    std::vector<std::uint8_t> bytes;
    return status.st_size == status_.st_size &&
           ReadWholeFile(name, kPropertyListBytes, &bytes, nullptr) == 0 && bytes == bytes_;
  }

  // KeepAs: 0, EEXIST when something bears the name, or the errno.
  int KeepAs(const std::string& name) const {
    if (::linkat(AT_FDCWD, OpenName().c_str(), AT_FDCWD, name.c_str(), AT_SYMLINK_FOLLOW) == 0)
      return 0;
    return errno == EEXIST ? EEXIST : CopyTo(name);
  }

 private:
  std::string OpenName() const { return "/proc/self/fd/" + std::to_string(fd_.Get()); }

  // A file of somebody else's, or a file system without second names.
  int CopyTo(const std::string& name) const {
    if (static_cast<std::uint64_t>(status_.st_size) > kPropertyListBytes) return EFBIG;
    const FileDescriptor reserved(
        ::open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR));
    if (!reserved) return errno;
    const std::string_view bytes(reinterpret_cast<const char*>(bytes_.data()), bytes_.size());
    const int error = ReplaceFile(name, bytes);
    if (error != 0) ::unlink(name.c_str());
    return error;
  }

  FileDescriptor fd_;
  struct stat status_ {};
  std::vector<std::uint8_t> bytes_;
};

}  // namespace

KeptFile KeepDamagedFile(const std::string& path) {
  std::string target;
  if (const int error = TargetOfLinks(path, &target)) return {error, {}, false};
  DamagedContent content;
  if (const int error = content.Open(target)) return {error, {}, false};
  for (int number = 1; number <= kMaxKept; ++number) {
    const std::string name = NameOfKept(target, number);
    if (content.IsKeptAs(name)) return {0, name, false};
    const int error = content.KeepAs(name);
    if (error != EEXIST) return {error, error == 0 ? name : std::string(), error == 0};
    if (content.IsKeptAs(name)) return {0, name, false};  // another process was faster
  }
  return {EEXIST, {}, false};
}

}  // namespace vox
