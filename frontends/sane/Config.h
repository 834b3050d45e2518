// vox.conf: one word and its value a line, comments behind '#'. docs/sane.md has the words.
//
// What is not understood is left out, and logged with its line number; a file that cannot be read
// counts as empty. Thread rule: values and pure functions.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace vox::sane {

struct Config {
  std::vector<std::string> devices;  // "net:..." or "usb:...", in their order, none twice
  bool discovery = true;
  bool network_when_local_only = false;

  friend bool operator==(const Config&, const Config&) = default;
};

inline constexpr std::size_t kLongestConfig = std::size_t{1} << 20;  // bytes that are read
inline constexpr std::size_t kMostConfigDevices = 1'000;

Config ParseConfig(std::string_view text);

// ConfigFolders gives the folders in which vox.conf is looked for: those of SANE_CONFIG_DIR, with
// SANE's own usual one where the variable is missing or ends in ':'. The current folder, which
// SANE's usual value begins with, is left out: who starts a program in a folder need not trust what
// lies there.
std::vector<std::string> ConfigFolders(const char* sane_config_dir);

// LoadConfig reads the first vox.conf in these folders.
Config LoadConfig(const std::vector<std::string>& folders);

}  // namespace vox::sane
