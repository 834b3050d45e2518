#include "sim/usbbus/UsbScannerModel.h"

#include <algorithm>

namespace vox::sim {
namespace {

constexpr std::uint8_t kIn = 0x81, kOut = 0x02, kInterrupt = 0x83;
constexpr std::uint8_t kInterruptType = 3, kInterruptInterval = 8;
constexpr std::uint16_t kInterruptPacket = 64;
// A device that says nothing may be made to speak by its owner (SetFaults), of which the bus hears
// nothing.
constexpr std::chrono::milliseconds kLook{50};

}  // namespace

UsbScannerModel::UsbScannerModel(UsbDevice& device)
    : device_(device), waker_([this] { WakeInTime(); }) {}

UsbScannerModel::~UsbScannerModel() {
  {
    MutexLock lock(mutex_);
    stopped_ = true;
    changed_.NotifyAll();
  }
  waker_.join();
}

UsbDescription UsbScannerModel::Description(int port) const {
  const UsbOptions& usb = device_.Options().usb;
  UsbInterface scanner;
  scanner.endpoints = {{.address = kIn, .packet = usb.max_packet},
                       {.address = kOut, .packet = usb.max_packet},
                       {.address = kInterrupt,
                        .type = kInterruptType,
                        .packet = kInterruptPacket,
                        .interval = kInterruptInterval}};
  UsbDescription description;
  description.ports = {port};
  description.vendor = usb.vendor_id;
  description.product = usb.product_id;
  description.manufacturer = usb.maker;
  description.product_name = usb.product;
  description.serial = usb.serial;
  description.interfaces = {scanner};
  return description;
}

void UsbScannerModel::OnPlugged(const std::function<void()>& wake) {
  MutexLock lock(mutex_);
  wake_ = wake;
}

UsbAnswer UsbScannerModel::OnPacketOut(std::uint8_t /*endpoint*/,
                                       std::span<const std::uint8_t> packet) {
  switch (device_.Scanner().OnBulkOut(packet)) {
    case UsbStatus::kOk:
      return UsbAnswer::kAck;
    case UsbStatus::kStall:
      return UsbAnswer::kStall;
    case UsbStatus::kGone:
      gone_.Raise();
      return UsbAnswer::kNak;
    default:
      return UsbAnswer::kNak;
  }
}

UsbSent UsbScannerModel::OnPacketIn(std::uint8_t endpoint, std::span<std::uint8_t> room) {
  if (endpoint != kIn) return {};
  const UsbIn in = device_.Scanner().OnBulkIn(room.size());
  if (!device_.Scanner().IsPlugged()) gone_.Raise();  // with its last bytes on their way
  switch (in.status) {
    case UsbStatus::kOk:
      std::copy(in.bytes.begin(), in.bytes.end(), room.begin());
      return {UsbAnswer::kAck, in.bytes.size()};
    case UsbStatus::kStall:
      return {UsbAnswer::kStall};
    case UsbStatus::kGone:
      return {};
    default:
      break;
  }
  MutexLock lock(mutex_);
  again_ = std::min(in.again.value_or(Clock::time_point::max()), Clock::now() + kLook);
  changed_.NotifyAll();
  return {};
}

void UsbScannerModel::OnClearHalt(std::uint8_t endpoint) {
  if (endpoint == kIn) device_.Scanner().ClearHalt(UsbPipe::kIn);
  if (endpoint == kOut) device_.Scanner().ClearHalt(UsbPipe::kOut);
}

void UsbScannerModel::WakeInTime() {
  MutexLock lock(mutex_);
  while (!stopped_) {
    if (!again_) {
      changed_.Wait(lock);
      continue;
    }
    if (Clock::now() < *again_) {
      changed_.WaitUntil(lock, *again_);
      continue;
    }
    again_.reset();
    const std::function<void()> wake = wake_;
    lock.Unlock();
    if (wake) wake();
    lock.Lock();
  }
}

}  // namespace vox::sim
