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

// What the octet at a place is spoilt with: never 0, so that none stays as it was.
std::uint32_t Noise(std::size_t place) {
  return static_cast<std::uint32_t>(place * 2654435761u >> 8) | 1u;
}

}  // namespace

std::string DatagramServer::Open(std::uint32_t address, const DeviceOptions& options) {
  std::string error;
  snmp_ = BindUdp({address, options.snmp_port}, error);
  if (!snmp_) return error;
  command_ = BindUdp({address, options.command_port}, error);
  if (!command_) return error;
  if (options.hears_broadcasts && address != 0) {
    broadcast_ = BindBroadcast({address, SnmpPort()}, error);
    if (!broadcast_) return error;
  }
  return OpenOther(address, options.other_address);
}

std::string DatagramServer::OpenOther(std::uint32_t address, const std::string& other) {
  const bool loopback = (address & 0xFF000000) == kLoopbackNet;
  Endpoint at{loopback ? kStranger : address, 0};
  asked_there_ = !other.empty();
  if (asked_there_) {
    if (!ParseAddress(other, at.address)) return other + " is no IPv4 address";
    at.port = SnmpPort();
  }
  std::string error;
  other_ = BindUdp(at, error);
  return other_ ? std::string() : error;
}

void DatagramServer::TakeSnmp(const FileDescriptor& socket, From own) {
  std::array<std::uint8_t, kLargestDatagram> buffer;
  Endpoint from;
  const long size = ReceiveFrom(socket, buffer, from);
  if (size < 0 || faults_.IsSilent()) return;
  const std::span<const std::uint8_t> datagram(buffer.data(), static_cast<std::size_t>(size));
  Event event(EventKind::kSnmpRequest, {datagram.begin(), datagram.end()});
  event.peer_address = from.address;
  events_.Add(std::move(event));
  auto answer = agent_.Answer(datagram);
  if (answer) QueueSnmp(std::move(*answer), from, own);
}

// What becomes of an answer on its way, as the faults ask.
void DatagramServer::QueueSnmp(Bytes answer, const Endpoint& to, From own) {
  const auto delay = faults_.Get().delays.snmp;
  switch (faults_.TakeSnmpFault()) {
    case SnmpFault::kNone:
      break;
    case SnmpFault::kTwice:
      Queue({answer, to, own}, delay);
      break;
    case SnmpFault::kOtherSource:
      own = own == From::kOther ? From::kSnmp : From::kOther;
      break;
    case SnmpFault::kGarbage:
      for (std::size_t i = 0; i < answer.size(); ++i)
        answer[i] ^= static_cast<std::uint8_t>(Noise(i));
      break;
    case SnmpFault::kCut:
      answer.resize(answer.size() / 2);
      break;
  }
  Queue({std::move(answer), to, own}, delay);
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
    // A descriptor of -1 is passed over.
    std::array<pollfd, 5> entries = {{{stop_.Get(), POLLIN, 0},
                                      {snmp_.Get(), POLLIN, 0},
                                      {command_.Get(), POLLIN, 0},
                                      {broadcast_.Get(), POLLIN, 0},
                                      {asked_there_ ? other_.Get() : -1, POLLIN, 0}}};
    const int ready = ::poll(entries.data(), entries.size(), NextWait());
    if (ready < 0 && errno != EINTR) return;
    if (entries[0].revents != 0) return;
    if (ready > 0 && entries[1].revents != 0) TakeSnmp(snmp_, From::kSnmp);
    if (ready > 0 && entries[2].revents != 0) TakeCommand();
    if (ready > 0 && entries[3].revents != 0) TakeSnmp(broadcast_, From::kSnmp);
    if (ready > 0 && entries[4].revents != 0) TakeSnmp(other_, From::kOther);
    SendDue();
  }
}

}  // namespace vox::sim
