// Poller is epoll(7) with objects in place of numbers: whoever waits for a descriptor is called
// when something happens there.
//
// Thread rule: one thread. A Watched object may remove itself and others from the poller, and be
// deleted, while OnReady runs; events that were already fetched for it are forgotten.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <span>

#include <sys/epoll.h>

#include "vox/platform/FileDescriptor.h"

namespace vox {

class Watched {
 public:
  virtual void OnReady(std::uint32_t events) = 0;  // EPOLLIN and its like

 protected:
  ~Watched() = default;
};

class Poller {
 public:
  using Clock = std::chrono::steady_clock;

  Poller();
  bool IsOpen() const { return static_cast<bool>(epoll_); }

  // Add and Change return false when the kernel has no room for the watch.
  bool Add(int fd, std::uint32_t events, Watched* watched);
  bool Change(int fd, std::uint32_t events, Watched* watched);
  void Remove(int fd, Watched* watched);

  // Wait waits for events until the deadline (without one: for ever) and passes them on.
  void Wait(std::optional<Clock::time_point> deadline);

 private:
  FileDescriptor epoll_;
  std::span<epoll_event> batch_;  // what is being passed on
};

}  // namespace vox
