#include "vox/drivers/net/searchinterface.h"

#include <cerrno>
#include <cstring>
#include <memory>
#include <string_view>

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <netpacket/packet.h>

#include "vox/drivers/net/NetworkComm/tvr302udp.h"
#include "vox/drivers/net/searchregister.h"

namespace vox {
namespace {

constexpr std::size_t MAC_SIZE = 6;

// An address of an interface may bear a label behind a colon.
std::string_view interface_name(const ifaddrs& entry) {
  const std::string_view name(entry.ifa_name);
  return name.substr(0, name.find(':'));
}

bool is_of_family(const sockaddr* address, sa_family_t family) {
  return address != nullptr && address->sa_family == family;
}

in_addr address_in(const sockaddr* address) {
  sockaddr_in in{};
  std::memcpy(&in, address, sizeof in);
  return in.sin_addr;
}

// find_mac gives the MAC address of the interface that bears a name; false when there is none of
// six bytes.
bool find_mac(const ifaddrs* list, std::string_view name, std::uint8_t* mac) {
  for (; list; list = list->ifa_next) {
    if (!is_of_family(list->ifa_addr, AF_PACKET) || interface_name(*list) != name) continue;
    sockaddr_ll link{};
    std::memcpy(&link, list->ifa_addr, sizeof link);
    if (link.sll_halen != MAC_SIZE) continue;
    std::memcpy(mac, link.sll_addr, MAC_SIZE);
    return true;
  }
  return false;
}

// How well an IPv4 entry fits a device; 0 not at all.
int rank_of(const ifaddrs& entry, in_addr device) {
  const in_addr own = address_in(entry.ifa_addr);
  if (inet_netof(own) != inet_netof(device)) return 0;
  const bool has_mask = is_of_family(entry.ifa_netmask, AF_INET);
  const in_addr_t mask = has_mask ? address_in(entry.ifa_netmask).s_addr : 0;
  const bool holds_device = mask != 0 && ((own.s_addr ^ device.s_addr) & mask) == 0;
  return 1 + (holds_device ? 2 : 0) + ((entry.ifa_flags & IFF_UP) != 0 ? 1 : 0);
}

}  // namespace

bool choose_interface(const ifaddrs* list, std::uint32_t device, std::uint32_t* local,
                      std::uint8_t* mac) {
  int best = 0;
  for (const ifaddrs* entry = list; entry; entry = entry->ifa_next) {
    if (!is_of_family(entry->ifa_addr, AF_INET)) continue;
    const int rank = rank_of(*entry, in_addr{device});
    if (rank <= best || !find_mac(list, interface_name(*entry), mac)) continue;
    best = rank;
    *local = address_in(entry->ifa_addr).s_addr;
  }
  return best > 0;
}

std::int32_t getmac_and_ip(const char* device, std::uint32_t* local, std::uint8_t* mac) {
  in_addr address{};
  if (!device || !local || !mac || inet_pton(AF_INET, device, &address) != 1) return -1;
  ifaddrs* list = nullptr;
  if (getifaddrs(&list) != 0) {
    net_note_refusal(errno);
    return -1;
  }
  const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> owner(list, &freeifaddrs);
  return choose_interface(list, address.s_addr, local, mac) ? 0 : -1;
}

}  // namespace vox
