#include "tools/voxjobd/Poller.h"

#include <algorithm>

namespace vox {
namespace {

constexpr int kBatchSize = 64;

// A deadline is rounded up to the next millisecond, so that a wait never ends just before it and
// turns into a spin.
int MillisecondsUntil(std::optional<Poller::Clock::time_point> deadline) {
  if (!deadline) return -1;
  const auto left =
      std::chrono::ceil<std::chrono::milliseconds>(*deadline - Poller::Clock::now()).count();
  return static_cast<int>(std::clamp<long long>(left, 0, 3'600'000));
}

}  // namespace

Poller::Poller() : epoll_(::epoll_create1(EPOLL_CLOEXEC)) {}

bool Poller::Add(int fd, std::uint32_t events, Watched* watched) {
  epoll_event event{};
  event.events = events;
  event.data.ptr = watched;
  return ::epoll_ctl(epoll_.Get(), EPOLL_CTL_ADD, fd, &event) == 0;
}

bool Poller::Change(int fd, std::uint32_t events, Watched* watched) {
  epoll_event event{};
  event.events = events;
  event.data.ptr = watched;
  return ::epoll_ctl(epoll_.Get(), EPOLL_CTL_MOD, fd, &event) == 0;
}

void Poller::Remove(int fd, Watched* watched) {
  ::epoll_ctl(epoll_.Get(), EPOLL_CTL_DEL, fd, nullptr);
  for (epoll_event& event : batch_) {
    if (event.data.ptr == watched) event.data.ptr = nullptr;
  }
}

void Poller::Wait(std::optional<Clock::time_point> deadline) {
  epoll_event events[kBatchSize];
  const int count = ::epoll_wait(epoll_.Get(), events, kBatchSize, MillisecondsUntil(deadline));
  if (count <= 0) return;  // the deadline, or a signal: the caller looks at both
  batch_ = {events, static_cast<std::size_t>(count)};
  for (std::size_t i = 0; i < batch_.size(); ++i) {
    auto* watched = static_cast<Watched*>(batch_[i].data.ptr);
    if (watched != nullptr) watched->OnReady(batch_[i].events);
  }
  batch_ = {};
}

}  // namespace vox
