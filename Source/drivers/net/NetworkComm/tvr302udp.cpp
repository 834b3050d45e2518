#include "vox/drivers/net/NetworkComm/tvr302udp.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <memory>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "vox/platform/DescriptorRefusals.h"
#include "vox/platform/FileDescriptor.h"

namespace vox {

std::atomic<std::uint16_t> udpCommandPort{UDPCMD_PORT};
std::atomic<std::uint16_t> snmpPort{WNXSNMP_PORT};
std::atomic<std::uint32_t> netMsPerSecond{1000};
std::atomic<std::uint32_t> netDescriptorsRefused{0};
std::atomic<net_clock> netClock{&std::chrono::steady_clock::now};

namespace {

using steady = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr std::int64_t LONGEST_WAIT = 86400;  // seconds; keeps sums of deadlines far from overflow

steady::time_point now() {
  return netClock.load()();
}

milliseconds in_time(std::int64_t seconds) {
  return milliseconds(std::min(seconds, LONGEST_WAIT) * netMsPerSecond.load());
}

// The thread's NetInterrupt.
thread_local int interrupt_fd = -1;
thread_local milliseconds interrupt_grace{0};

// wait_until waits for a readable socket as readable_timeo does. A signal does not move the
// deadline.
int wait_until(int sock, steady::time_point deadline) {
  int hurry_fd = interrupt_fd;
  for (;;) {
    const auto left = std::chrono::ceil<milliseconds>(deadline - now());
    pollfd entries[] = {{sock, POLLIN, 0}, {hurry_fd, POLLIN, 0}};
    const int ready = ::poll(entries, 2, static_cast<int>(std::max(left, milliseconds(0)).count()));
    if (ready < 0 && errno == EINTR) continue;
    if (ready < 0 || entries[0].revents & POLLNVAL) return -1;
    if (entries[0].revents != 0) return 1;
    if (entries[1].revents != 0) {
      hurry_fd = -1;
      deadline = std::min(deadline, now() + interrupt_grace);
      continue;
    }
    return hurry_fd == interrupt_fd ? 0 : -1;
  }
}

// received_in_vain tells the errors of recvfrom after which the wait goes on: a signal, or a
// datagram that poll saw and the checksum threw away.
bool received_in_vain(ssize_t got) {
  return got < 0 && (errno == EINTR || errno == EAGAIN || errno == EWOULDBLOCK);
}

struct receive_buffer {
  void* bytes;
  std::int32_t length;
  int flags;
  sockaddr* sender;          // may be null
  socklen_t* sender_length;  // may be null
};

std::int32_t receive(int sock, const receive_buffer& to, int more_flags) {
  const ssize_t got = ::recvfrom(sock, to.bytes, static_cast<std::size_t>(to.length),
                                 to.flags | more_flags, to.sender, to.sender_length);
  return static_cast<std::int32_t>(got);
}

std::int32_t receive_until(int sock, const receive_buffer& to, steady::time_point deadline) {
  for (;;) {
    const int ready = wait_until(sock, deadline);
    if (ready < 0) return NET_FAILED;
    if (ready == 0) return NET_TIMED_OUT;
    const std::int32_t got = receive(sock, to, MSG_DONTWAIT);
    if (!received_in_vain(got)) return got;
  }
}

sockaddr_in socket_address(in_addr address, std::uint16_t port) {
  sockaddr_in to{};
  to.sin_family = AF_INET;
  to.sin_port = htons(port);
  to.sin_addr = address;
  return to;
}

bool parse_dotted(const char* text, in_addr* address) {
  return text && ::inet_pton(AF_INET, text, address) == 1;
}

bool send_to(int sock, const sockaddr_in& to, const std::uint8_t* bytes, std::int32_t length) {
  if (length < 0 || (length > 0 && !bytes)) return false;
  ssize_t sent = -1;
  do {
    sent = ::sendto(sock, bytes, static_cast<std::size_t>(length), MSG_NOSIGNAL,
                    reinterpret_cast<const sockaddr*>(&to), sizeof to);
  } while (sent < 0 && errno == EINTR);
  return sent == length;
}

FileDescriptor open_socket() {
  int sock = -1;
  return FileDescriptor(net_socket(&sock) == 0 ? sock : -1);
}

// send_request sends one datagram to a host and gives the socket that its answers come to.
FileDescriptor send_request(const char* host, std::uint16_t port, const std::uint8_t* bytes,
                            std::int32_t length) {
  FileDescriptor sock = open_socket();
  in_addr address{};
  if (!sock || !net_look_up(host, &address)) return {};
  if (!send_to(sock.Get(), socket_address(address, port), bytes, length)) return {};
  return sock;
}

std::uint16_t command_port() {
  const std::uint16_t port = udpCommandPort;
  return port == 0 ? UDPCMD_PORT : port;
}

using list_owner = std::unique_ptr<packet_data_list, decltype(&free_packet_data_list)>;

// new_element gives an empty list element, or null.
list_owner new_element() {
  list_owner element(static_cast<packet_data_list*>(std::calloc(1, sizeof(packet_data_list))),
                     &free_packet_data_list);
  if (!element) return element;
  element->lpPacketData = static_cast<packet_data*>(std::calloc(1, sizeof(packet_data)));
  if (!element->lpPacketData) element.reset();
  return element;
}

// receive_element gives one datagram with its sender; null when none comes until the deadline.
list_owner receive_element(int sock, steady::time_point deadline) {
  list_owner element = new_element();
  if (!element) return element;
  packet_data* const packet = element->lpPacketData;
  sockaddr_in sender{};
  socklen_t sender_length = sizeof sender;
  packet->nLen = receive_until(
      sock,
      {packet->buf, NET_DATAGRAM_SIZE, 0, reinterpret_cast<sockaddr*>(&sender), &sender_length},
      deadline);
  packet->IPAddress.ulAddress = sender.sin_addr.s_addr;
  if (packet->nLen < 0) element.reset();
  return element;
}

// collect gathers datagrams until a quiet `wait` has passed, `address` itself has answered, or the
// observer has heard enough.
packet_data_list* collect(int sock, in_addr address, milliseconds wait,
                          const packet_observer& observer) {
  packet_data_list* list = nullptr;
  packet_data_list** tail = &list;
  const auto latest = now() + wait * NET_COLLECT_TIMEOUTS;
  for (std::int32_t count = 0; count < NET_COLLECT_MAX && now() <= latest; ++count) {
    *tail = receive_element(sock, now() + wait).release();
    if (!*tail) break;
    const packet_data& packet = *(*tail)->lpPacketData;
    if (observer && !observer(packet)) break;
    if (packet.IPAddress.ulAddress == address.s_addr) break;
    tail = &(*tail)->lpPacketDataListNext;
  }
  return list;
}

}  // namespace

NetInterrupt::NetInterrupt(int fd, int nGraceMs) {
  interrupt_fd = fd;
  interrupt_grace = milliseconds(nGraceMs);
}

NetInterrupt::~NetInterrupt() {
  interrupt_fd = -1;
}

void free_packet_data_list(packet_data_list* list) {
  while (list) {
    packet_data_list* const next = list->lpPacketDataListNext;
    std::free(list->lpPacketData);
    std::free(list);
    list = next;
  }
}

void net_note_refusal(int error) {
  if (NoteDescriptorRefusal(error)) ++netDescriptorsRefused;
}

std::int32_t net_start() {
  return NET_OK;
}

std::int32_t net_socket(int* sock) {
  FileDescriptor opened(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  // net_close leaves the number 0 alone, which a program without standard input would leak.
  if (opened.Get() == 0) opened.Reset(::fcntl(0, F_DUPFD_CLOEXEC, 1));
  if (!opened) {
    net_note_refusal(errno);
    return NET_FAILED;
  }
  *sock = opened.Release();
  return NET_OK;
}

void net_close(int sock) {
  if (sock > 0) ::close(sock);
}

std::int32_t net_select(int sock, std::int32_t seconds) {
  return readable_timeo(sock, seconds) == 1 ? NET_OK : NET_FAILED;
}

std::int32_t readable_timeo(int sock, std::int32_t seconds) {
  if (sock < 0 || seconds < 0) return -1;
  return wait_until(sock, now() + in_time(seconds));
}

std::int32_t recvfrom_timeo(int sock, void* buffer, std::int32_t length, int flags,
                            sockaddr* sender, socklen_t* sender_length, std::int32_t seconds,
                            void* /*reserved*/) {
  if (sock < 0 || length < 0 || seconds < 0) return NET_FAILED;
  const receive_buffer to{buffer, length, flags, sender, sender_length};
  if (seconds > 0) return receive_until(sock, to, now() + in_time(seconds));
  for (;;) {
    const std::int32_t got = receive(sock, to, 0);
    if (got >= 0 || errno != EINTR) return got;
  }
}

std::int32_t udp_send(const char* host, std::int32_t /*seconds*/, const std::uint8_t* bytes,
                      std::int32_t length) {
  return send_request(host, command_port(), bytes, length) ? NET_OK : NET_FAILED;
}

std::int32_t udp_send_rev(const char* host, std::int32_t seconds, const std::uint8_t* bytes,
                          std::int32_t length, std::uint8_t* reply, std::int32_t* reply_length) {
  if (!reply || !reply_length || *reply_length <= 0) return NET_FAILED;
  const FileDescriptor sock = send_request(host, command_port(), bytes, length);
  if (!sock) return NET_FAILED;
  std::uint8_t datagram[NET_DATAGRAM_SIZE];
  const std::int32_t got = recvfrom_timeo(sock.Get(), datagram, NET_DATAGRAM_SIZE, 0, nullptr,
                                          nullptr, seconds, nullptr);
  if (got < 0) return got;
  std::memset(reply, 0, static_cast<std::size_t>(*reply_length));
  if (got > *reply_length) return NET_FAILED;
  std::memcpy(reply, datagram, static_cast<std::size_t>(got));
  *reply_length = got;
  return NET_OK;
}

packet_data_list* net_send_rev(const char* host, std::int32_t seconds, const std::uint8_t* bytes,
                               std::int32_t length) {
  if (seconds < 0) return nullptr;
  const FileDescriptor sock = send_request(host, snmpPort, bytes, length);
  if (!sock) return nullptr;
  return receive_element(sock.Get(), now() + in_time(seconds)).release();
}

bool net_look_up(const char* host, in_addr* address) {
  if (!host) return false;
  if (parse_dotted(host, address)) return true;
  addrinfo wanted{};
  wanted.ai_family = AF_INET;
  wanted.ai_socktype = SOCK_DGRAM;
  addrinfo* found = nullptr;
  if (::getaddrinfo(host, nullptr, &wanted, &found) != 0) return false;
  sockaddr_in first{};
  std::memcpy(&first, found->ai_addr, sizeof first);
  ::freeaddrinfo(found);
  *address = first.sin_addr;
  return true;
}

packet_data_list* multi_net_send_rev(const char* address, std::int32_t seconds,
                                     const std::uint8_t* bytes, std::int32_t length) {
  return multi_net_send_rev_each(address, seconds, bytes, length, packet_observer());
}

packet_data_list* multi_net_send_rev_each(const char* address, std::int32_t seconds,
                                          const std::uint8_t* bytes, std::int32_t length,
                                          const packet_observer& observer) {
  in_addr to{};
  if (seconds < 0 || !parse_dotted(address, &to)) return nullptr;
  const FileDescriptor sock = open_socket();
  const int on = 1;
  if (!sock || ::setsockopt(sock.Get(), SOL_SOCKET, SO_BROADCAST, &on, sizeof on) != 0) {
    return nullptr;
  }
  if (!send_to(sock.Get(), socket_address(to, snmpPort), bytes, length)) return nullptr;
  return collect(sock.Get(), to, in_time(seconds), observer);
}

}  // namespace vox
