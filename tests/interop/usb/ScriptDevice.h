// ScriptDevice is an emulated device that does what a test tells it: it sends what it was given,
// keeps what it gets, refuses and stalls when asked to.
//
// Thread rule: any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <limits>
#include <map>
#include <span>
#include <string>
#include <vector>

#include "sim/usbbus/UsbModel.h"
#include "vox/platform/Mutex.h"

namespace vox::test {

// Pattern gives bytes that differ from place to place.
std::vector<std::uint8_t> Pattern(std::size_t length);
std::string PatternText(std::size_t length);

class ScriptDevice : public sim::UsbDeviceModel {
 public:
  // Send queues a message; it goes out in packets, the last of which is short, unless the message
  // fills its packets. An empty one is a zero-length packet.
  void Send(std::vector<std::uint8_t> message) VOX_EXCLUDES(mutex_);
  // Accept sets how many more packets of the host are taken.
  void Accept(std::size_t packets) VOX_EXCLUDES(mutex_);
  // Stall halts an endpoint once its messages are sent.
  void Stall(std::uint8_t endpoint) VOX_EXCLUDES(mutex_);

  std::vector<std::uint8_t> Received() VOX_EXCLUDES(mutex_);  // since it was last asked
  // Lengths of the packets received since they were last asked for.
  std::vector<std::size_t> PacketLengths() VOX_EXCLUDES(mutex_);
  int ClearedHalts() VOX_EXCLUDES(mutex_);
  int Claims() VOX_EXCLUDES(mutex_);          // interfaces that a program holds
  std::size_t Unsent() VOX_EXCLUDES(mutex_);  // bytes that no host has read

  void OnPlugged(const std::function<void()>& wake) override VOX_EXCLUDES(mutex_);
  sim::UsbAnswer OnPacketOut(std::uint8_t endpoint, std::span<const std::uint8_t> packet) override
      VOX_EXCLUDES(mutex_);
  sim::UsbSent OnPacketIn(std::uint8_t endpoint, std::span<std::uint8_t> room) override
      VOX_EXCLUDES(mutex_);
  void OnClearHalt(std::uint8_t endpoint) override VOX_EXCLUDES(mutex_);
  void OnClaimed(std::size_t interface, bool claimed) override VOX_EXCLUDES(mutex_);

 private:
  void Wake() VOX_EXCLUDES(mutex_);

  Mutex mutex_;
  std::function<void()> wake_ VOX_GUARDED_BY(mutex_);
  std::deque<std::vector<std::uint8_t>> messages_ VOX_GUARDED_BY(mutex_);
  std::size_t sent_ VOX_GUARDED_BY(mutex_) = 0;  // bytes of the first message
  std::size_t accept_ VOX_GUARDED_BY(mutex_) = std::numeric_limits<std::size_t>::max();
  std::map<std::uint8_t, bool> stalls_ VOX_GUARDED_BY(mutex_);
  std::vector<std::uint8_t> received_ VOX_GUARDED_BY(mutex_);
  std::vector<std::size_t> lengths_ VOX_GUARDED_BY(mutex_);
  int cleared_ VOX_GUARDED_BY(mutex_) = 0;
  int claims_ VOX_GUARDED_BY(mutex_) = 0;
};

}  // namespace vox::test
