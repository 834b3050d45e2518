#include "tools/voxjobd/Relay.h"

#include <algorithm>
#include <cerrno>
#include <new>
#include <utility>

#include <linux/sockios.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

namespace vox {
namespace {

constexpr std::size_t kBufferSize = 64 * 1024, kMostBufferSize = 512 * 1024;
// Then the other relays get their turn.
constexpr int kStepsAtOnce = 32;
constexpr std::uint64_t kBytesAtOnce = 2 << 20;

// Answers of one byte must not wait for the acknowledgement of what went before.
void SendAtOnce(int socket) {
  const int on = 1;
  ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

// A device that was switched off sends nothing that would tell; probes find out.
void NoticeDeath(int socket) {
  const int on = 1, idle_seconds = 20, between_seconds = 5, probes = 3;
  ::setsockopt(socket, SOL_SOCKET, SO_KEEPALIVE, &on, sizeof on);
  ::setsockopt(socket, IPPROTO_TCP, TCP_KEEPIDLE, &idle_seconds, sizeof idle_seconds);
  ::setsockopt(socket, IPPROTO_TCP, TCP_KEEPINTVL, &between_seconds, sizeof between_seconds);
  ::setsockopt(socket, IPPROTO_TCP, TCP_KEEPCNT, &probes, sizeof probes);
}

void ResetOnClose(int socket) {
  const linger at_once{1, 0};
  ::setsockopt(socket, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
}

bool IsNotReady(int error) {
  return error == EAGAIN || error == EWOULDBLOCK;
}

}  // namespace

Relay::Relay(FileDescriptor client, FileDescriptor device, std::span<const std::uint8_t> opening) {
  ends_[kClient].socket = std::move(client);
  ends_[kDevice].socket = std::move(device);
  directions_[kClient].from = directions_[kDevice].to = kClient;
  directions_[kDevice].from = directions_[kClient].to = kDevice;
  for (Direction& direction : directions_) {
    direction.buffer = std::make_unique_for_overwrite<std::uint8_t[]>(kBufferSize);
    direction.size = kBufferSize;
  }
  Direction& to_client = directions_[kDevice];
  to_client.end = std::min(opening.size(), kBufferSize);
  std::copy_n(opening.begin(), to_client.end, to_client.buffer.get());
  SendAtOnce(Socket(kClient));
  SendAtOnce(Socket(kDevice));
  NoticeDeath(Socket(kDevice));
}

Relay::~Relay() {
  if (ends_[kDevice].reset) ResetOnClose(Socket(kClient));
}

void Relay::MarkReady(Side side, bool reading, bool writing) {
  ends_[side].readable |= reading;
  ends_[side].writable |= writing;
}

void Relay::Cut() {
  for (const Direction& direction : directions_) {
    if (!direction.closed) ResetOnClose(Socket(direction.to));
  }
}

Relay::Progress Relay::Pump() {
  const std::uint64_t moved_before = moved_;
  for (int steps = 0; steps < kStepsAtOnce && moved_ - moved_before < kBytesAtOnce; ++steps) {
    const bool from_client = Step(directions_[kClient]);
    const bool from_device = Step(directions_[kDevice]);
    if (directions_[kClient].closed && directions_[kDevice].closed) return Progress::kDone;
    if (!from_client && !from_device) return Progress::kWaiting;
  }
  return Progress::kMore;
}

bool Relay::HasLeftHalf() const {
  return directions_[kClient].at_end || directions_[kDevice].at_end;
}

bool Relay::IsBeingRead() const {
  int bytes = 0;
  return ::ioctl(Socket(kClient), SIOCOUTQ, &bytes) == 0 && bytes > 0;
}

bool Relay::Step(Direction& direction) {
  if (direction.closed) return false;
  const bool received = Receive(direction);
  const bool sent = Send(direction);
  if (direction.at_end && direction.begin == direction.end) PassOnClose(direction);
  return received || sent || direction.closed;
}

// The sender has filled the buffer, of which nothing is held any more. Without memory for a larger
// one it stays.
void Relay::Grow(Direction& direction) {
  if (direction.size >= kMostBufferSize) return;
  std::unique_ptr<std::uint8_t[]> larger(new (std::nothrow) std::uint8_t[2 * direction.size]);
  if (!larger) return;
  direction.buffer = std::move(larger);
  direction.size *= 2;
  direction.begin = direction.end = 0;
}

bool Relay::Receive(Direction& direction) {
  End& end = ends_[direction.from];
  if (direction.begin != direction.end || direction.at_end || !end.readable) return false;
  if (direction.end == direction.size) Grow(direction);
  const ssize_t got = ::recv(end.socket.Get(), direction.buffer.get(), direction.size, 0);
  if (got > 0) {
    direction.begin = 0;
    direction.end = static_cast<std::size_t>(got);
    return true;
  }
  if (got < 0 && errno == EINTR) return true;
  if (got < 0 && IsNotReady(errno)) {
    end.readable = false;
    return false;
  }
  direction.at_end = true;
  if (got < 0) Break(direction.from, errno);
  return true;
}

bool Relay::Send(Direction& direction) {
  End& end = ends_[direction.to];
  if (direction.begin == direction.end || direction.closed || !end.writable) return false;
  const ssize_t sent = ::send(end.socket.Get(), &direction.buffer[direction.begin],
                              direction.end - direction.begin, MSG_NOSIGNAL);
  if (sent >= 0) {
    direction.begin += static_cast<std::size_t>(sent);
    moved_ += static_cast<std::uint64_t>(sent);
    return true;
  }
  if (errno == EINTR) return true;
  if (IsNotReady(errno)) {
    end.writable = false;
    return false;
  }
  Break(direction.to, errno);
  return true;
}

// After a break only what the broken side sent before is still worth delivering. EPIPE comes from a
// side that had closed in an orderly way and then did not want what it was sent.
void Relay::Break(Side side, int error) {
  if (error != EPIPE) ends_[side].reset = true;
  ends_[side].readable = true;  // recv says how much is left, and then that it is over
  Direction& to_broken = directions_[side == kClient ? kDevice : kClient];
  to_broken.begin = to_broken.end = 0;
  to_broken.at_end = to_broken.closed = true;
}

void Relay::PassOnClose(Direction& direction) {
  direction.closed = true;
  // A reset, not a close, tells the other side of a break; closing the socket sends it.
  if (!ends_[direction.from].reset) ::shutdown(Socket(direction.to), SHUT_WR);
}

}  // namespace vox
