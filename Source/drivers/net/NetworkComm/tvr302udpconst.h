// The numbers of the device's UDP command protocol, of the datagram layer's limits, and the result
// codes of its calls.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vox {

// The packet: a header of 20 bytes, then the parameters. Offsets in bytes.
constexpr char UDPCMD_SIGNATURE[] = "MFPP0200ML01";  // packetCode, versions and modelCode
constexpr std::size_t UDPCMD_SIGNATURE_SIZE = 12;
constexpr std::size_t UDPCMD_AT_SEQUENCE = 12;  // two bytes, high one first
constexpr std::size_t UDPCMD_AT_APPCODE = 14;
constexpr std::size_t UDPCMD_AT_COMMAND = 15;
constexpr std::size_t UDPCMD_AT_PARAMSIZE = 16;  // low byte of the size
constexpr std::size_t UDPCMD_AT_CLIPHER = 17;
constexpr std::size_t UDPCMD_AT_RESERVE = 18;  // two zero bytes
constexpr std::size_t UDPCMD_HEADER_SIZE = 20;

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
