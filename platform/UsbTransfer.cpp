// One asynchronous transfer of a session, from submitting to its end.
#include <algorithm>
#include <array>
#include <cerrno>

#include <poll.h>

#include "vox/platform/UsbSession.h"

namespace vox {
namespace {

using Clock = std::chrono::steady_clock;

// What the kernel may take to give a cancelled transfer back; after that the device is let go.
constexpr std::chrono::seconds kCancelTime{5};

struct PollFdsFree {
  void operator()(const libusb_pollfd** fds) const { libusb_free_pollfds(fds); }
};
using PollFds = std::unique_ptr<const libusb_pollfd*[], PollFdsFree>;

int MillisecondsUntil(Clock::time_point end) {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
  return static_cast<int>(std::clamp<std::int64_t>(left, 0, 60'000));
}

enum class Woken : std::uint8_t { kLibUsb, kInterrupt, kFailure };

// Waits waits for libusb's descriptors and the interrupts'. Once a transfer runs, nothing here may
// throw, so all room is taken before.
class Waits {
 public:
  Waits() : waits_(kMostOwn + UsbInterrupt::Fds().size()) {}

  Woken Wait(libusb_context* context, bool with_interrupts, Clock::time_point end) {
    const PollFds fds(libusb_get_pollfds(context));
    if (!fds) return Woken::kFailure;
    std::size_t own = 0;
    for (; fds[own] != nullptr; ++own) {
      if (own == kMostOwn) return Woken::kFailure;
      waits_[own] = {fds[own]->fd, fds[own]->events, 0};
    }
    std::size_t count = own;
    if (with_interrupts) {
      for (const int fd : UsbInterrupt::Fds()) waits_[count++] = {fd, POLLIN, 0};
    }
    const int ready = ::poll(waits_.data(), count, MillisecondsUntil(end));
    if (ready < 0) return errno == EINTR ? Woken::kLibUsb : Woken::kFailure;
    const auto interrupts = std::span(waits_).subspan(own, count - own);
    const bool interrupted =
        std::ranges::any_of(interrupts, [](const pollfd& wait) { return wait.revents != 0; });
    return interrupted ? Woken::kInterrupt : Woken::kLibUsb;
  }

 private:
  static constexpr std::size_t kMostOwn = 32;  // libusb has an event, a timer and a device

  std::vector<pollfd> waits_;
};

IOReturn ResultOf(libusb_transfer_status status) {
  switch (status) {
    case LIBUSB_TRANSFER_COMPLETED:
      return kIOReturnSuccess;
    case LIBUSB_TRANSFER_STALL:
      return kIOUSBPipeStalled;
    case LIBUSB_TRANSFER_NO_DEVICE:
      return kIOReturnNoDevice;
    case LIBUSB_TRANSFER_TIMED_OUT:
      return kIOUSBTransactionTimeout;
    default:
      return kIOReturnNotResponding;
  }
}

void OnEnded(libusb_transfer* transfer) {
  *static_cast<int*>(transfer->user_data) = 1;
}

// Running drives a transfer; cause is why it was cancelled, if it was.
class Running {
 public:
  Running(libusb_context* context, libusb_transfer* transfer, const int* ended)
      : context_(context), transfer_(transfer), ended_(ended) {}

  // Drive returns false when the kernel keeps the transfer.
  bool Drive(Clock::time_point deadline) {
    while (*ended_ == 0) {
      const auto end = cause_ == kIOReturnSuccess ? deadline : cancel_end_;
      const Woken woken = waits_.Wait(context_, cause_ == kIOReturnSuccess, end);
      timeval at_once{0, 0};
      const int handled = libusb_handle_events_timeout(context_, &at_once);
      if (*ended_ != 0) break;
      if (woken == Woken::kInterrupt) Cancel(kIOReturnAborted);
      if (woken == Woken::kFailure || handled < 0) Cancel(kIOReturnError);
      if (Clock::now() < end) continue;
      if (cause_ != kIOReturnSuccess && Clock::now() >= cancel_end_) return false;
      Cancel(kIOUSBTransactionTimeout);
    }
    return true;
  }

  IOReturn Result() const {
    const bool was_cancelled = transfer_->status == LIBUSB_TRANSFER_CANCELLED;
    return was_cancelled && cause_ != kIOReturnSuccess ? cause_ : ResultOf(transfer_->status);
  }

 private:
  void Cancel(IOReturn cause) {
    if (cause_ != kIOReturnSuccess) return;
    cause_ = cause;
    cancel_end_ = Clock::now() + kCancelTime;
    libusb_cancel_transfer(transfer_);
  }

  libusb_context* const context_;
  libusb_transfer* const transfer_;
  const int* const ended_;
  IOReturn cause_ = kIOReturnSuccess;
  Clock::time_point cancel_end_;
  Waits waits_;
};

}  // namespace

UsbSession::Moved UsbSession::Transfer(const UsbPipeShape& pipe, std::span<std::uint8_t> buffer,
                                       Time deadline) {
  if (!IsOpen()) return {kIOReturnNotOpen, 0};
  if (UsbInterrupt::Wait({})) return {kIOReturnAborted, 0};
  const LibUsbTransfer transfer(libusb_alloc_transfer(0));
  if (!transfer) return {kIOReturnNoMemory, 0};
  int ended = 0;
  libusb_fill_bulk_transfer(transfer.get(), handle_.get(), pipe.endpoint, buffer.data(),
                            static_cast<int>(buffer.size()), OnEnded, &ended, 0);
  transfer->type = pipe.type;
  Running running(context_.get(), transfer.get(), &ended);
  const int submitted = libusb_submit_transfer(transfer.get());
  if (submitted < 0) return {LibUsbResult(submitted), 0};
  if (!running.Drive(deadline)) {
    Close();  // takes the transfer from the kernel, and the buffer with it
    return {kIOReturnNoDevice, 0};
  }
  return {running.Result(), static_cast<std::uint32_t>(std::max(transfer->actual_length, 0))};
}

}  // namespace vox
