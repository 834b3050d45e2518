// What can be made to go wrong on a virtual device. A default Faults is a device in good order.
//
// Thread rule: plain values.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace vox::sim {

// Where the device stops. At USB kPageRequest, kScanInfo, kData and kEndNotice stand for what is
// sent in their place.
enum class Stage : std::uint8_t {
  kNone,
  kAlways,       // nothing is ever answered, SNMP included
  kScanCommand,  // a scan command comes and is not answered
  kPageRequest,  // a page request comes and no connection is made
  kStartNotice,  // the data channel is open and no notice is sent
  kScanInfo,     // the host has sent its 0x01 and no scan information follows
  kData,         // after Silence::after_bytes of the page's data
  kEndConnect,   // the data are sent and the end channel is not opened
  kEndNotice,    // the end channel is open and no notice is sent
  kCancel,       // a cancel command comes and is not answered
  kDeviceInfo,   // USB: device information is asked for and does not come
  kStandby,      // USB: a standby command comes
};

// A place in what a device at USB does.
struct Stop {
  Stage at = Stage::kNone;
  std::uint64_t after_bytes = 0;  // of the scan information, the page's data or its end header
};

// A device at USB that is not ready says so in front of a block: so often, after a pause each time.
struct NotReady {
  std::uint32_t headers = 0;
  std::chrono::milliseconds pause{0};
};

struct Silence {
  Stage at = Stage::kNone;
  std::uint64_t after_bytes = 0;
  // true: from then on nothing at all is answered, as if the power were cut with the connections
  // left standing; false: only this page stalls, commands and SNMP are still answered.
  bool whole_device = true;
};

struct Delays {
  std::chrono::milliseconds snmp{0};          // before every SNMP answer
  std::chrono::milliseconds reply{0};         // before every command reply
  std::chrono::milliseconds connect{0};       // before the data channel is opened
  std::chrono::milliseconds start_notice{0};  // on the open data channel
  std::chrono::milliseconds scan_info{0};     // after the host's 0x01
  std::chrono::milliseconds data{0};          // before every JBIG block or raw piece (64 KiB)
  std::chrono::milliseconds end_connect{0};   // before the end channel is opened
  std::chrono::milliseconds end_notice{0};    // on the open end channel
};

// What happens to command replies on their way.
enum class ReplyFault : std::uint8_t {
  kNone,
  kWrongSequence,  // the sequence id is off by one
  kTwice,          // every reply comes twice
  kStranger,       // a reply of another sequence id comes first, from another address
  kOtherSource,    // the true reply comes from another socket (on loopback: another address)
  kCut,            // only reply_bytes bytes come
  kLong,           // reply_bytes bytes come, the excess zero; paramSize says 255
};

// What happens to SNMP answers on their way.
enum class SnmpFault : std::uint8_t {
  kNone,
  kTwice,        // every answer comes twice
  kOtherSource,  // it comes from the device's other address, or else from another port
  kGarbage,      // noise of the answer's size comes instead
  kCut,          // only the first half comes
};

enum class BlockFault : std::uint8_t {
  kNone,
  kWidth,      // wdWidth 8 greater than it should be
  kTooLong,    // dwLength such that header and data pass 1 MiB by one byte
  kHostile,    // dwLength 0xFFFFFFF8
  kHuge,       // 65535 x 65535 pixels
  kNoLines,    // wdLength 0
  kMoreLines,  // wdLength one greater than it should be
  kGarbage,    // the coded data are noise
  kCutHeader,  // the connection closes after 5 bytes of the header
  kCutData,    // the connection closes in the middle of the coded data
};

struct Faults {
  Silence silence = {};
  Delays delays = {};

  // Scan commands. Each count is how many commands are answered so; kEveryTime means all.
  static constexpr std::uint32_t kEveryTime = 0xFFFFFFFF;
  std::uint32_t busy = 0;
  std::uint32_t no_document = 0;
  std::optional<std::uint8_t> scan_reply = {};      // this reply code instead of 0x43
  std::optional<std::uint8_t> cancel_reply = {};    // instead of 0x53
  std::optional<std::uint8_t> register_reply = {};  // instead of 0xC4
  std::uint32_t register_replies = kEveryTime;      // how many registrations get register_reply

  SnmpFault snmp = SnmpFault::kNone;
  std::uint32_t snmp_answers = kEveryTime;        // how many answers suffer from it
  std::optional<std::uint32_t> sleep_after = {};  // so many SNMP answers, then it falls asleep

  ReplyFault reply = ReplyFault::kNone;
  std::uint32_t replies = kEveryTime;  // how many replies suffer from it
  std::uint32_t reply_bytes = 24;      // of kCut and kLong

  // Channels, from here on. 0: on every page; n: on the n-th page that the device is asked for.
  std::uint32_t page = 0;
  std::uint32_t start_notice_bytes = 28;  // fewer: the notice is cut there and the channel closed
  bool bad_start_notice = false;          // "MFPP0200ML01" is spoilt
  std::uint32_t scan_info_bytes = 128;    // fewer: cut there and the channel closed
  std::optional<std::uint64_t> close_after = {};  // bytes of page data, then the channel is closed
  bool reset = false;                             // closed with RST instead of FIN
  BlockFault block = BlockFault::kNone;
  std::uint32_t block_index = 0;              // 0: the page's first block
  std::uint32_t end_not_ready = 0;            // so many 0xF0 notices before the true one
  std::optional<std::uint8_t> end_code = {};  // instead of what is true
  std::uint32_t end_split = 0;          // 1 to 27: the end notice comes in two pieces cut there
  std::uint32_t end_notice_bytes = 28;  // fewer: cut there and the channel closed

  // USB alone. Of the words above, connections, SNMP and the contents of blocks have no meaning
  // there; where a channel would close nothing more comes of the page, a start notice is the scan
  // information, an end notice the header that ends the page, and block headers count as data.
  Stop unplug = {};     // the device is gone
  Stop halt_in = {};    // the pipe to the host stalls
  Stop halt_out = {};   // a command is stalled; after_bytes not 0: the empty packet behind it
  NotReady first = {};  // in front of the first header of a page
  NotReady every = {};  // in front of every header
  std::optional<std::uint64_t> check_error = {};  // after so many bytes of the page, block by block
  std::optional<std::uint32_t> block_length = {};       // what the header of block block_index says
  std::optional<std::uint32_t> information_bytes = {};  // device information is cut there
  std::optional<std::uint32_t> information_length = {};  // what its header says
};

// ParseFault changes `faults` as one word asks: a name, or name=value. Words may be joined by
// commas. Gives an empty text, or what is wrong with the word. docs/virtual-device.md lists them.
std::string ParseFault(const std::string& words, Faults& faults);

}  // namespace vox::sim
