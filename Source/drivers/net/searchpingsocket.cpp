#include "vox/drivers/net/searchpingsocket.h"

#include <cerrno>

#include <netinet/in.h>
#include <netinet/ip.h>
#include <netinet/ip_icmp.h>
#include <sys/socket.h>
#include <sys/time.h>

#include "vox/platform/FileDescriptor.h"

namespace vox {
namespace {

// A raw socket gives the IP header too, and every ICMP message of the machine: the requests that
// others send to us, and our own to 127.0.0.1.
bool is_raw_reply(const std::uint8_t* packet, std::size_t size) {
  if (size == 0) return false;
  const std::size_t header = (packet[0] & 0x0Fu) * 4u;  // RFC 791 3.1: in words of 32 bits
  return header >= sizeof(iphdr) && header < size && packet[header] == ICMP_ECHOREPLY;
}

class ping_socket : public CPingSocket {
 public:
  ping_socket(FileDescriptor opened, bool is_raw) : sock(std::move(opened)), raw(is_raw) {
    const timeval limit{0, PING_RECEIVE_MS * 1000};
    ::setsockopt(sock.Get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
  }

  bool send(std::uint32_t address, const std::uint8_t (&packet)[PING_PACKET_SIZE]) override {
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_addr.s_addr = address;
    ssize_t sent = -1;
    do {
      sent = ::sendto(sock.Get(), packet, PING_PACKET_SIZE, MSG_NOSIGNAL | MSG_DONTWAIT,
                      reinterpret_cast<const sockaddr*>(&to), sizeof to);
    } while (sent < 0 && errno == EINTR);
    return sent == PING_PACKET_SIZE;
  }

  // The kernel rewrites the identifier of a datagram socket and gives its replies alone; the
  // sender is all there is to know them by.
  PING_RECEIVED receive(std::uint32_t* address) override {
    std::uint8_t packet[PING_REPLY_SIZE];
    sockaddr_in sender{};
    socklen_t length = sizeof sender;
    const ssize_t got = ::recvfrom(sock.Get(), packet, sizeof packet, 0,
                                   reinterpret_cast<sockaddr*>(&sender), &length);
    if (got < 0) {
      const bool in_vain = errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR;
      return in_vain ? PING_RECEIVED_NOTHING : PING_RECEIVED_FAILURE;
    }
    if (raw && !is_raw_reply(packet, static_cast<std::size_t>(got))) return PING_RECEIVED_NOTHING;
    *address = sender.sin_addr.s_addr;
    return PING_RECEIVED_REPLY;
  }

  std::chrono::steady_clock::time_point now() override { return std::chrono::steady_clock::now(); }

 private:
  const FileDescriptor sock;
  const bool raw;
};

}  // namespace

std::unique_ptr<CPingSocket> open_ping_socket(OpenPingSocket open_socket, int* error) {
  FileDescriptor sock(open_socket(SOCK_DGRAM));
  const bool forbidden = !sock && (errno == EACCES || errno == EPERM);
  if (forbidden) sock.Reset(open_socket(SOCK_RAW));
  *error = sock ? 0 : errno;
  if (!sock) return nullptr;
  return std::make_unique<ping_socket>(std::move(sock), forbidden);
}

}  // namespace vox
