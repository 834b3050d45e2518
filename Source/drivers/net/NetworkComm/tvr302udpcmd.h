// Packets of the device's UDP command protocol, built and parsed; no socket. docs/wire/
// udp-command.md has the layout and a worked example. The functions are inside the library only.
//
// Thread rule: pure functions.
#pragma once

#include <cstdint>

#include "vox/drivers/net/NetworkComm/tvr302udpconst.h"

namespace vox {

// _tagUDPCMD is a caller's view of a command or of an answer.
struct _tagUDPCMD {
  std::uint8_t command;
  std::uint8_t appCode;
  std::int32_t paramSize;  // bytes; only the low byte goes on the wire
  std::uint8_t Clipher;
  std::uint8_t* param;  // caller's: paramSize bytes to send; room for 255 bytes in an answer
};

// udp_cmd_size gives the bytes of a command's packet; -1 when the size is negative or more than a
// datagram carries, or parameters are announced and missing.
std::int32_t udp_cmd_size(const _tagUDPCMD* request);

// udp_cmd_build writes the packet of a command that udp_cmd_size accepted to packet[0, size).
void udp_cmd_build(std::uint8_t* packet, std::uint16_t sequenceId, const _tagUDPCMD* request);

// udp_cmd_sequence gives the sequence id of an answer of `length` bytes; 0 when it is cut off
// before its end.
std::uint16_t udp_cmd_sequence(const std::uint8_t* answer, std::int32_t length);

// udp_cmd_parse takes an answer apart. Signature and versions are not looked at.
// Shapes:  answer[0, length) in; response->param[0, paramSize), 255 bytes at most, out: bytes that
//          did not arrive are zero.
// Returns: 0; -1 shorter than a header; -3 parameters came and response->param is null.
std::int32_t udp_cmd_parse(const std::uint8_t* answer, std::int32_t length, _tagUDPCMD* response);

}  // namespace vox
