#include "sim/Faults.h"

#include <charconv>
#include <functional>
#include <iterator>
#include <limits>
#include <string_view>
#include <utility>

namespace vox::sim {
namespace {

// "a:b" gives a and b; without a colon b is empty.
std::pair<std::string_view, std::string_view> Split(std::string_view text, char at) {
  const std::size_t place = text.find(at);
  if (place == std::string_view::npos) return {text, {}};
  return {text.substr(0, place), text.substr(place + 1)};
}

// Decimal, or hexadecimal behind 0x.
template <typename T>
bool ReadNumber(std::string_view text, T& number) {
  int base = 10;
  if (text.starts_with("0x")) {
    base = 16;
    text.remove_prefix(2);
  }
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
  return error == std::errc{} && end == text.data() + text.size();
}

template <typename T>
bool ReadOptional(std::string_view text, std::optional<T>& number) {
  T value{};
  if (!ReadNumber(text, value)) return false;
  number = value;
  return true;
}

// A count that may be left out: every time then.
bool ReadCount(std::string_view text, std::uint32_t& count) {
  count = Faults::kEveryTime;
  return text.empty() || ReadNumber(text, count);
}

template <typename Value, std::size_t kSize>
bool Look(const std::pair<std::string_view, Value> (&table)[kSize], std::string_view name,
          Value& value) {
  for (const auto& [known, meaning] : table) {
    if (known != name) continue;
    value = meaning;
    return true;
  }
  return false;
}

constexpr std::pair<std::string_view, Stage> kStages[] = {
    {"always", Stage::kAlways},          {"scan", Stage::kScanCommand},
    {"request", Stage::kPageRequest},    {"start", Stage::kStartNotice},
    {"info", Stage::kScanInfo},          {"data", Stage::kData},
    {"end-connect", Stage::kEndConnect}, {"end", Stage::kEndNotice},
    {"cancel", Stage::kCancel},          {"device-info", Stage::kDeviceInfo},
    {"standby", Stage::kStandby}};

constexpr std::pair<std::string_view, std::chrono::milliseconds Delays::*> kDelays[] = {
    {"snmp", &Delays::snmp},
    {"reply", &Delays::reply},
    {"connect", &Delays::connect},
    {"start", &Delays::start_notice},
    {"info", &Delays::scan_info},
    {"data", &Delays::data},
    {"end-connect", &Delays::end_connect},
    {"end", &Delays::end_notice}};

constexpr std::pair<std::string_view, ReplyFault> kReplies[] = {
    {"wrong-sequence", ReplyFault::kWrongSequence},
    {"twice", ReplyFault::kTwice},
    {"stranger", ReplyFault::kStranger},
    {"other-source", ReplyFault::kOtherSource},
    {"cut", ReplyFault::kCut},
    {"long", ReplyFault::kLong}};

constexpr std::pair<std::string_view, SnmpFault> kSnmp[] = {
    {"twice", SnmpFault::kTwice},
    {"other-source", SnmpFault::kOtherSource},
    {"garbage", SnmpFault::kGarbage},
    {"cut", SnmpFault::kCut}};

constexpr std::pair<std::string_view, BlockFault> kBlocks[] = {
    {"width", BlockFault::kWidth},      {"too-long", BlockFault::kTooLong},
    {"hostile", BlockFault::kHostile},  {"huge", BlockFault::kHuge},
    {"no-lines", BlockFault::kNoLines}, {"more-lines", BlockFault::kMoreLines},
    {"garbage", BlockFault::kGarbage},  {"cut-header", BlockFault::kCutHeader},
    {"cut-data", BlockFault::kCutData}};

bool ReadSilence(std::string_view text, bool whole_device, Silence& silence) {
  const auto [stage, bytes] = Split(text.empty() ? "always" : text, ':');
  silence.whole_device = whole_device;
  silence.after_bytes = 0;
  if (!Look(kStages, stage, silence.at)) return false;
  return bytes.empty() || (silence.at == Stage::kData && ReadNumber(bytes, silence.after_bytes));
}

bool ReadStop(std::string_view text, Stop& stop) {
  const auto [stage, bytes] = Split(text, ':');
  stop.after_bytes = 0;
  return Look(kStages, stage, stop.at) && (bytes.empty() || ReadNumber(bytes, stop.after_bytes));
}

bool ReadNotReady(std::string_view text, NotReady& wait) {
  const auto [headers, pause] = Split(text, ':');
  std::uint32_t milliseconds = 0;
  if (!ReadNumber(headers, wait.headers)) return false;
  if (!pause.empty() && !ReadNumber(pause, milliseconds)) return false;
  wait.pause = std::chrono::milliseconds(milliseconds);
  return true;
}

bool ReadDelay(std::string_view text, Delays& delays) {
  const auto [where, time] = Split(text, ':');
  std::chrono::milliseconds Delays::*place = nullptr;
  std::uint32_t milliseconds = 0;
  if (!Look(kDelays, where, place) || !ReadNumber(time, milliseconds)) return false;
  delays.*place = std::chrono::milliseconds(milliseconds);
  return true;
}

bool ReadReply(std::string_view text, Faults& faults) {
  const auto [kind, bytes] = Split(text, ':');
  if (!Look(kReplies, kind, faults.reply)) return false;
  const bool sized = faults.reply == ReplyFault::kCut || faults.reply == ReplyFault::kLong;
  if (bytes.empty()) return true;
  return sized && ReadNumber(bytes, faults.reply_bytes) && faults.reply_bytes <= 1472;
}

bool ReadSnmp(std::string_view text, Faults& faults) {
  const auto [kind, count] = Split(text, ':');
  return Look(kSnmp, kind, faults.snmp) && ReadCount(count, faults.snmp_answers);
}

bool ReadBlock(std::string_view text, Faults& faults) {
  const auto [kind, index] = Split(text, ':');
  return Look(kBlocks, kind, faults.block) &&
         (index.empty() || ReadNumber(index, faults.block_index));
}

bool ReadBlockLength(std::string_view text, Faults& faults) {
  const auto [length, index] = Split(text, ':');
  return ReadOptional(length, faults.block_length) &&
         (index.empty() || ReadNumber(index, faults.block_index));
}

bool ReadRegisterReply(std::string_view text, Faults& faults) {
  const auto [code, count] = Split(text, ':');
  return ReadOptional(code, faults.register_reply) && ReadCount(count, faults.register_replies);
}

bool ReadSwitch(std::string_view text, bool& on) {
  on = true;
  return text.empty();
}

using Reader = bool (*)(std::string_view value, Faults& faults);
constexpr std::pair<std::string_view, Reader> kWords[] = {
    {"silent", [](auto v, Faults& f) { return ReadSilence(v, true, f.silence); }},
    {"stall", [](auto v, Faults& f) { return ReadSilence(v, false, f.silence); }},
    {"delay", [](auto v, Faults& f) { return ReadDelay(v, f.delays); }},
    {"busy", [](auto v, Faults& f) { return ReadCount(v, f.busy); }},
    {"no-document", [](auto v, Faults& f) { return ReadCount(v, f.no_document); }},
    {"scan-reply", [](auto v, Faults& f) { return ReadOptional(v, f.scan_reply); }},
    {"cancel-reply", [](auto v, Faults& f) { return ReadOptional(v, f.cancel_reply); }},
    {"register-reply", ReadRegisterReply},
    {"snmp", ReadSnmp},
    {"sleep-after", [](auto v, Faults& f) { return ReadOptional(v, f.sleep_after); }},
    {"reply", ReadReply},
    {"replies", [](auto v, Faults& f) { return ReadNumber(v, f.replies); }},
    {"page", [](auto v, Faults& f) { return ReadNumber(v, f.page); }},
    {"start-cut", [](auto v, Faults& f) { return ReadNumber(v, f.start_notice_bytes); }},
    {"bad-start", [](auto v, Faults& f) { return ReadSwitch(v, f.bad_start_notice); }},
    {"info-cut", [](auto v, Faults& f) { return ReadNumber(v, f.scan_info_bytes); }},
    {"close-after", [](auto v, Faults& f) { return ReadOptional(v, f.close_after); }},
    {"reset", [](auto v, Faults& f) { return ReadSwitch(v, f.reset); }},
    {"block", ReadBlock},
    {"not-ready", [](auto v, Faults& f) { return ReadNumber(v, f.end_not_ready); }},
    {"end-code", [](auto v, Faults& f) { return ReadOptional(v, f.end_code); }},
    {"end-split", [](auto v, Faults& f) { return ReadNumber(v, f.end_split); }},
    {"end-cut", [](auto v, Faults& f) { return ReadNumber(v, f.end_notice_bytes); }},
    {"unplug", [](auto v, Faults& f) { return ReadStop(v, f.unplug); }},
    {"halt-in", [](auto v, Faults& f) { return ReadStop(v, f.halt_in); }},
    {"halt-out", [](auto v, Faults& f) { return ReadStop(v, f.halt_out); }},
    {"pending-first", [](auto v, Faults& f) { return ReadNotReady(v, f.first); }},
    {"pending", [](auto v, Faults& f) { return ReadNotReady(v, f.every); }},
    {"check-error", [](auto v, Faults& f) { return ReadOptional(v, f.check_error); }},
    {"block-length", ReadBlockLength},
    {"info-bytes", [](auto v, Faults& f) { return ReadOptional(v, f.information_bytes); }},
    {"info-length", [](auto v, Faults& f) { return ReadOptional(v, f.information_length); }}};

std::string ParseWord(std::string_view word, Faults& faults) {
  const auto [name, value] = Split(word, '=');
  Reader reader = nullptr;
  if (Look(kWords, name, reader) && reader(value, faults)) return {};
  std::string error = reader == nullptr ? "no such fault: " : "a fault that makes no sense: ";
  error.append(word);
  return error;
}

}  // namespace

std::string ParseFault(const std::string& words, Faults& faults) {
  std::string_view rest = words;
  Faults result = faults;
  while (true) {
    const std::size_t comma = rest.find(',');
    std::string error = ParseWord(rest.substr(0, comma), result);
    if (!error.empty()) return error;
    if (comma == std::string_view::npos) break;
    rest.remove_prefix(comma + 1);
  }
  faults = result;
  return {};
}

}  // namespace vox::sim
