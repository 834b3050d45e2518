#include "sim/DatagramServer.h"

#include <poll.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

namespace vox::sim {
namespace {

constexpr std::size_t kLargestDatagram = 65536;
constexpr std::size_t kMostWaiting = 4096;  // answers that wait for their time
constexpr std::uint32_t kLoopbackNet = 127u << 24;
constexpr std::uint32_t kStranger = kLoopbackNet | 254;  // 127.0.0.254

}  // namespace

std::string DatagramServer::Open(std::uint32_t address, std::uint16_t snmp_port,
                                 std::uint16_t command_port) {
  std::string error;
  snmp_ = BindUdp({address, snmp_port}, error);
  if (!snmp_) return error;
  command_ = BindUdp({address, command_port}, error);
  if (!command_) return error;
  const bool loopback = (address & 0xFF000000) == kLoopbackNet;
  other_ = BindUdp({loopback ? kStranger : address, 0}, error);
  return other_ ? std::string() : error;
}

void DatagramServer::TakeSnmp() {
  std::array<std::uint8_t, kLargestDatagram> buffer;
  Endpoint from;
  const long size = ReceiveFrom(snmp_, buffer, from);
  if (size < 0 || faults_.IsSilent()) return;
  const std::span<const std::uint8_t> datagram(buffer.data(), static_cast<std::size_t>(size));
  Event event(EventKind::kSnmpRequest, {datagram.begin(), datagram.end()});
  event.peer_address = from.address;
  events_.Add(std::move(event));
  auto answer = agent_.Answer(datagram);
  if (answer) Queue({std::move(*answer), from, From::kSnmp}, faults_.Get().delays.snmp);
}

void DatagramServer::TakeCommand() {
  std::array<std::uint8_t, kLargestDatagram> buffer;
  Endpoint from;
  const long size = ReceiveFrom(command_, buffer, from);
  if (size < 0) return;
  const std::span<const std::uint8_t> datagram(buffer.data(), static_cast<std::size_t>(size));
  for (OutgoingReply& reply : responder_.Handle(datagram, from.address)) {
    Queue({std::move(reply.bytes), from, reply.other_source ? From::kOther : From::kCommand},
          reply.delay);
  }
}

void DatagramServer::Queue(Waiting datagram, std::chrono::milliseconds delay) {
  if (queue_.size() < kMostWaiting) queue_.emplace(Clock::now() + delay, std::move(datagram));
}

void DatagramServer::SendDue() {
  while (!queue_.empty() && queue_.begin()->first <= Clock::now()) {
    const Waiting& datagram = queue_.begin()->second;
    const FileDescriptor& socket = datagram.from == From::kSnmp      ? snmp_
                                   : datagram.from == From::kCommand ? command_
                                                                     : other_;
    SendTo(socket, datagram.bytes, datagram.to);
    queue_.erase(queue_.begin());
  }
}

int DatagramServer::NextWait() const {
  if (queue_.empty()) return -1;
  const auto left =
      std::chrono::ceil<std::chrono::milliseconds>(queue_.begin()->first - Clock::now());
  return static_cast<int>(std::clamp<std::int64_t>(left.count(), 0, 60'000));
}

void DatagramServer::Run() {
  while (true) {
    std::array<pollfd, 3> entries = {
        {{stop_.Get(), POLLIN, 0}, {snmp_.Get(), POLLIN, 0}, {command_.Get(), POLLIN, 0}}};
    const int ready = ::poll(entries.data(), entries.size(), NextWait());
    if (ready < 0 && errno != EINTR) return;
    if (entries[0].revents != 0) return;
    if (ready > 0 && entries[1].revents != 0) TakeSnmp();
    if (ready > 0 && entries[2].revents != 0) TakeCommand();
    SendDue();
  }
}

}  // namespace vox::sim
