#include "tools/vox/writers/OutputFile.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <random>

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tools/vox/Failure.h"

namespace vox::cli {

namespace {

constexpr std::size_t kBufferBytes = 64 * 1024;
constexpr int kNameAttempts = 100;
constexpr std::size_t kLongestLeaf = 200;  // bytes; leaves room for the suffix in a 255-byte name

std::string FolderOf(const std::string& path) {
  const auto slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

std::string BesideName(const std::string& target) {
  static constexpr char kLetters[] = "abcdefghijklmnopqrstuvwxyz0123456789";
  std::random_device random;
  const auto slash = target.rfind('/');
  const std::size_t start = slash == std::string::npos ? 0 : slash + 1;
  std::string name = target.substr(0, start) + "." + target.substr(start, kLongestLeaf) + ".";
  for (int i = 0; i < 8; ++i) name += kLetters[random() % (sizeof kLetters - 1)];
  return name;
}

// A link whose target is yet to come is followed too, so that it stays a link. What is there and
// has no path (a pipe behind /dev/stdout) keeps its name.
std::string FollowLinks(const std::string& path) {
  constexpr int kMostLinks = 40;  // as the system itself follows
  const std::unique_ptr<char, void (*)(void*)> real(::realpath(path.c_str(), nullptr), std::free);
  if (real) return real.get();
  if (::access(path.c_str(), F_OK) == 0) return path;
  std::filesystem::path at(path);
  for (int i = 0; i < kMostLinks; ++i) {
    std::error_code error;
    const auto next = std::filesystem::read_symlink(at, error);
    if (error) return at;
    at = at.parent_path() / next;
  }
  return at;
}

// A rename is on the disk when its folder is; some file systems cannot synchronise one.
void SyncFolder(const std::string& folder) {
  const FileDescriptor fd(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (fd) [[maybe_unused]]
    const int ignored = ::fsync(fd.Get());
}

}  // namespace

OutputFile::OutputFile(const std::string& path, int cancel_fd)
    : path_(path), cancel_fd_(cancel_fd), target_(FollowLinks(path)) {
  buffer_.reserve(kBufferBytes);
  if (path_ == "-") {
    fd_ = STDOUT_FILENO;
    return;
  }
  struct stat there {};
  const bool exists = ::stat(target_.c_str(), &there) == 0;
  if (!exists && errno != ENOENT) throw FileFailure("write", path_, errno);
  if (exists && S_ISDIR(there.st_mode)) throw FileFailure("write", path_, EISDIR);
  if (exists && ::access(target_.c_str(), W_OK) != 0) throw FileFailure("write", path_, errno);
  if (exists && !S_ISREG(there.st_mode)) {
    OpenDirectly();
    return;
  }
  if (exists) old_mode_ = there.st_mode & 0777;
  OpenBeside();
}

OutputFile::~OutputFile() {
  if (!temporary_.empty()) ::unlink(temporary_.c_str());
}

void OutputFile::OpenDirectly() {
  owned_.Reset(::open(target_.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY));
  if (!owned_) throw FileFailure("write", path_, errno);
  fd_ = owned_.Get();
}

void OutputFile::OpenBeside() {
  for (int attempt = 0; attempt < kNameAttempts; ++attempt) {
    const std::string name = BesideName(target_);
    owned_.Reset(::open(name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666));
    if (owned_) {
      temporary_ = name;
      fd_ = owned_.Get();
      return;
    }
    if (errno != EEXIST && errno != EINTR) break;
  }
  throw FileFailure("write", path_, errno);
}

void OutputFile::Write(std::span<const std::uint8_t> bytes) {
  while (!bytes.empty()) {
    const std::size_t piece = std::min(bytes.size(), kBufferBytes - buffer_.size());
    buffer_.insert(buffer_.end(), bytes.begin(),
                   bytes.begin() + static_cast<std::ptrdiff_t>(piece));
    bytes = bytes.subspan(piece);
    if (buffer_.size() == kBufferBytes) Flush();
  }
}

// A pipe that poll() calls writable takes PIPE_BUF bytes without blocking, so that a cancel is
// noticed whatever its reader does.
std::size_t OutputFile::PieceSize() const {
  return IsSeekable() ? kBufferBytes : PIPE_BUF;
}

void OutputFile::WaitUntilWritable() const {
  if (IsSeekable()) return;
  pollfd entries[2] = {{fd_, POLLOUT, 0}, {cancel_fd_, POLLIN, 0}};
  while (::poll(entries, 2, -1) < 0) {
    if (errno != EINTR) throw FileFailure("write", path_, errno);
  }
  if (entries[1].revents != 0) throw CancelledFailure();
}

void OutputFile::Flush() {
  std::size_t done = 0;
  while (done < buffer_.size()) {
    WaitUntilWritable();
    const auto wrote =
        ::write(fd_, buffer_.data() + done, std::min(buffer_.size() - done, PieceSize()));
    if (wrote < 0 && (errno == EINTR || errno == EAGAIN)) continue;
    if (wrote < 0)
      throw FileFailure("write", path_ == "-" ? std::string("standard output") : path_, errno);
    done += static_cast<std::size_t>(wrote);
  }
  buffer_.clear();
}

void OutputFile::Commit() {
  Flush();
  if (!IsSeekable()) return;
  if (old_mode_ != 0 && ::fchmod(fd_, old_mode_) != 0) throw FileFailure("write", path_, errno);
  if (::fsync(fd_) != 0) throw FileFailure("write", path_, errno);
  if (::rename(temporary_.c_str(), target_.c_str()) != 0) throw FileFailure("write", path_, errno);
  temporary_.clear();
  SyncFolder(FolderOf(target_));
}

FileDescriptor MakeSpool() {
  const std::string folder = TemporaryFolder();
  FileDescriptor fd(::open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600));
  if (fd) return fd;
  std::string name = folder + "/vox-XXXXXX";
  fd.Reset(::mkostemp(name.data(), O_CLOEXEC));
  if (!fd) throw SpoolFailure("write a temporary file in", errno);
  ::unlink(name.c_str());
  return fd;
}

bool ReadAt(int fd, std::span<std::uint8_t> bytes, std::uint64_t offset) {
  while (!bytes.empty()) {
    const auto got = ::pread(fd, bytes.data(), bytes.size(), static_cast<off_t>(offset));
    if (got < 0 && errno == EINTR) continue;
    if (got == 0) errno = EIO;
    if (got <= 0) return false;
    bytes = bytes.subspan(static_cast<std::size_t>(got));
    offset += static_cast<std::uint64_t>(got);
  }
  return true;
}

bool WriteAt(int fd, std::span<const std::uint8_t> bytes, std::uint64_t offset) {
  while (!bytes.empty()) {
    const auto wrote = ::pwrite(fd, bytes.data(), bytes.size(), static_cast<off_t>(offset));
    if (wrote < 0 && errno == EINTR) continue;
    if (wrote < 0) return false;
    bytes = bytes.subspan(static_cast<std::size_t>(wrote));
    offset += static_cast<std::uint64_t>(wrote);
  }
  return true;
}

}  // namespace vox::cli
