#include "vox/platform/UsbPipe.h"

#include <algorithm>
#include <array>

namespace vox {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::uint32_t kDefaultTimeMs = 5000;  // what a time-out of 0 stands for
constexpr std::size_t kLargestTransfer = 1u << 20;
constexpr std::size_t kLargestPacket = 2048;

// Deadlines of one read or write, which goes on while bytes keep coming.
class Deadlines {
 public:
  explicit Deadlines(UsbTimes times)
      : no_data_(times.no_data_ms != 0 ? times.no_data_ms : kDefaultTimeMs),
        completion_(Clock::now() +
                    std::chrono::milliseconds(times.completion_ms != 0
                                                  ? times.completion_ms
                                                  : std::max(times.no_data_ms, kDefaultTimeMs))) {}

  Clock::time_point Next() const { return std::min(Clock::now() + no_data_, completion_); }
  // GoesOn tells whether a transfer that was cut by its time-out is followed by another.
  bool GoesOn(const UsbSession::Moved& moved) const {
    return moved.result == kIOUSBTransactionTimeout && moved.bytes > 0 &&
           Clock::now() < completion_;
  }

 private:
  const std::chrono::milliseconds no_data_;
  const Clock::time_point completion_;
};

}  // namespace

bool UsbPipe::CanMove(std::uint8_t direction) const {
  const bool is_in = (shape_.endpoint & LIBUSB_ENDPOINT_IN) != 0;
  return (shape_.type == kUSBBulk || shape_.type == kUSBInterrupt) && shape_.packet > 0 &&
         shape_.packet < kLargestPacket && is_in == (direction == kUSBIn);
}

std::size_t UsbPipe::LargestTransfer() const {
  return kLargestTransfer - kLargestTransfer % shape_.packet;
}

// Many small reads may follow one large one that was cut, so nothing is moved up.
// Returns: whether the read ends with these bytes.
bool UsbPipe::TakeKept(std::span<std::uint8_t> buffer, std::size_t* got) {
  const auto kept = std::span(kept_).subspan(kept_from_);
  *got = std::min(buffer.size(), kept.size());
  std::copy_n(kept.begin(), *got, buffer.begin());
  kept_from_ += *got;
  if (kept_from_ < kept_.size()) return true;
  kept_ = {};
  kept_from_ = 0;
  const bool ends = kept_ends_short_;
  kept_ends_short_ = false;
  return ends || *got == buffer.size();
}

// Comes only when what was kept before has been read, or stands whole behind these bytes.
void UsbPipe::Keep(std::span<const std::uint8_t> bytes) {
  kept_.insert(kept_.begin(), bytes.begin(), bytes.end());
}

// One transfer of a read; *full: the device may have more for this read.
UsbSession::Moved UsbPipe::ReadPart(UsbSession& session, std::span<std::uint8_t> left,
                                    UsbSession::Time deadline, bool* full) {
  const std::size_t whole = std::min(left.size() - left.size() % shape_.packet, LargestTransfer());
  if (whole > 0) {
    const auto moved = session.Transfer(shape_, left.first(whole), deadline);
    *full = moved.bytes == whole;
    return moved;
  }
  std::array<std::uint8_t, kLargestPacket> room;
  const auto packet = std::span(room).first(shape_.packet);
  auto moved = session.Transfer(shape_, packet, deadline);
  const auto taken = std::min<std::size_t>(moved.bytes, left.size());
  std::copy_n(packet.begin(), taken, left.begin());
  if (moved.bytes > taken) {
    Keep(packet.subspan(taken, moved.bytes - taken));
    kept_ends_short_ = moved.bytes < shape_.packet;
  }
  *full = moved.bytes == shape_.packet;
  moved.bytes = static_cast<std::uint32_t>(taken);
  return moved;
}

IOReturn UsbPipe::Read(UsbSession& session, std::span<std::uint8_t> buffer, UsbTimes times,
                       std::uint32_t* got) {
  if (!CanMove(kUSBIn)) return kIOReturnBadArgument;
  if (UsbInterrupt::Wait({})) return kIOReturnAborted;
  const Deadlines deadlines(times);
  std::size_t filled = 0;
  bool more = !TakeKept(buffer, &filled);
  IOReturn result = kIOReturnSuccess;
  while (more && filled < buffer.size()) {
    const auto moved = ReadPart(session, buffer.subspan(filled), deadlines.Next(), &more);
    filled += moved.bytes;
    if (deadlines.GoesOn(moved)) {
      more = true;
      continue;
    }
    result = moved.result;
    if (result != kIOReturnSuccess) break;
  }
  if (result == kIOUSBTransactionTimeout && filled > 0) result = kIOReturnSuccess;
  if (result != kIOReturnSuccess) {
    Keep(buffer.first(filled));
    return result;
  }
  *got = static_cast<std::uint32_t>(filled);
  return kIOReturnSuccess;
}

IOReturn UsbPipe::Write(UsbSession& session, std::span<const std::uint8_t> bytes,
                        UsbTimes times) const {
  if (!CanMove(kUSBOut)) return kIOReturnBadArgument;
  const Deadlines deadlines(times);
  do {
    const auto part = bytes.first(std::min(bytes.size(), LargestTransfer()));
    // libusb has one kind of buffer for both ways; it only reads this one.
    auto* const data = const_cast<std::uint8_t*>(part.data());
    const auto moved = session.Transfer(shape_, {data, part.size()}, deadlines.Next());
    bytes = bytes.subspan(std::min<std::size_t>(moved.bytes, part.size()));
    if (moved.result != kIOReturnSuccess && !deadlines.GoesOn(moved)) return moved.result;
  } while (!bytes.empty());
  return kIOReturnSuccess;
}

}  // namespace vox
