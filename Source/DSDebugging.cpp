#include "vox/DSDebugging.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>
#include <optional>
#include <utility>

#include "vox/platform/Mutex.h"
#include "vox/platform/PropertyListFile.h"
#include "vox/platform/Resources.h"

namespace vox {
namespace {

constexpr std::uint16_t MSG_PROCESSEVENT = 0x0601;
constexpr std::uint16_t DAT_CAPABILITY = 1;
constexpr int max_text = 65535;  // bytes of a formatted value

constexpr char group_label[] = "     group : ";
constexpr char dat_label[] = " attribute : ";
constexpr char msg_label[] = "   message : ";
constexpr char cap_label[] = "capability : ";
constexpr char rc_label[] = "    result : ";
constexpr char cc_label[] = " Condition : ";
constexpr char decimal[] = "%d";
constexpr char hexadecimal[] = "0x%04x";

using Names = std::shared_ptr<const Dictionary>;
Mutex names_mutex;

// Never destroyed: threads may trace while the process ends.
Names& the_names() VOX_REQUIRES(names_mutex) {
  static Names& names = *new Names;
  return names;
}

void load_names() {
  DictionaryFile file = ReadDictionaryFile(ResourcePath("DSDebug", "plist"));
  Names names;
  if (file.state == FileState::Whole)
    names = std::make_shared<const Dictionary>(std::move(file.content));
  MutexLock lock(names_mutex);
  the_names() = std::move(names);
}

std::optional<std::string> name_of(const char* key, const std::string& text) {
  Names names;
  {
    MutexLock lock(names_mutex);
    names = the_names();
  }
  const Dictionary* category = names ? names->AsDictionary(key) : nullptr;
  return category != nullptr ? category->String(text) : std::nullopt;
}

// The format is the caller's literal: compilers check it where DS_LogValue is called.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
std::string formatted(const char* format, int value) {
  char shorter[256];
  const int size = std::snprintf(shorter, sizeof shorter, format, value);
  if (size < static_cast<int>(sizeof shorter)) return size > 0 ? shorter : "";
  std::string text(static_cast<std::size_t>(std::min(size, max_text)) + 1, '\0');
  std::snprintf(text.data(), text.size(), format, value);
  text.pop_back();
  return text;
}
#pragma GCC diagnostic pop

void write_text(const std::string& text) {
  std::fwrite(text.data(), 1, text.size(), stderr);
}

}  // namespace

const char* const DEBUG_LOG_FILENAME = "/Users/Shared/twlog.txt";

std::string debug_banner(int hour, int minute, double seconds) {
  char time[64];
  std::snprintf(time, sizeof time, "%02d:%02d:%06.3f", hour, minute, seconds + 0.0005);
  const std::string rule = std::string(65, '*') + "\n";
  return rule + "TWAIN mach-o DS Debug Log - " + time + "  \n" + rule;
}

void DS_DebugInitialize() {
  timespec now{};
  std::tm local{};
  ::clock_gettime(CLOCK_REALTIME, &now);
  ::localtime_r(&now.tv_sec, &local);
  const double seconds = local.tm_sec + static_cast<double>(now.tv_nsec) / 1e9;
  write_text(debug_banner(local.tm_hour, local.tm_min, seconds));
  load_names();
}

void DS_DebugTerminate() {
  write_text(std::string(80, '-') + "\n");
}

void DS_LogTriplet(std::uint32_t group, std::uint16_t dat, std::uint16_t msg, const void* data) {
  if (msg == MSG_PROCESSEVENT) return;
  DS_LogValue(group_label, "DataGroup", decimal, static_cast<int>(group));
  DS_LogValue(dat_label, "Attribute", hexadecimal, dat);
  DS_LogValue(msg_label, "Messages", hexadecimal, msg);
  if (dat == DAT_CAPABILITY && data != nullptr) {
    std::uint16_t capability = 0;
    std::memcpy(&capability, data, sizeof capability);
    DS_LogValue(cap_label, "Capabilities", hexadecimal, capability);
  }
  write_text("\n");
}

void DS_LogResult(std::uint16_t rc, std::uint16_t cc) {
  if (rc == 0 || rc == 4 || rc == 5) return;
  DS_LogValue(rc_label, "Result", decimal, rc);
  if (cc != 0) DS_LogValue(cc_label, "Condition", decimal, cc);
  write_text("\n");
}

void DS_LogMessage(std::uint16_t msg) {
  DS_LogValue(msg_label, "Messages", hexadecimal, msg);
}

void DS_LogValue(const char* label, const char* key, const char* format, int value) {
  const std::string text = formatted(format, value);
  const auto name = name_of(key, text);
  std::string line = std::string(label) + " [" + text + "]";
  if (name) line += " - " + *name;
  write_text(line + "\n");
}

void DS_LogText(const char* /*format*/, ...) {}

}  // namespace vox
