// The layout and numbers of the device's UDP command protocol, the datagram layer's limits, and the
// result codes of its calls.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vox {

// tagUDPCMDPACKHEADER is the header of a packet as it lies on the wire, numbers with their high
// byte first; the parameters follow. Packets are written and read byte by byte at its offsets.
struct tagUDPCMDPACKHEADER {
  char packetCode[4];    // "MFPP"
  char majorVersion[2];  // "02"
  char minorVersion[2];  // "00"
  char modelCode[4];     // "ML01"
  std::uint16_t sequenceId;
  std::uint8_t appCode;
  std::uint8_t cmdCode;    // command, or the code of an answer
  std::uint8_t paramSize;  // low byte of the number of parameter bytes
  std::uint8_t Clipher;
  std::uint16_t Reserve;  // 0
};
static_assert(sizeof(tagUDPCMDPACKHEADER) == 20);
static_assert(offsetof(tagUDPCMDPACKHEADER, majorVersion) == 4);
static_assert(offsetof(tagUDPCMDPACKHEADER, minorVersion) == 6);
static_assert(offsetof(tagUDPCMDPACKHEADER, modelCode) == 8);
static_assert(offsetof(tagUDPCMDPACKHEADER, sequenceId) == 12);
static_assert(offsetof(tagUDPCMDPACKHEADER, appCode) == 14);
static_assert(offsetof(tagUDPCMDPACKHEADER, cmdCode) == 15);
static_assert(offsetof(tagUDPCMDPACKHEADER, paramSize) == 16);
static_assert(offsetof(tagUDPCMDPACKHEADER, Clipher) == 17);
static_assert(offsetof(tagUDPCMDPACKHEADER, Reserve) == 18);

constexpr char UDPCMD_SIGNATURE[] = "MFPP0200ML01";  // packetCode, versions and modelCode
constexpr std::size_t UDPCMD_SIGNATURE_SIZE = sizeof UDPCMD_SIGNATURE - 1;
constexpr std::size_t UDPCMD_AT_SEQUENCE = offsetof(tagUDPCMDPACKHEADER, sequenceId);
constexpr std::size_t UDPCMD_AT_APPCODE = offsetof(tagUDPCMDPACKHEADER, appCode);
constexpr std::size_t UDPCMD_AT_COMMAND = offsetof(tagUDPCMDPACKHEADER, cmdCode);
constexpr std::size_t UDPCMD_AT_PARAMSIZE = offsetof(tagUDPCMDPACKHEADER, paramSize);
constexpr std::size_t UDPCMD_AT_CLIPHER = offsetof(tagUDPCMDPACKHEADER, Clipher);
constexpr std::size_t UDPCMD_AT_RESERVE = offsetof(tagUDPCMDPACKHEADER, Reserve);
constexpr std::size_t UDPCMD_HEADER_SIZE = sizeof(tagUDPCMDPACKHEADER);
static_assert(UDPCMD_SIGNATURE_SIZE == UDPCMD_AT_SEQUENCE);

constexpr std::uint16_t UDPCMD_PORT = 3892;
constexpr int UDPCMD_ATTEMPTS = 3;
constexpr std::int32_t UDPCMD_PARAM_MAX = 255;  // parameter bytes of an answer

constexpr std::int32_t NET_DATAGRAM_SIZE = 1536;   // receive buffer, bytes
constexpr std::int32_t NET_DATAGRAM_MAX = 65507;   // largest payload that UDP over IPv4 carries
constexpr std::int32_t NET_TIMEOUT_SECONDS = 3;    // each wait of the exported calls
constexpr std::int32_t NET_COLLECT_MAX = 4096;     // datagrams that a broadcast query gathers
constexpr std::int32_t NET_COLLECT_TIMEOUTS = 60;  // time-outs that a broadcast query may last

// Results.
constexpr std::int32_t NET_OK = 0;
constexpr std::int32_t NET_FAILED = -1;
constexpr std::int32_t NET_NO_MEMORY = -2;
constexpr std::int32_t NET_TOO_SMALL = -3;  // a caller's buffer is missing or too small
constexpr std::int32_t NET_TIMED_OUT = -3;  // from the socket level
constexpr std::int32_t NET_NO_ANSWER = -101;

}  // namespace vox
