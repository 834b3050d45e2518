// Beats measures time as this process gets it: a thread of its own counts beats of 5 ms, and a beat
// that comes late, since the machine gave the time to others, counts once like any other. So a
// promise in milliseconds can be held to on a machine that is shared: what waits takes its beats,
// what is only kept from running does not. It never measures more than has passed.
//
// Thread rule: any thread may ask; the object outlives its callers.
#pragma once

#include <atomic>
#include <chrono>
#include <thread>

#include <poll.h>

#include "vox/platform/FileDescriptor.h"

namespace vox::test {

class Beats {
 public:
  Beats() : thread_([this] { Count(); }) {}
  ~Beats() {
    over_.Raise();
    thread_.join();
  }
  Beats(const Beats&) = delete;
  Beats& operator=(const Beats&) = delete;

  std::chrono::milliseconds Elapsed() const { return count_.load() * kBeat; }

 private:
  static constexpr std::chrono::milliseconds kBeat{5};

  void Count() {
    pollfd over{over_.Get(), POLLIN, 0};
    while (::poll(&over, 1, static_cast<int>(kBeat.count())) <= 0) ++count_;
  }

  EventFd over_;
  std::atomic<int> count_{0};
  std::thread thread_;  // last: it uses the others
};

}  // namespace vox::test
