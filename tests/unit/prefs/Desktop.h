// Desktop is a user and a machine of the test's own: a home, a machine root, and services that say
// what the test wants them to say. start() is a program that starts anew.
#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "tests/unit/core/Scratch.h"
#include "vox/UserPreferences.h"
#include "vox/platform/HostName.h"
#include "vox/platform/MeasurementUnits.h"
#include "vox/platform/Mounts.h"
#include "vox/platform/SystemLog.h"

namespace vox {

class FakeMounts final : public MountTable {
 public:
  std::vector<Mount> Mounts() override { return mounts; }
  std::vector<Mount> mounts;
};

class FakeHostName final : public HostName {
 public:
  std::string Name() override { return name; }
  std::string name = "host";
};

class FakeUnits final : public MeasurementUnits {
 public:
  std::string Name() override {
    ++asked;
    return name;
  }
  std::string name = "Centimeters";
  int asked = 0;
};

class Desktop : public ::testing::Test {
 protected:
  Desktop()
      : root_("VOX_ROOT", Path("root")),
        home_("HOME", Path("home")),
        config_("XDG_CONFIG_HOME", Path("home/.config")),
        data_("XDG_DATA_HOME"),
        tmpdir_("TMPDIR", Path("tmp")),
        held_mounts_(mounts_),
        held_host_(host_),
        held_units_(units_),
        before_(SetSystemLogSink([this](const std::string& line) { log_.push_back(line); })) {
    for (const char* folder : {"root/var/lib", "root/usr/share", "home/.config", "tmp"}) {
      std::filesystem::create_directories(Path(folder));
    }
  }
  ~Desktop() override { SetSystemLogSink(before_); }

  std::string Path(const std::string& leaf) const { return scratch_.Path(leaf); }
  std::string Folder(const std::string& leaf) const {
    std::filesystem::create_directories(Path(leaf));
    return Path(leaf);
  }
  std::string UserFile() const { return Path("home/.config/com.veltronix.vox.plist"); }

  static UserPreferences& Prefs() { return UserPreferences::instance(); }
  void Start() {
    fresh_.reset();
    fresh_.emplace();
  }

  static void Write(const std::string& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
  }
  static std::string Text(const std::string& path) {
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
  }
  static Dictionary Stored(const std::string& path) { return ReadDictionaryFile(path).content; }
  static unsigned ModeOf(const std::string& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 ? status.st_mode & 07777u : 0;
  }

  Scratch scratch_;
  Variable root_, home_, config_, data_, tmpdir_;
  FakeMounts mounts_;
  FakeHostName host_;
  FakeUnits units_;
  const MountTable::Replaced held_mounts_;
  const HostName::Replaced held_host_;
  const MeasurementUnits::Replaced held_units_;
  std::vector<std::string> log_;
  SystemLogSink before_;
  std::optional<UserPreferences::Fresh> fresh_{std::in_place};
};

}  // namespace vox
