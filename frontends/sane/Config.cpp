#include "frontends/sane/Config.h"

#include <algorithm>
#include <filesystem>
#include <optional>

#include <fcntl.h>
#include <sys/stat.h>

#include "frontends/sane/Log.h"
#include "vox/platform/FileDescriptor.h"

namespace vox::sane {

namespace {

constexpr char kBlanks[] = " \t\r";
constexpr std::size_t kLongestName = 255;

std::string_view TakeWord(std::string_view& rest) {
  const std::size_t begin = std::min(rest.find_first_not_of(kBlanks), rest.size());
  const std::size_t end = std::min(rest.find_first_of(kBlanks, begin), rest.size());
  const std::string_view word = rest.substr(begin, end - begin);
  rest.remove_prefix(end);
  return word;
}

bool IsDevice(std::string_view name) {
  const bool kind = name.starts_with("net:") || name.starts_with("usb:");
  const bool printable =
      std::all_of(name.begin(), name.end(), [](char c) { return c > ' ' && c < 0x7F; });
  return kind && name.size() > 4 && name.size() <= kLongestName && printable;
}

bool AddDevice(Config& config, std::string_view name) {
  if (!IsDevice(name)) return false;
  auto& devices = config.devices;
  if (std::find(devices.begin(), devices.end(), name) != devices.end()) return true;
  if (devices.size() >= kMostConfigDevices) return false;
  devices.emplace_back(name);
  return true;
}

bool SetSwitch(bool& into, std::string_view value) {
  if (value != "on" && value != "off") return false;
  into = value == "on";
  return true;
}

bool TakeLine(Config& config, std::string_view line) {
  line = line.substr(0, line.find('#'));
  const std::string_view word = TakeWord(line), value = TakeWord(line);
  if (word.empty()) return true;
  if (!TakeWord(line).empty()) return false;
  if (word == "device") return AddDevice(config, value);
  if (word == "discovery") return SetSwitch(config.discovery, value);
  return word == "network-when-local-only" && SetSwitch(config.network_when_local_only, value);
}

bool IsCurrentFolder(std::string_view folder) {
  const auto plain = std::filesystem::path(folder).lexically_normal();
  return plain.empty() || plain == "." || plain == "./";
}

std::optional<std::string> ReadText(const std::string& path) {
  const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  struct stat about {};
  if (!file || ::fstat(file.Get(), &about) != 0 || !S_ISREG(about.st_mode)) return std::nullopt;
  std::string text;
  char piece[4096];
  while (text.size() < kLongestConfig) {
    const ssize_t got =
        ::read(file.Get(), piece, std::min(sizeof piece, kLongestConfig - text.size()));
    if (got <= 0) break;
    text.append(piece, static_cast<std::size_t>(got));
  }
  return text;
}

}  // namespace

Config ParseConfig(std::string_view text) {
  Config config;
  for (int number = 1; !text.empty(); ++number) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    if (!TakeLine(config, text.substr(0, end)))
      Log(1, "vox.conf: line %d is not understood and left out", number);
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return config;
}

std::vector<std::string> ConfigFolders(const char* sane_config_dir) {
  std::vector<std::string> folders;
  std::string_view rest = sane_config_dir != nullptr ? sane_config_dir : "";
  const bool usual_too = rest.empty() || rest.ends_with(':');
  while (!rest.empty()) {
    const std::size_t end = std::min(rest.find(':'), rest.size());
    const std::string_view folder = rest.substr(0, end);
    if (!IsCurrentFolder(folder)) folders.emplace_back(folder);
    rest.remove_prefix(std::min(end + 1, rest.size()));
  }
  if (usual_too) folders.emplace_back(VOX_SANE_CONFIG_FOLDER);
  return folders;
}

Config LoadConfig(const std::vector<std::string>& folders) {
  for (const std::string& folder : folders) {
    const std::string path = folder + "/vox.conf";
    if (const auto text = ReadText(path)) {
      Log(2, "settings from %s", path.c_str());
      return ParseConfig(*text);
    }
  }
  return {};
}

}  // namespace vox::sane
