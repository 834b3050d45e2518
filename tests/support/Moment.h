// Moment is a point in another thread's work: that thread waits at it until the test lets it go. So
// interleavings are made, not hoped for.
//
//   worker: moment.Reach()            test: ASSERT_TRUE(moment.AwaitReached()); ...; moment.Let();
//
// Thread rule: any thread. Once let go, it holds nobody any more.
#pragma once

#include <chrono>
#include <functional>
#include <initializer_list>
#include <thread>

#include <poll.h>

#include "vox/platform/FileDescriptor.h"
#include "vox/platform/Mutex.h"

namespace vox::test {

constexpr std::chrono::seconds kPatience{20};  // a test gives up, and fails, after it

// Eventually waits until something that other threads bring about is true; false when it never is.
inline bool Eventually(const std::function<bool()>& condition) {
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::yield();
  }
  return true;
}

class Moment {
 public:
  // Reach waits until Let, or until one of the descriptors is readable: false then.
  bool Reach(std::initializer_list<int> wakes = {}) {
    {
      MutexLock lock(mutex_);
      reached_ = true;
      condition_.NotifyAll();
    }
    pollfd entries[4] = {{open_.Get(), POLLIN, 0}};
    nfds_t count = 1;
    for (const int wake : wakes) entries[count++] = {wake, POLLIN, 0};
    while (::poll(entries, count, -1) < 0) {
    }
    return (entries[0].revents & POLLIN) != 0;
  }
  bool AwaitReached() {
    MutexLock lock(mutex_);
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    while (!reached_) {
      if (!condition_.WaitUntil(lock, deadline)) return reached_;
    }
    return true;
  }
  void Let() { open_.Raise(); }

 private:
  Mutex mutex_;
  Condition condition_;
  bool reached_ VOX_GUARDED_BY(mutex_) = false;
  EventFd open_;
};

}  // namespace vox::test
