#include "sim/Sockets.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <memory>
#include <system_error>

namespace vox::sim {
namespace {

using Clock = std::chrono::steady_clock;

sockaddr_in AddressOf(const Endpoint& endpoint) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(endpoint.address);
  address.sin_port = htons(endpoint.port);
  return address;
}

const sockaddr* Plain(const sockaddr_in& address) {
  return reinterpret_cast<const sockaddr*>(&address);
}

std::string LastError() {
  return std::generic_category().message(errno);
}

FileDescriptor OpenUdp() {
  return FileDescriptor(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
}

// Bind closes the socket and says why when the address cannot be had.
void Bind(FileDescriptor& socket, const Endpoint& at, std::string& error) {
  const sockaddr_in address = AddressOf(at);
  if (socket && ::bind(socket.Get(), Plain(address), sizeof address) == 0) return;
  char text[INET_ADDRSTRLEN] = "";
  ::inet_ntop(AF_INET, &address.sin_addr, text, sizeof text);
  error = std::string("UDP ") + text + " port " + std::to_string(at.port) + ": " + LastError();
  socket.Reset();
}

// The name of the interface with an address; empty for loopback and when there is none.
std::string InterfaceOf(std::uint32_t address) {
  ifaddrs* list = nullptr;
  if (::getifaddrs(&list) != 0) return {};
  const std::unique_ptr<ifaddrs, void (*)(ifaddrs*)> owner(list, ::freeifaddrs);
  for (const ifaddrs* at = list; at; at = at->ifa_next) {
    if (!at->ifa_addr || at->ifa_addr->sa_family != AF_INET) continue;
    const auto* const inet = reinterpret_cast<const sockaddr_in*>(at->ifa_addr);
    if (ntohl(inet->sin_addr.s_addr) != address) continue;
    const std::string label = (at->ifa_flags & IFF_LOOPBACK) != 0 ? "" : at->ifa_name;
    return label.substr(0, label.find(':'));  // eth0:1 labels a second address of eth0
  }
  return {};
}

int MillisecondsUntil(Clock::time_point deadline) {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
  return static_cast<int>(std::clamp<std::int64_t>(left, 0, 3'600'000));
}

}  // namespace

bool ParseAddress(const std::string& text, std::uint32_t& address) {
  in_addr parsed{};
  if (::inet_pton(AF_INET, text.c_str(), &parsed) != 1) return false;
  address = ntohl(parsed.s_addr);
  return true;
}

FileDescriptor BindUdp(const Endpoint& at, std::string& error) {
  FileDescriptor socket = OpenUdp();
  Bind(socket, at, error);
  return socket;
}

FileDescriptor BindBroadcast(const Endpoint& device, std::string& error) {
  FileDescriptor socket = OpenUdp();
  const int on = 1;
  ::setsockopt(socket.Get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  const std::string name = InterfaceOf(device.address);
  if (!name.empty() && ::setsockopt(socket.Get(), SOL_SOCKET, SO_BINDTODEVICE, name.data(),
                                    static_cast<socklen_t>(name.size())) != 0) {
    error = "interface " + name + ": " + LastError();
    return FileDescriptor();
  }
  Bind(socket, {INADDR_BROADCAST, device.port}, error);
  return socket;
}

std::uint16_t PortOf(const FileDescriptor& socket) {
  sockaddr_in address{};
  socklen_t size = sizeof address;
  if (::getsockname(socket.Get(), reinterpret_cast<sockaddr*>(&address), &size) != 0) return 0;
  return ntohs(address.sin_port);
}

long ReceiveFrom(const FileDescriptor& socket, std::span<std::uint8_t> buffer, Endpoint& from) {
  sockaddr_in address{};
  socklen_t size = sizeof address;
  const long got = ::recvfrom(socket.Get(), buffer.data(), buffer.size(), 0,
                              reinterpret_cast<sockaddr*>(&address), &size);
  from = {ntohl(address.sin_addr.s_addr), ntohs(address.sin_port)};
  return got;
}

void SendTo(const FileDescriptor& socket, std::span<const std::uint8_t> bytes, const Endpoint& to) {
  const sockaddr_in address = AddressOf(to);
  // A datagram that cannot be sent is a lost datagram.
  [[maybe_unused]] const auto sent = ::sendto(socket.Get(), bytes.data(), bytes.size(),
                                              MSG_NOSIGNAL, Plain(address), sizeof address);
}

const char* StatusText(ChannelStatus status) {
  switch (status) {
    case ChannelStatus::kOk:
      return "done";
    case ChannelStatus::kClosed:
      return "closed by the host";
    case ChannelStatus::kTimeout:
      return "time-out";
    case ChannelStatus::kInterrupted:
      return "given up";
    case ChannelStatus::kFailed:
      break;
  }
  return "failed";
}

ChannelStatus Channel::Wait(short events, Time limit) {
  const auto deadline = Clock::now() + limit;
  while (true) {
    std::array<pollfd, 2> entries = {{{interrupt_.Get(), POLLIN, 0}, {socket_.Get(), events, 0}}};
    const int ready = ::poll(entries.data(), entries.size(), MillisecondsUntil(deadline));
    if (ready < 0 && errno == EINTR) continue;
    if (ready < 0) return ChannelStatus::kFailed;
    if (entries[0].revents != 0) return ChannelStatus::kInterrupted;
    if (entries[1].revents != 0) return ChannelStatus::kOk;
    if (Clock::now() >= deadline) return ChannelStatus::kTimeout;
  }
}

ChannelStatus Channel::Connect(std::uint32_t local, const Endpoint& peer, Time limit) {
  socket_.Reset(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!socket_) return ChannelStatus::kFailed;
  const int on = 1;
  ::setsockopt(socket_.Get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  const sockaddr_in from = AddressOf({local, 0});
  if (local != 0 && ::bind(socket_.Get(), Plain(from), sizeof from) != 0) {
    return ChannelStatus::kFailed;
  }
  const sockaddr_in to = AddressOf(peer);
  if (::connect(socket_.Get(), Plain(to), sizeof to) == 0) return ChannelStatus::kOk;
  if (errno != EINPROGRESS) return ChannelStatus::kFailed;
  const ChannelStatus waited = Wait(POLLOUT, limit);
  if (waited != ChannelStatus::kOk) return waited;
  int error = 0;
  socklen_t size = sizeof error;
  const bool asked = ::getsockopt(socket_.Get(), SOL_SOCKET, SO_ERROR, &error, &size) == 0;
  return asked && error == 0 ? ChannelStatus::kOk : ChannelStatus::kFailed;
}

ChannelStatus Channel::Send(std::span<const std::uint8_t> bytes, Time limit) {
  while (!bytes.empty()) {
    const ssize_t sent = ::send(socket_.Get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent > 0) {
      bytes = bytes.subspan(static_cast<std::size_t>(sent));
      if (interrupt_.IsRaised()) return ChannelStatus::kInterrupted;
      continue;
    }
    if (errno == EINTR) continue;
    if (errno == EPIPE || errno == ECONNRESET) return ChannelStatus::kClosed;
    if (errno != EAGAIN && errno != EWOULDBLOCK) return ChannelStatus::kFailed;
    const ChannelStatus waited = Wait(POLLOUT, limit);
    if (waited != ChannelStatus::kOk) return waited;
  }
  return ChannelStatus::kOk;
}

ChannelStatus Channel::ReceiveByte(std::uint8_t& byte, Time limit) {
  const auto deadline = Clock::now() + limit;
  while (true) {
    const ssize_t got = ::recv(socket_.Get(), &byte, 1, 0);
    if (got == 1) return ChannelStatus::kOk;
    if (got == 0 || errno == ECONNRESET) return ChannelStatus::kClosed;
    if (errno == EINTR) continue;
    if (errno != EAGAIN && errno != EWOULDBLOCK) return ChannelStatus::kFailed;
    const ChannelStatus waited = Wait(POLLIN, Time(MillisecondsUntil(deadline)));
    if (waited != ChannelStatus::kOk) return waited;
  }
}

ChannelStatus Channel::Pause(Time time) {
  if (time.count() <= 0) return ChannelStatus::kOk;
  pollfd entry{interrupt_.Get(), POLLIN, 0};
  const auto deadline = Clock::now() + time;
  while (Clock::now() < deadline) {
    const int ready = ::poll(&entry, 1, MillisecondsUntil(deadline));
    if (ready > 0) return ChannelStatus::kInterrupted;
  }
  return ChannelStatus::kOk;
}

ChannelStatus Channel::Hold() {
  while (true) {
    // No event is asked for: only the peer's full close or reset shows (POLLHUP, POLLERR), and its
    // half close (POLLRDHUP).
    const short events = socket_ ? POLLRDHUP : 0;
    const ChannelStatus waited = Wait(events, std::chrono::hours(1));
    if (waited == ChannelStatus::kTimeout) continue;
    return waited == ChannelStatus::kOk ? ChannelStatus::kClosed : waited;
  }
}

void Channel::Close(bool reset) {
  if (reset && socket_) {
    const linger at_once{1, 0};
    ::setsockopt(socket_.Get(), SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
  }
  socket_.Reset();
}

}  // namespace vox::sim
