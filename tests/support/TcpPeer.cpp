#include "tests/support/TcpPeer.h"

#include <cerrno>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

namespace vox::test {
namespace {

sockaddr_in Loopback(std::uint16_t port) {
  sockaddr_in place{};
  place.sin_family = AF_INET;
  place.sin_port = htons(port);
  place.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return place;
}

bool Connect(int socket, const sockaddr_in& place) {
  const int on = 1;
  ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  return ::connect(socket, reinterpret_cast<const sockaddr*>(&place), sizeof place) == 0;
}

}  // namespace

TcpPeer TcpPeer::Unconnected() {
  return TcpPeer(FileDescriptor(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)));
}

bool TcpPeer::Reach(std::uint16_t port) {
  return test::Connect(Socket(), Loopback(port));
}

TcpPeer TcpPeer::Connect(std::uint16_t port, const std::string& from) {
  TcpPeer peer = Unconnected();
  if (!from.empty()) {
    sockaddr_in source = Loopback(0);
    ::inet_pton(AF_INET, from.c_str(), &source.sin_addr);
    ::bind(peer.Socket(), reinterpret_cast<const sockaddr*>(&source), sizeof source);
  }
  if (!peer.Reach(port)) peer.Close();
  return peer;
}

bool TcpPeer::Send(std::span<const std::uint8_t> bytes) {
  while (!bytes.empty()) {
    const ssize_t sent = ::send(Socket(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent < 0 && errno == EINTR) continue;
    if (sent <= 0) return false;
    bytes = bytes.subspan(static_cast<std::size_t>(sent));
  }
  return true;
}

std::size_t TcpPeer::SendWhatFits(std::span<const std::uint8_t> bytes) {
  std::size_t total = 0;
  while (total < bytes.size()) {
    const ssize_t sent =
        ::send(Socket(), bytes.data() + total, bytes.size() - total, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (sent <= 0) break;
    total += static_cast<std::size_t>(sent);
  }
  return total;
}

bool TcpPeer::AwaitReadable(std::chrono::milliseconds time) const {
  pollfd entry{Socket(), POLLIN, 0};
  return ::poll(&entry, 1, static_cast<int>(time.count())) == 1;
}

Bytes TcpPeer::Receive(std::size_t size) {
  Bytes bytes(size);
  std::size_t have = 0;
  while (have < size && AwaitReadable(kPatience)) {
    const ssize_t got = ::recv(Socket(), bytes.data() + have, size - have, 0);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) break;
    have += static_cast<std::size_t>(got);
  }
  bytes.resize(have);
  return bytes;
}

Bytes TcpPeer::ReceiveAll() {
  Bytes all;
  for (Bytes some = Receive(65'536); !some.empty(); some = Receive(65'536)) {
    all.insert(all.end(), some.begin(), some.end());
    if (some.size() < 65'536) break;
  }
  return all;
}

TcpPeer::End TcpPeer::AwaitEnd() {
  if (!AwaitReadable(kPatience)) return End::kNone;
  std::uint8_t byte = 0;
  const ssize_t got = ::recv(Socket(), &byte, 1, 0);
  if (got > 0) return End::kData;
  return got == 0 ? End::kClosed : End::kReset;
}

bool TcpPeer::HasNothing(std::chrono::milliseconds time) {
  return !AwaitReadable(time);
}

void TcpPeer::CloseSending() {
  ::shutdown(Socket(), SHUT_WR);
}

void TcpPeer::Reset() {
  const linger at_once{1, 0};
  ::setsockopt(Socket(), SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
  Close();
}

TcpListener::TcpListener() : socket_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  sockaddr_in place = Loopback(0);
  socklen_t size = sizeof place;
  ::bind(socket_.Get(), reinterpret_cast<const sockaddr*>(&place), size);
  ::listen(socket_.Get(), SOMAXCONN);
  ::getsockname(socket_.Get(), reinterpret_cast<sockaddr*>(&place), &size);
  port_ = ntohs(place.sin_port);
}

TcpPeer TcpListener::Accept(std::chrono::milliseconds patience) {
  pollfd entry{socket_.Get(), POLLIN, 0};
  if (::poll(&entry, 1, static_cast<int>(patience.count())) != 1) return TcpPeer();
  TcpPeer peer(FileDescriptor(::accept4(socket_.Get(), nullptr, nullptr, SOCK_CLOEXEC)));
  const int on = 1;
  ::setsockopt(peer.Socket(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  return peer;
}

}  // namespace vox::test
