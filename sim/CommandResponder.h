// CommandResponder answers the device's UDP commands: scan, page request, cancel, standby, and the
// registration of hosts. It holds no socket: a datagram in, replies out.
//
// Thread rule: Handle from one thread; Registrations from any.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "sim/CommandPacket.h"
#include "sim/Events.h"
#include "sim/FaultBox.h"
#include "sim/JobDesk.h"
#include "sim/RegistrationBook.h"
#include "vox/platform/Mutex.h"

namespace vox::sim {

struct OutgoingReply {
  Bytes bytes;
  std::chrono::milliseconds delay{0};
  bool other_source = false;  // to be sent from another socket than the command port's
};

class CommandResponder {
 public:
  CommandResponder(JobDesk& desk, FaultBox& faults, EventLog& events)
      : desk_(desk), faults_(faults), events_(events) {}

  // Handle takes one datagram; peer is the sender's IPv4 address as a big-endian number.
  std::vector<OutgoingReply> Handle(std::span<const std::uint8_t> datagram, std::uint32_t peer);
  std::vector<ClientRegistration> Registrations() const VOX_EXCLUDES(mutex_);

 private:
  using Reply = std::optional<CommandPacket>;
  struct Answered {
    std::uint32_t peer;
    Bytes datagram;
    CommandPacket reply;
    JobId job;
  };

  Reply Answer(const CommandPacket& command, std::span<const std::uint8_t> datagram,
               std::uint32_t peer);
  Reply AnswerScan(const CommandPacket& command, std::span<const std::uint8_t> datagram,
                   std::uint32_t peer);
  Reply StartScan(const CommandPacket& command, std::span<const std::uint8_t> datagram,
                  std::uint32_t peer);
  Reply AnswerCancel(const CommandPacket& command);
  void RequestPage(const CommandPacket& command, std::uint32_t peer);
  Reply AnswerRegistration(const CommandPacket& command) VOX_EXCLUDES(mutex_);
  std::vector<OutgoingReply> Spoil(const CommandPacket& reply);
  void Note(const CommandPacket& command, std::span<const std::uint8_t> datagram,
            std::uint32_t peer);

  JobDesk& desk_;
  FaultBox& faults_;
  EventLog& events_;
  std::optional<Answered> accepted_;  // the last scan command that started a job

  mutable Mutex mutex_;
  RegistrationBook book_ VOX_GUARDED_BY(mutex_);
};

}  // namespace vox::sim
