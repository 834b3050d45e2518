#include "vox/drivers/net/NetworkComm/tvr302udpcmd.h"

#include <algorithm>
#include <cstring>

#include "vox/platform/Bytes.h"

namespace vox {
namespace {

constexpr auto HEADER_SIZE = static_cast<std::int32_t>(UDPCMD_HEADER_SIZE);

}  // namespace

std::int32_t udp_cmd_size(const _tagUDPCMD* request) {
  if (request->paramSize < 0 || request->paramSize > NET_DATAGRAM_MAX - HEADER_SIZE) return -1;
  if (request->paramSize > 0 && !request->param) return -1;
  return HEADER_SIZE + request->paramSize;
}

void udp_cmd_build(std::uint8_t* packet, std::uint16_t sequenceId, const _tagUDPCMD* request) {
  std::memcpy(packet, UDPCMD_SIGNATURE, UDPCMD_SIGNATURE_SIZE);
  StoreBe16(packet + UDPCMD_AT_SEQUENCE, sequenceId);
  packet[UDPCMD_AT_APPCODE] = request->appCode;
  packet[UDPCMD_AT_COMMAND] = request->command;
  packet[UDPCMD_AT_PARAMSIZE] = static_cast<std::uint8_t>(request->paramSize);
  packet[UDPCMD_AT_CLIPHER] = request->Clipher;
  StoreBe16(packet + UDPCMD_AT_RESERVE, 0);
  if (request->paramSize > 0) {
    std::memcpy(packet + UDPCMD_HEADER_SIZE, request->param,
                static_cast<std::size_t>(request->paramSize));
  }
}

std::uint16_t udp_cmd_sequence(const std::uint8_t* answer, std::int32_t length) {
  constexpr auto needed = static_cast<std::int32_t>(UDPCMD_AT_SEQUENCE + sizeof(std::uint16_t));
  return length < needed ? std::uint16_t{0} : LoadBe16(answer + UDPCMD_AT_SEQUENCE);
}

std::int32_t udp_cmd_parse(const std::uint8_t* answer, std::int32_t length, _tagUDPCMD* response) {
  if (length < HEADER_SIZE) return NET_FAILED;
  response->command = answer[UDPCMD_AT_COMMAND];
  response->appCode = answer[UDPCMD_AT_APPCODE];
  response->paramSize = answer[UDPCMD_AT_PARAMSIZE];
  response->Clipher = answer[UDPCMD_AT_CLIPHER];
  if (response->paramSize == 0) return NET_OK;
  if (!response->param) return NET_TOO_SMALL;
  const auto announced = static_cast<std::size_t>(response->paramSize);
  const auto arrived = std::min(announced, static_cast<std::size_t>(length - HEADER_SIZE));
  std::memset(response->param, 0, announced);
  if (arrived > 0) std::memcpy(response->param, answer + UDPCMD_HEADER_SIZE, arrived);
  return NET_OK;
}

}  // namespace vox
