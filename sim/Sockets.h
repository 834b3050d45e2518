// The few socket operations of a virtual device, with poll(), deadlines and an interrupt.
//
// Thread rule: a Channel belongs to one thread; the interrupt may be raised from any.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "vox/platform/FileDescriptor.h"

namespace vox::sim {

struct Endpoint {
  std::uint32_t address = 0;  // IPv4 as a big-endian number
  std::uint16_t port = 0;
};

// ParseAddress reads dotted IPv4 text; false for anything else.
bool ParseAddress(const std::string& text, std::uint32_t& address);

// BindUdp opens a datagram socket; port 0 picks one. Not open: `error` says why.
FileDescriptor BindUdp(const Endpoint& at, std::string& error);
// BindBroadcast opens a socket that hears what is sent to 255.255.255.255 at a device's port, as
// any number of devices of a machine may: on the interface that bears the device's address, or on
// every one when that is loopback, which has no broadcasts.
FileDescriptor BindBroadcast(const Endpoint& device, std::string& error);
std::uint16_t PortOf(const FileDescriptor& socket);

// ReceiveFrom takes one waiting datagram: its size, or -1.
long ReceiveFrom(const FileDescriptor& socket, std::span<std::uint8_t> buffer, Endpoint& from);
void SendTo(const FileDescriptor& socket, std::span<const std::uint8_t> bytes, const Endpoint& to);

enum class ChannelStatus : std::uint8_t { kOk, kClosed, kTimeout, kInterrupted, kFailed };
const char* StatusText(ChannelStatus status);

// Channel is one TCP connection to a job server. Every operation ends by its time limit or when the
// interrupt is raised.
class Channel {
 public:
  using Time = std::chrono::milliseconds;
  explicit Channel(EventFd& interrupt) : interrupt_(interrupt) {}

  // Connect from `local` (address 0: whatever the route gives) to `peer`.
  ChannelStatus Connect(std::uint32_t local, const Endpoint& peer, Time limit);
  // Send sends all bytes; the limit holds for each wait.
  ChannelStatus Send(std::span<const std::uint8_t> bytes, Time limit);
  // ReceiveByte takes one byte.
  ChannelStatus ReceiveByte(std::uint8_t& byte, Time limit);
  // Pause lets time pass; kInterrupted as soon as the interrupt is raised.
  ChannelStatus Pause(Time time);
  // Hold does nothing until the interrupt is raised or the peer goes.
  ChannelStatus Hold();
  // Close ends the connection, with a reset when asked.
  void Close(bool reset = false);

 private:
  ChannelStatus Wait(short events, Time limit);
  EventFd& interrupt_;
  FileDescriptor socket_;
};

}  // namespace vox::sim
