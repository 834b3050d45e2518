#include "vox/drivers/net/searchping.h"

#include <cerrno>
#include <cstdlib>
#include <new>
#include <optional>
#include <string>
#include <vector>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/ip_icmp.h>
#include <sys/socket.h>

#include "vox/drivers/net/searchpingsocket.h"

namespace vox {
namespace {

int open_icmp(int type) {
  return ::socket(AF_INET, type | SOCK_CLOEXEC, IPPROTO_ICMP);
}

// probed_device is a device and what is known of it.
struct probed_device {
  std::uint32_t address = 0;  // network byte order
  enum { NOT_ASKED, IS_ASKED, HAS_ANSWERED } state = NOT_ASKED;
};
using probed_devices = std::vector<probed_device>;

std::optional<std::uint32_t> ping_address_of(const DeviceInfo& device) {
  const auto ip = device ? device->String(kDeviceIpKey) : std::nullopt;
  in_addr address{};
  if (!ip || ::inet_pton(AF_INET, ip->c_str(), &address) != 1) return std::nullopt;
  return address.s_addr;
}

bool send_request(CPingSocket* socket, std::uint32_t address) {
  union {
    std::uint8_t bytes[PING_PACKET_SIZE];
    icmphdr header;
  } packet{};
  create_icmp(&packet.header);
  return socket->send(address, packet.bytes);
}

// send_requests gives how many devices were asked.
std::size_t send_requests(const DeviceInfoArray& devices, CancelDelegate* delegate,
                          CPingSocket* socket, probed_devices* probed) {
  std::size_t asked = 0;
  for (std::size_t i = 0; i < devices.size() && !is_cancelled(delegate); ++i) {
    const auto address = ping_address_of(devices[i]);
    if (!address || !send_request(socket, *address)) continue;
    (*probed)[i] = {*address, probed_device::IS_ASKED};
    ++asked;
  }
  return asked;
}

// note_reply gives how many devices a reply comes from: two entries may bear one address.
std::size_t note_reply(std::uint32_t sender, probed_devices* probed) {
  std::size_t answered = 0;
  for (probed_device& device : *probed) {
    if (device.state != probed_device::IS_ASKED || device.address != sender) continue;
    device.state = probed_device::HAS_ANSWERED;
    ++answered;
  }
  return answered;
}

// receive_replies ends early when all `asked` have answered. Only the first reply of a device makes
// it wait on, so that a stranger that never stops sending cannot.
void receive_replies(std::size_t asked, CancelDelegate* delegate, CPingSocket* socket,
                     probed_devices* probed) {
  const std::chrono::milliseconds quiet(PING_QUIET_MS);
  auto deadline = socket->now() + quiet;
  while (asked > 0 && socket->now() < deadline && !is_cancelled(delegate)) {
    std::uint32_t sender = 0;
    const PING_RECEIVED received = socket->receive(&sender);
    if (received == PING_RECEIVED_FAILURE) return;
    if (received == PING_RECEIVED_NOTHING) continue;
    const std::size_t answered = note_reply(sender, probed);
    if (answered > 0) deadline = socket->now() + quiet;
    asked -= answered;
  }
}

}  // namespace

std::uint16_t in_cksum(const std::uint8_t* bytes, std::int32_t length) {
  std::uint64_t sum = 0;
  for (std::int32_t i = 0; i < length; ++i) {
    sum += static_cast<std::uint64_t>(i % 2 == 0 ? bytes[i] << 8 : bytes[i]);
  }
  while (sum > 0xFFFF) sum = (sum >> 16) + (sum & 0xFFFF);
  return static_cast<std::uint16_t>(~sum);
}

std::uint16_t create_icmp(icmphdr* header) {
  header->type = ICMP_ECHO;
  header->code = 0;
  header->checksum = 0;
  header->un.echo.id = htons(static_cast<std::uint16_t>(::random() % 65535));
  header->un.echo.sequence = 0;
  const std::uint16_t checksum =
      in_cksum(reinterpret_cast<const std::uint8_t*>(header), PING_PACKET_SIZE);
  header->checksum = htons(checksum);
  return checksum;
}

DeviceInfoArray filter_with_ping(const DeviceInfoArray& devices, CancelDelegate* delegate,
                                 CPingSocket* socket) {
  probed_devices probed(devices.size());
  const std::size_t asked = send_requests(devices, delegate, socket, &probed);
  receive_replies(asked, delegate, socket, &probed);
  DeviceInfoArray alive;
  for (std::size_t i = 0; i < devices.size(); ++i) {
    if (probed[i].state == probed_device::HAS_ANSWERED) alive.push_back(devices[i]);
  }
  return alive;
}

DeviceInfoArray filterWithNetworkPing(const DeviceInfoArray& devices,
                                      CancelDelegate* delegate) try {
  int error = 0;
  const auto socket = open_ping_socket(&open_icmp, &error);
  if (!socket) return {};
  return filter_with_ping(devices, delegate, socket.get());
} catch (const std::bad_alloc&) {
  return {};
}

PING_ACCESS network_ping_access() try {
  int error = 0;
  if (open_ping_socket(&open_icmp, &error)) return PING_ACCESS_PERMITTED;
  if (error == EACCES || error == EPERM) return PING_ACCESS_FORBIDDEN;
  const bool no_descriptors = error == EMFILE || error == ENFILE;
  return no_descriptors ? PING_ACCESS_NO_DESCRIPTORS : PING_ACCESS_FAILED;
} catch (const std::bad_alloc&) {
  return PING_ACCESS_FAILED;
}

bool network_ping_permitted() {
  return network_ping_access() == PING_ACCESS_PERMITTED;
}

}  // namespace vox
