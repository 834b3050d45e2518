#include "tests/support/PluggedScanner.h"

#include <algorithm>
#include <chrono>
#include <stdexcept>
#include <utility>

namespace vox::test {
namespace {

using Clock = std::chrono::steady_clock;
using sim::UsbStatus;
using std::chrono::milliseconds;

constexpr std::uint8_t kPipeIn = 1;        // of StillImageDevice
constexpr milliseconds kLook{2};           // how often a pending transfer looks again
constexpr std::uint32_t kOwnTime = 10000;  // of a time-out of 0

// Deadline of a transfer in which bytes come: each piece gives it its time anew, but the last.
class Deadline {
 public:
  explicit Deadline(const FakeUsbTransfer& transfer)
      : no_data_(Time(transfer.no_data_ms)), end_(Clock::now() + Time(transfer.completion_ms)) {
    Moved();
  }
  void Moved() { until_ = std::min(end_, Clock::now() + no_data_); }
  // Wait waits a little. Returns: kIOReturnSuccess, or why the transfer is over.
  IOReturn Wait() const {
    if (UsbInterrupt::Wait(kLook)) return kIOReturnAborted;
    return Clock::now() < until_ ? kIOReturnSuccess : kIOUSBTransactionTimeout;
  }

 private:
  static milliseconds Time(std::uint32_t ms) { return milliseconds(ms != 0 ? ms : kOwnTime); }
  milliseconds no_data_;
  Clock::time_point end_, until_;
};

}  // namespace

PluggedScanner::PluggedScanner(FakeUsbPort& port, sim::DeviceOptions options)
    : port_(port), device_(std::move(options)) {
  if (!device_.Error().empty()) throw std::runtime_error(device_.Error());
  Plug();
}

PluggedScanner::~PluggedScanner() {
  Unplug();
}

void PluggedScanner::Plug() {
  if (id_ != 0) return;
  const sim::UsbOptions& options = device_.Options().usb;
  FakeUsbDevice device = StillImageDevice(options.serial);
  device.properties.Set(kUSBVendorID, std::int64_t{options.vendor_id});
  device.properties.Set(kUSBProductID, std::int64_t{options.product_id});
  device.on_write = [this](const Bytes& bytes, const FakeUsbTransfer& transfer) {
    return Write(bytes, transfer);
  };
  device.on_read = [this](std::uint32_t size, const FakeUsbTransfer& transfer) {
    return Read(size, transfer);
  };
  device.on_clear = [this](std::uint8_t pipe) {
    if (pipe <= 2)
      device_.Scanner().ClearHalt(pipe == kPipeIn ? sim::UsbPipe::kIn : sim::UsbPipe::kOut);
  };
  device_.Scanner().Plug();
  id_ = port_.Attach(std::move(device));
}

void PluggedScanner::Unplug() {
  if (id_ == 0) return;
  device_.Scanner().Unplug();
  port_.Detach(std::exchange(id_, 0));
}

IOReturn PluggedScanner::Write(const Bytes& bytes, const FakeUsbTransfer& transfer) {
  const Deadline deadline(transfer);
  for (;;) {
    switch (device_.Scanner().OnBulkOut(bytes)) {
      case UsbStatus::kOk:
        return kIOReturnSuccess;
      case UsbStatus::kStall:
        return kIOUSBPipeStalled;
      case UsbStatus::kGone:
        return kIOReturnNoDevice;
      default:
        break;
    }
    if (const IOReturn over = deadline.Wait(); over != kIOReturnSuccess) return over;
  }
}

// The host's transfers have room for whole packets, as those of the port have; what was not asked
// for is kept for the next read.
FakeUsbAnswer PluggedScanner::Read(std::uint32_t size, const FakeUsbTransfer& transfer) {
  const std::size_t packet = device_.Options().usb.max_packet;
  const std::size_t room = std::max<std::size_t>((size + packet - 1) / packet, 1) * packet;
  Deadline deadline(transfer);
  FakeUsbAnswer answer;
  while (answer.bytes.size() < room) {
    const sim::UsbIn in = device_.Scanner().OnBulkIn(room - answer.bytes.size());
    answer.bytes.insert(answer.bytes.end(), in.bytes.begin(), in.bytes.end());
    if (in.status == UsbStatus::kOk) {
      if (in.ends) break;
      deadline.Moved();
      continue;
    }
    if (in.status == UsbStatus::kStall) answer.result = kIOUSBPipeStalled;
    if (in.status == UsbStatus::kGone) answer.result = kIOReturnNoDevice;
    if (in.status == UsbStatus::kOverflow) answer.result = kIOReturnError;
    if (in.status == UsbStatus::kNothing) answer.result = deadline.Wait();
    if (answer.result != kIOReturnSuccess) break;
  }
  return answer;
}

}  // namespace vox::test
