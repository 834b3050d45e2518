#include "vox/drivers/net/JobChannel.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include "vox/platform/Bytes.h"
#include "vox/platform/FileDescriptor.h"

namespace vox {
namespace {

using Clock = std::chrono::steady_clock;

// The registration: offsets and size in bytes.
constexpr std::size_t REG_AT_TYPE = 0, REG_AT_ADDRESS = 1, REG_AT_JOBID = 5, REG_AT_SEQUENCE = 13;
constexpr std::size_t REG_SIZE = 15;
constexpr std::uint8_t REG_ACCEPTED = 0;

// A signal that interrupts the wait does not lengthen it.
NW_WAIT wait_for(int s, short events, int ms, const tagNWWAKE& wake) {
  const auto deadline = Clock::now() + std::chrono::milliseconds(ms);
  pollfd entries[] = {{s, events, 0}, {wake.nAbort, POLLIN, 0}, {wake.nPage, POLLIN, 0}};
  if (s < 0) return NW_WAIT_ERROR;
  for (;;) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
    const int count = ::poll(entries, 3, static_cast<int>(std::max<long long>(left.count(), 0)));
    if (count == 0) return NW_WAIT_TIMEOUT;
    if (count < 0 && errno != EINTR) return NW_WAIT_ERROR;
    if (count < 0) continue;
    if (entries[0].revents & POLLNVAL) return NW_WAIT_ERROR;
    return entries[1].revents || entries[2].revents ? NW_WAIT_WOKEN : NW_WAIT_READY;
  }
}

bool is_connected(int s) {
  int error = 0;
  socklen_t size = sizeof error;
  return ::getsockopt(s, SOL_SOCKET, SO_ERROR, &error, &size) == 0 && error == 0;
}

// A loopback connection is made at once, unless the server's queue is full.
bool connect_within(int s, unsigned short port, int ms, const tagNWWAKE& wake) {
  sockaddr_in place{};
  place.sin_family = AF_INET;
  place.sin_port = htons(port);
  place.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (::connect(s, reinterpret_cast<const sockaddr*>(&place), sizeof place) == 0) return true;
  if (errno != EINPROGRESS && errno != EINTR) return false;
  return wait_for(s, POLLOUT, ms, wake) == NW_WAIT_READY && is_connected(s);
}

}  // namespace

NW_WAIT wait_channel(int s, int ms, const tagNWWAKE& wake) {
  return wait_for(s, POLLIN, ms, wake);
}

NW_WAIT read_channel(int s, void* buf, std::size_t size, int ms, const tagNWWAKE& wake,
                     std::size_t* got) {
  *got = 0;
  for (;;) {
    const NW_WAIT waited = wait_channel(s, ms, wake);
    if (waited != NW_WAIT_READY) return waited;
    const NW_WAIT taken = take_channel(s, buf, size, got);
    if (taken != NW_WAIT_TIMEOUT) return taken;
  }
}

NW_WAIT take_channel(int s, void* buf, std::size_t size, std::size_t* got) {
  const ssize_t count = ::recv(s, buf, size, MSG_DONTWAIT);
  *got = count > 0 ? static_cast<std::size_t>(count) : 0;
  if (count >= 0) return NW_WAIT_READY;
  const bool nothing_yet = errno == EINTR || errno == EAGAIN || errno == EWOULDBLOCK;
  return nothing_yet ? NW_WAIT_TIMEOUT : NW_WAIT_ERROR;
}

bool write_channel(int s, const void* buf, std::size_t size) {
  const auto* bytes = static_cast<const std::uint8_t*>(buf);
  while (size > 0) {
    const ssize_t count = ::send(s, bytes, size, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return false;
    bytes += count;
    size -= static_cast<std::size_t>(count);
  }
  return true;
}

int get_lpd_soc(unsigned short port) {
  return get_lpd_soc(port, tagNWWAITS{}.nData, {});
}

int get_lpd_soc(unsigned short port, int ms, const tagNWWAKE& wake) {
  FileDescriptor s(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!s || !connect_within(s.Get(), port, ms, wake)) return -1;
  const int on = 1;
  ::setsockopt(s.Get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  // What the caller gets is an ordinary socket; the waits here never rest on its mode.
  const int flags = ::fcntl(s.Get(), F_GETFL);
  if (flags < 0 || ::fcntl(s.Get(), F_SETFL, flags & ~O_NONBLOCK) < 0) return -1;
  return s.Release();
}

int add_job2lpd(int s, const char* ip, unsigned char type, const _SCANJOBID* j,
                unsigned short sequenceId) {
  return add_job2lpd(s, ip, type, j, sequenceId, tagNWWAITS{}.nRegistration, {});
}

int add_job2lpd(int s, const char* ip, unsigned char type, const _SCANJOBID* j,
                unsigned short sequenceId, int ms, const tagNWWAKE& wake) {
  in_addr address{};
  if (ip == nullptr || j == nullptr || ::inet_pton(AF_INET, ip, &address) != 1) return -1;
  std::uint8_t message[REG_SIZE];
  message[REG_AT_TYPE] = type;
  std::memcpy(message + REG_AT_ADDRESS, &address.s_addr, sizeof address.s_addr);
  std::memcpy(message + REG_AT_JOBID, j, sizeof *j);
  StoreBe16(message + REG_AT_SEQUENCE, sequenceId);
  if (!write_channel(s, message, sizeof message)) return -1;
  std::uint8_t answer = 0xFF;
  std::size_t got = 0;
  if (read_channel(s, &answer, 1, ms, wake, &got) != NW_WAIT_READY || got != 1) return -1;
  return answer == REG_ACCEPTED ? 0 : -1;
}

}  // namespace vox
