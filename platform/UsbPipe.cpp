#include "vox/platform/UsbPipe.h"

#include <algorithm>

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

std::size_t UsbPipe::WholePackets(std::size_t bytes) const {
  const std::size_t packets = (bytes + shape_.packet - 1) / shape_.packet;
  return std::min(packets * shape_.packet, LargestTransfer());
}

// The room that a read will need beyond the kept bytes is taken before any byte moves, so that none
// is lost for want of memory. A packet's room is always there, for transfers that break off oddly.
void UsbPipe::TakeRoom(std::size_t size) {
  const std::size_t left = size - std::min(size, kept_size_);
  const std::size_t needed =
      left % shape_.packet != 0 ? WholePackets(left) : std::size_t{shape_.packet};
  if (room_.size() < needed) room_.resize(needed);
}

// Many small reads may follow one large one that was cut, so nothing is moved up; what its bytes
// took beyond a transfer's is given back.
// Returns: whether the read ends with these bytes.
bool UsbPipe::TakeKept(std::span<std::uint8_t> buffer, std::size_t* got) {
  *got = std::min(buffer.size(), kept_size_);
  std::copy_n(room_.data() + kept_from_, *got, buffer.begin());
  kept_from_ += *got;
  kept_size_ -= *got;
  if (kept_size_ > 0) return true;
  if (room_.size() > LargestTransfer()) {
    room_.resize(LargestTransfer());
    room_.shrink_to_fit();
  }
  const bool ends = kept_ends_short_;
  kept_ends_short_ = false;
  return ends || *got == buffer.size();
}

// PutBack keeps bytes that a read gave up, before those that are kept already.
void UsbPipe::PutBack(std::span<const std::uint8_t> bytes) {
  if (bytes.empty()) return;
  const auto kept = std::span(room_).subspan(kept_from_, kept_size_);
  std::vector<std::uint8_t> room;
  room.reserve(bytes.size() + kept.size());
  room.insert(room.end(), bytes.begin(), bytes.end());
  room.insert(room.end(), kept.begin(), kept.end());
  kept_from_ = 0;
  kept_size_ = room.size();
  room_ = std::move(room);
}

// One transfer of a read; *full: the device may have more for this read.
UsbSession::Moved UsbPipe::ReadPart(UsbSession& session, std::span<std::uint8_t> left,
                                    UsbSession::Time deadline, bool* full) {
  if (left.size() % shape_.packet == 0 || left.size() >= LargestTransfer()) {
    const auto whole = left.first(std::min(left.size(), LargestTransfer()));
    const auto moved = session.Transfer(shape_, whole, deadline);
    *full = moved.bytes == whole.size();
    return moved;
  }
  const auto packets =
      std::span(room_).first(WholePackets(std::min(left.size(), room_.size() - shape_.packet + 1)));
  auto moved = session.Transfer(shape_, packets, deadline);
  const auto taken = std::min<std::size_t>(moved.bytes, left.size());
  std::copy_n(packets.begin(), taken, left.begin());
  kept_from_ = taken;
  kept_size_ = moved.bytes - taken;
  *full = moved.bytes == packets.size();
  kept_ends_short_ = kept_size_ > 0 && !*full;
  moved.bytes = static_cast<std::uint32_t>(taken);
  return moved;
}

IOReturn UsbPipe::Read(UsbSession& session, std::span<std::uint8_t> buffer, UsbTimes times,
                       std::uint32_t* got) {
  if (!CanMove(kUSBIn)) return kIOReturnBadArgument;
  if (UsbInterrupt::Wait({})) return kIOReturnAborted;
  const Deadlines deadlines(times);
  std::size_t filled = 0;
  TakeRoom(buffer.size());
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
    PutBack(buffer.first(filled));
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
    if (moved.bytes == 0 && !part.empty()) return kIOReturnNotResponding;
  } while (!bytes.empty());
  return kIOReturnSuccess;
}

}  // namespace vox
