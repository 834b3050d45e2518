#include "sim/CommandPacket.h"

#include <algorithm>

namespace vox::sim {

Bytes BuildCommand(const CommandPacket& packet) {
  Bytes bytes(kPacketText.begin(), kPacketText.end());
  bytes.resize(kPacketHeaderSize);
  StoreBe16(bytes.data() + 12, packet.sequence_id);
  bytes[14] = packet.application;
  bytes[15] = packet.command;
  bytes[16] = static_cast<std::uint8_t>(packet.parameters.size());
  bytes.insert(bytes.end(), packet.parameters.begin(), packet.parameters.end());
  return bytes;
}

std::optional<CommandPacket> ParseCommand(std::span<const std::uint8_t> bytes) {
  if (bytes.size() < kPacketHeaderSize) return std::nullopt;
  if (!std::equal(kPacketText.begin(), kPacketText.end(), bytes.begin())) return std::nullopt;
  const auto parameters = bytes.subspan(kPacketHeaderSize);
  if (bytes[16] != static_cast<std::uint8_t>(parameters.size())) return std::nullopt;
  return CommandPacket{LoadBe16(bytes.data() + 12), bytes[14], bytes[15],
                       Bytes(parameters.begin(), parameters.end())};
}

}  // namespace vox::sim
