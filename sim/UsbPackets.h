// What the device sends over USB, apart from the packets that it shares with the network
// (CommandPacket.h, ScanInfo.h): block headers and device information. Numbers are little-endian.
//
// A block header, 8 bytes, stands in front of every block of a page:
//   0   4  bytes of data that follow; 0 ends the page
//   4   1  0x32 where the next two mean something
//   5   1  2 the page's end, 3 check error, 4 the device is not ready yet
//   6   1  of the page's end: 1 another page of the job follows
//   7   1  0
//
// Device information, 8 bytes and the record that was asked for:
//   0   2  0
//   2   4  bytes of the record
//   6   2  0
//
// Thread rule: pure functions.
#pragma once

#include <cstddef>
#include <cstdint>

#include "sim/Ber.h"
#include "sim/DeviceOptions.h"

namespace vox::sim {

inline constexpr std::size_t kUsbHeaderSize = 8;

// Commands of USB alone, or with another code than on the network.
inline constexpr std::uint8_t kUsbCommandInformation = 0x22;
inline constexpr std::uint8_t kUsbCommandCancel = 0x50;

enum class BlockNote : std::uint8_t { kNone = 0, kPageEnd = 2, kCheckError = 3, kNotReady = 4 };
Bytes BuildBlockHeader(std::uint32_t length, BlockNote note = BlockNote::kNone,
                       std::uint8_t more = 0);

// Records of device information.
inline constexpr std::uint32_t kInformationSources = 0xA201;  // 104 bytes
inline constexpr std::uint32_t kInformationExtra = 0xA204;    //  36 bytes
inline constexpr std::uint32_t kInformationFormats = 0xA206;  //  12 bytes
inline constexpr std::uint32_t kInformationMargins = 0xA207;  //  32 bytes
inline constexpr std::uint32_t kInformationProduct = 0xA208;  //  68 bytes

// BuildInformation gives the record, without its header; an empty one for a code that no device
// knows.
Bytes BuildInformation(const DeviceOptions& options, std::uint32_t code);

// BuildInformationHeader says that `length` bytes follow.
Bytes BuildInformationHeader(std::uint32_t length);

}  // namespace vox::sim
