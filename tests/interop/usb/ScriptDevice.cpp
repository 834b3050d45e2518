#include "tests/interop/usb/ScriptDevice.h"

#include <algorithm>
#include <utility>

namespace vox::test {

std::vector<std::uint8_t> Pattern(std::size_t length) {
  std::vector<std::uint8_t> bytes(length);
  for (std::size_t at = 0; at < length; ++at) {
    bytes[at] = static_cast<std::uint8_t>(at * 7 + (at >> 8) * 3 + (at >> 16));
  }
  return bytes;
}
std::string PatternText(std::size_t length) {
  const std::vector<std::uint8_t> bytes = Pattern(length);
  return {bytes.begin(), bytes.end()};
}

void ScriptDevice::Send(std::vector<std::uint8_t> message) {
  {
    const MutexLock lock(mutex_);
    messages_.push_back(std::move(message));
  }
  Wake();
}

void ScriptDevice::Accept(std::size_t packets) {
  {
    const MutexLock lock(mutex_);
    accept_ = packets;
  }
  Wake();
}

void ScriptDevice::Stall(std::uint8_t endpoint) {
  {
    const MutexLock lock(mutex_);
    stalls_[endpoint] = true;
  }
  Wake();
}

std::vector<std::uint8_t> ScriptDevice::Received() {
  const MutexLock lock(mutex_);
  return std::exchange(received_, {});
}

std::vector<std::size_t> ScriptDevice::PacketLengths() {
  const MutexLock lock(mutex_);
  return std::exchange(lengths_, {});
}

int ScriptDevice::ClearedHalts() {
  const MutexLock lock(mutex_);
  return cleared_;
}

int ScriptDevice::Claims() {
  const MutexLock lock(mutex_);
  return claims_;
}

std::size_t ScriptDevice::Unsent() {
  const MutexLock lock(mutex_);
  std::size_t bytes = 0;
  for (const auto& message : messages_) bytes += message.size();
  return bytes - sent_;
}

void ScriptDevice::OnPlugged(const std::function<void()>& wake) {
  const MutexLock lock(mutex_);
  wake_ = wake;
}

sim::UsbAnswer ScriptDevice::OnPacketOut(std::uint8_t endpoint,
                                         std::span<const std::uint8_t> packet) {
  const MutexLock lock(mutex_);
  if (std::exchange(stalls_[endpoint], false)) return sim::UsbAnswer::kStall;
  if (accept_ == 0) return sim::UsbAnswer::kNak;
  --accept_;
  received_.insert(received_.end(), packet.begin(), packet.end());
  lengths_.push_back(packet.size());
  return sim::UsbAnswer::kAck;
}

sim::UsbSent ScriptDevice::OnPacketIn(std::uint8_t endpoint, std::span<std::uint8_t> room) {
  const MutexLock lock(mutex_);
  if (messages_.empty()) {
    if (std::exchange(stalls_[endpoint], false)) return {sim::UsbAnswer::kStall, 0};
    return {sim::UsbAnswer::kNak, 0};
  }
  const auto& message = messages_.front();
  const std::size_t length = std::min(room.size(), message.size() - sent_);
  std::copy_n(message.begin() + static_cast<std::ptrdiff_t>(sent_), length, room.begin());
  sent_ += length;
  if (sent_ == message.size()) {
    messages_.pop_front();
    sent_ = 0;
  }
  return {sim::UsbAnswer::kAck, length};
}

void ScriptDevice::OnClearHalt(std::uint8_t) {
  const MutexLock lock(mutex_);
  ++cleared_;
}

void ScriptDevice::OnClaimed(std::size_t, bool claimed) {
  const MutexLock lock(mutex_);
  claims_ += claimed ? 1 : -1;
}

void ScriptDevice::Wake() {
  std::function<void()> wake;
  {
    const MutexLock lock(mutex_);
    wake = wake_;
  }
  if (wake) wake();
}

}  // namespace vox::test
