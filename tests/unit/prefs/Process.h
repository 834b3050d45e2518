// Another process of a test, and what it may do.
#pragma once

#include <csignal>
#include <cstdlib>
#include <functional>

#include <fcntl.h>
#include <grp.h>
#include <sys/wait.h>
#include <unistd.h>

#include "vox/platform/FileDescriptor.h"

namespace vox {

// Process runs `body` in a child, whose exit status is what it returns; it does not outlive this
// object. The child can tell its parent once that it got somewhere.
class Process {
 public:
  explicit Process(const std::function<int(Process&)>& body) {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) std::abort();
    told_.Reset(ends[0]);
    tell_.Reset(ends[1]);
    pid_ = ::fork();
    if (pid_ == 0) ::_exit(body(*this));
    tell_.Reset();
  }
  ~Process() { Kill(); }
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  void Tell() { [[maybe_unused]] const auto sent = ::write(tell_.Get(), "!", 1); }
  // AwaitTold: false when the child ended without a word.
  bool AwaitTold() {
    char word;
    return ::read(told_.Get(), &word, 1) == 1;
  }
  // Wait gives the exit status; -1 after a signal.
  int Wait() {
    int status = 0;
    if (pid_ <= 0 || ::waitpid(pid_, &status, 0) != pid_) return -1;
    pid_ = 0;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  void Kill() {
    if (pid_ > 0) ::kill(pid_, SIGKILL);
    Wait();
  }

 private:
  FileDescriptor told_, tell_;
  pid_t pid_ = 0;
};

// BecomeNobody gives up the rights of root, if any, for good.
inline bool BecomeNobody() {
  constexpr unsigned kNobody = 65534;
  if (::geteuid() != 0) return true;
  return ::setgroups(0, nullptr) == 0 && ::setgid(kNobody) == 0 && ::setuid(kNobody) == 0;
}

}  // namespace vox
