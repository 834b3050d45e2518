// Exchanges of one datagram in tests: what is asked, and what a peer on loopback answered.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <arpa/inet.h>

#include "tests/support/UdpPeer.h"

namespace vox::test {

constexpr const char* kHost = "127.0.0.1";
constexpr const char* kOther = "127.0.0.2";
constexpr std::uint32_t kShort = 30;    // ms that a second lasts where a time-out is awaited
constexpr std::uint32_t kLong = 10000;  // and where none may come, however busy the machine is

struct FreePackets {
  void operator()(packet_data_list* list) const { free_packet_data_list(list); }
};
using Packets = std::unique_ptr<packet_data_list, FreePackets>;

inline const Bytes kQuestion = Hex("01 02 03");
inline const Bytes kAnswer = Hex("0A 0B 0C 0D");

inline Packets Ask(const char* host, std::int32_t seconds = 3) {
  return Packets(net_send_rev(host, seconds, kQuestion.data(), Size(kQuestion)));
}
inline Packets AskAll(const char* address, std::int32_t seconds = 3) {
  return Packets(multi_net_send_rev(address, seconds, kQuestion.data(), Size(kQuestion)));
}

inline std::vector<Bytes> BytesOf(const Packets& packets) {
  std::vector<Bytes> all;
  for (const packet_data_list* at = packets.get(); at; at = at->lpPacketDataListNext) {
    all.emplace_back(at->lpPacketData->buf, at->lpPacketData->buf + at->lpPacketData->nLen);
  }
  return all;
}

inline std::string SenderOf(const packet_data& packet) {
  char text[INET_ADDRSTRLEN];
  inet_ntop(AF_INET, packet.IPAddress.byAddress, text, sizeof text);
  return text;
}

}  // namespace vox::test
