// FileDescriptor owns one descriptor and closes it; EventFd is a flag that poll() can wait for.
//
// Thread rule: a FileDescriptor belongs to one thread at a time; an EventFd may be raised from any
// thread, and from a signal handler.
#pragma once

#include <cstdint>
#include <utility>

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include "vox/platform/Export.h"

namespace vox {

class FileDescriptor {
 public:
  FileDescriptor() = default;
  explicit FileDescriptor(int fd) : fd_(fd) {}
  FileDescriptor(FileDescriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept {
    if (this != &other) Reset(std::exchange(other.fd_, -1));
    return *this;
  }
  ~FileDescriptor() { Reset(); }

  int Get() const { return fd_; }
  explicit operator bool() const { return fd_ >= 0; }
  int Release() { return std::exchange(fd_, -1); }
  void Reset(int fd = -1) {
    if (fd_ >= 0) ::close(fd_);
    fd_ = fd;
  }

 private:
  int fd_ = -1;  // -1: none
};

// EventFd stays raised (readable) until it is cleared.
class EventFd {
 public:
  EventFd() : fd_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}
  int Get() const { return fd_.Get(); }
  void Raise() {
    const std::uint64_t one = 1;
    [[maybe_unused]] const auto written = ::write(fd_.Get(), &one, sizeof one);
  }
  void Clear() {
    std::uint64_t count = 0;
    [[maybe_unused]] const auto got = ::read(fd_.Get(), &count, sizeof count);
  }
  bool IsRaised() const {
    pollfd entry{fd_.Get(), POLLIN, 0};
    return ::poll(&entry, 1, 0) == 1;
  }

 private:
  FileDescriptor fd_;
};

}  // namespace vox
