#include "vox/platform/UsbPort.h"

#include <algorithm>
#include <cerrno>

#include <poll.h>

namespace vox {
namespace {

// The descriptors of the UsbInterrupts that live on this thread, in no promised order.
thread_local std::vector<int> interrupt_fds;

}  // namespace

UsbInterrupt::UsbInterrupt(int fd) : fd_(fd) {
  if (fd_ >= 0) interrupt_fds.push_back(fd_);
}

UsbInterrupt::~UsbInterrupt() {
  const auto own = std::find(interrupt_fds.begin(), interrupt_fds.end(), fd_);
  if (own != interrupt_fds.end()) interrupt_fds.erase(own);
}

const std::vector<int>& UsbInterrupt::Fds() {
  return interrupt_fds;
}

bool UsbInterrupt::Wait(std::chrono::milliseconds time) {
  using std::chrono::milliseconds;
  using steady = std::chrono::steady_clock;
  const auto end =
      steady::now() + std::clamp(time, milliseconds(0), milliseconds(std::chrono::hours(1)));
  std::vector<pollfd> entries;
  entries.reserve(interrupt_fds.size());
  for (const int fd : interrupt_fds) entries.push_back({fd, POLLIN, 0});
  for (;;) {
    const auto left = std::chrono::ceil<milliseconds>(end - steady::now());
    const int ready = ::poll(entries.data(), entries.size(),
                             static_cast<int>(std::max(left, milliseconds(0)).count()));
    if (ready >= 0 || errno != EINTR) return ready > 0;
  }
}

}  // namespace vox
