// The device's command packets: a 20-byte header and its parameters, the numbers big-endian. The
// same packets are the notices that open each TCP channel.
//
//   0   12  "MFPP0200ML01"
//   12   2  sequence id
//   14   1  application code
//   15   1  command code
//   16   1  low byte of the parameters' size
//   17   1  cipher, 0
//   18   2  reserved, 0
//   20      parameters
//
// Thread rule: plain values and pure functions.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

#include "sim/Ber.h"

namespace vox::sim {

inline constexpr std::string_view kPacketText = "MFPP0200ML01";
inline constexpr std::size_t kPacketHeaderSize = 20;
inline constexpr std::size_t kJobIdSize = 8;

inline constexpr std::uint8_t kRegisterApplication = 0x31;
inline constexpr std::uint8_t kScanApplication = 0x32;

// Commands and their replies.
inline constexpr std::uint8_t kCommandRegister = 3;
inline constexpr std::uint8_t kCommandUnregister = 5;
inline constexpr std::uint8_t kCommandStandby = 0x10;
inline constexpr std::uint8_t kCommandScan = 0x41;
inline constexpr std::uint8_t kCommandCancel = 0x51;
inline constexpr std::uint8_t kCommandRequestPage = 0x62;
inline constexpr std::uint8_t kReplyAccepted = 0x43;
inline constexpr std::uint8_t kReplyError = 0x45;
inline constexpr std::uint8_t kReplyBusy = 0x47;
inline constexpr std::uint8_t kReplyNoDocument = 0x49;
inline constexpr std::uint8_t kReplyCancelled = 0x53;
inline constexpr std::uint8_t kReplyRegistered = 0xC4;
inline constexpr std::uint8_t kReplyRegisterBusy = 0xD4;
inline constexpr std::uint8_t kReplyRegisterRefused = 0xE4;

// Notices, in the same place as commands.
inline constexpr std::uint8_t kNoticePage = 0x80;         // data channel: a page comes
inline constexpr std::uint8_t kNoticeMorePages = 0x90;    // end channel: another page follows
inline constexpr std::uint8_t kNoticeJobEnds = 0xA0;      // end channel: any value but the others
inline constexpr std::uint8_t kNoticeNotFinished = 0xF0;  // end channel: ask again

using JobId = std::array<std::uint8_t, kJobIdSize>;  // opaque to the host

struct CommandPacket {
  std::uint16_t sequence_id = 0;
  std::uint8_t application = kScanApplication;
  std::uint8_t command = 0;
  Bytes parameters;
};

Bytes BuildCommand(const CommandPacket& packet);

// ParseCommand refuses another text than kPacketText and a size byte that is not the low byte of
// the number of bytes that follow the header.
std::optional<CommandPacket> ParseCommand(std::span<const std::uint8_t> bytes);

}  // namespace vox::sim
