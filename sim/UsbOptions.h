// What a virtual device is at USB: who it says it is, and how it cuts what it sends.
//
// Thread rule: plain values.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace vox::sim {

struct UsbOptions {
  // As its descriptors tell them.
  std::uint16_t vendor_id = 0x5658;
  std::uint16_t product_id = 0x1520;  // of the model QD7200
  std::string serial = "VX0001";
  std::string maker = "Veltronix";
  std::string product;             // empty: the model
  std::uint16_t max_packet = 512;  // bytes, of both bulk pipes: 64 or 512

  // Data bytes of a page's blocks in turn; the last goes for all that follow. 0: the rest of the
  // page. Never more than a host says that it takes.
  std::vector<std::uint32_t> block_bytes = {65536};
  // A block follows its header within the same packets. Otherwise the header is a short packet.
  bool joined_headers = false;
  // Device information: its header comes as a short packet, and the record after it.
  bool information_in_two = false;
  // Unscannable margins are told of.
  bool tells_margins = true;
};

}  // namespace vox::sim
