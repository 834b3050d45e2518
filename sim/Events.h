// What a virtual device saw and did, in order, for tests and for voxsim's trace.
//
// Thread rule: EventLog may be used from any thread.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "vox/platform/Mutex.h"

namespace vox::sim {

enum class EventKind : std::uint8_t {
  kSnmpRequest,      // bytes: the datagram
  kScanCommand,      // bytes: the datagram, 148 bytes
  kPageRequest,      // bytes: the datagram
  kCancelCommand,    // bytes: the datagram
  kStandby,          // bytes: the datagram
  kRegister,         // bytes: the datagram
  kUnregister,       // bytes: the datagram
  kBadDatagram,      // bytes: a datagram on the command port, or a USB packet, that is no command
  kReply,            // bytes: the reply that was sent
  kJobStarted,       // bytes: the 8-byte job id
  kJobEnded,         // bytes: the job id; the last page's end notice was answered, or another
                     // job began after it was sent
  kJobCancelled,     // bytes: the job id
  kJobLost,          // bytes: the job id; text says why
  kDataChannel,      // the data channel is connected
  kPageAccepted,     // the host sent its byte; bytes: that byte
  kScanInfoSent,     // bytes: the 128 bytes
  kPageSent,         // count: bytes of page data; the data channel is closed
  kDataChannelLost,  // count: bytes of page data sent; text says why
  kEndChannel,       // the end channel is connected
  kEndNotice,        // bytes: the notice that was sent
  kEndAnswered,      // bytes: the host's byte
  kEndChannelLost,   // text says why
  kInformation,      // USB: bytes: the packet that asks for device information
  kHaltCleared,      // USB: count: bytes that were to be sent and never will be; text: the pipe
  kPlugged,          // USB
  kUnplugged,        // USB
  kFault,            // text: the fault that took effect
};
const char* EventName(EventKind kind);

struct Event {
  explicit Event(EventKind what, std::vector<std::uint8_t> content = {}, std::string why = {})
      : kind(what), bytes(std::move(content)), text(std::move(why)) {}

  EventKind kind;
  std::chrono::steady_clock::time_point time;  // set by EventLog::Add
  std::vector<std::uint8_t> bytes;
  std::uint64_t count = 0;
  std::uint32_t page = 0;          // channel events: 1 for the first page the device was asked for
  std::uint16_t sequence_id = 0;   // of the command or page request
  std::uint32_t peer_address = 0;  // IPv4 as a big-endian number
  std::string text;
};

class EventLog {
 public:
  static constexpr std::size_t kKept = 65536;  // older events are forgotten; counts are not
  void Add(Event event) VOX_EXCLUDES(mutex_);
  std::vector<Event> All() const VOX_EXCLUDES(mutex_);
  std::size_t Count(EventKind kind) const VOX_EXCLUDES(mutex_);
  // Last gives the newest event of a kind; kind must have occurred (else an event without bytes).
  Event Last(EventKind kind) const VOX_EXCLUDES(mutex_);
  // WaitFor returns true as soon as `kind` has occurred `count` times in all, false on time-out.
  bool WaitFor(EventKind kind, std::size_t count, std::chrono::milliseconds timeout) const
      VOX_EXCLUDES(mutex_);
  // SetListener: called for each event as it is added, from the thread that adds it.
  void SetListener(std::function<void(const Event&)> listener) VOX_EXCLUDES(mutex_);

 private:
  using Counts = std::array<std::size_t, static_cast<std::size_t>(EventKind::kFault) + 1>;
  mutable Mutex mutex_;
  mutable Condition added_;
  std::deque<Event> events_ VOX_GUARDED_BY(mutex_);
  Counts counts_ VOX_GUARDED_BY(mutex_){};
  std::function<void(const Event&)> listener_ VOX_GUARDED_BY(mutex_);
};

}  // namespace vox::sim
