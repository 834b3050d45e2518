#include "vox/platform/UsbPort.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>

#include <poll.h>

namespace vox {
namespace {

// The descriptors of the UsbInterrupts that live on this thread, in no promised order.
struct InForce {
  std::array<int, UsbInterrupt::kMost> fds;
  std::size_t count;
};
thread_local InForce in_force{};

}  // namespace

UsbInterrupt::UsbInterrupt(int fd) : fd_(fd) {
  if (fd_ < 0) return;
  if (in_force.count == kMost) std::abort();
  in_force.fds[in_force.count++] = fd_;
}

UsbInterrupt::~UsbInterrupt() {
  if (fd_ < 0) return;
  auto* const end = in_force.fds.data() + in_force.count;
  auto* const own = std::find(in_force.fds.data(), end, fd_);
  if (own == end) return;
  std::copy(own + 1, end, own);
  --in_force.count;
}

std::span<const int> UsbInterrupt::Fds() {
  return std::span(in_force.fds).first(in_force.count);
}

bool UsbInterrupt::Wait(std::chrono::milliseconds time) {
  using std::chrono::milliseconds;
  using steady = std::chrono::steady_clock;
  const auto end =
      steady::now() + std::clamp(time, milliseconds(0), milliseconds(std::chrono::hours(1)));
  std::array<pollfd, kMost> entries;
  std::transform(Fds().begin(), Fds().end(), entries.begin(), [](int fd) {
    return pollfd{fd, POLLIN, 0};
  });
  for (;;) {
    const auto left = std::chrono::ceil<milliseconds>(end - steady::now());
    const int ready = ::poll(entries.data(), in_force.count,
                             static_cast<int>(std::max(left, milliseconds(0)).count()));
    if (ready >= 0 || errno != EINTR) return ready > 0;
  }
}

}  // namespace vox
