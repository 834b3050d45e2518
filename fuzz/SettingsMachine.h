// SettingsMachine is a machine of the process's own, which vanishes with it, and whose shared
// settings file holds whatever bytes a target puts there. Expect ends the process when a property
// fails.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "vox/UserPreferences.h"

namespace vox::fuzz {

inline void Expect(bool holds) {
  if (!holds) std::abort();
}

class SettingsMachine {
 public:
  SettingsMachine() {
    std::string name = (std::filesystem::temp_directory_path() / "vox-fuzz-XXXXXX").string();
    Expect(::mkdtemp(name.data()) != nullptr);
    root_ = name;
    ::setenv("VOX_ROOT", root_.c_str(), 1);
    ::setenv("XDG_CONFIG_HOME", root_.c_str(), 1);
    std::filesystem::create_directories(root_ / "var/lib/Veltronix Vox");
  }
  ~SettingsMachine() { std::filesystem::remove_all(root_); }
  SettingsMachine(const SettingsMachine&) = delete;
  SettingsMachine& operator=(const SettingsMachine&) = delete;

  // Put makes these bytes the shared settings file.
  void Put(const std::uint8_t* data, std::size_t size) const {
    std::ofstream(UserPreferences::instance().pathToGlobalSettings(), std::ios::binary)
        .write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
  }

 private:
  std::filesystem::path root_;
};

}  // namespace vox::fuzz
