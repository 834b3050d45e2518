// vox settings in JSON: what holds when a setting was never set has the type of its value.
#include <filesystem>
#include <fstream>
#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "tests/e2e/VoxProgram.h"

namespace vox::cli::test {
namespace {

using ordered = nlohmann::ordered_json;
using testing::ElementsAre;

class SettingsJson : public testing::Test {
 protected:
  SettingsJson() {
    std::filesystem::create_directories(vox_.File("root/var/lib/Veltronix Vox"));
    std::filesystem::create_directories(vox_.File("home/Documents"));
    std::filesystem::create_directories(vox_.File("config"));
    ::setenv("VOX_ROOT", vox_.File("root").c_str(), 1);
    ::setenv("XDG_CONFIG_HOME", vox_.File("config").c_str(), 1);
    ::setenv("HOME", vox_.File("home").c_str(), 1);
  }
  ordered Get(const std::string& key) {
    const ordered record = ordered::parse(vox_.Run("settings get " + key + " --json").out);
    std::vector<std::string> keys;
    for (const auto& item : record.items()) keys.push_back(item.key());
    EXPECT_THAT(keys, ElementsAre("key", "value", "store", "default", "meaning")) << key;
    EXPECT_TRUE(record["meaning"].is_string() && !record["meaning"].empty()) << key;
    return record;
  }

  VoxProgram vox_;
};

TEST_F(SettingsJson, TheDefaultIsWhatHoldsAndHasTheValuesType) {
  for (const char* key : {"computerName", "showComputerName", "jpegCompressionFactor",
                          "LastScannerDeviceId", "ocrApplicationPath"})
    EXPECT_EQ(Get(key)["value"], Get(key)["default"]) << key << " was never set";
  EXPECT_EQ(Get("pushScanTargetPath")["default"], vox_.File("home/Documents"));
  EXPECT_EQ(Get("showComputerName")["default"], true);
  EXPECT_EQ(Get("jpegCompressionFactor")["default"], 0.8);
  EXPECT_EQ(Get("LastScannerDeviceId")["default"], nullptr);
  const ordered name = Get("computerName")["default"];
  EXPECT_TRUE(name.is_string());
  for (const char* set : {"computerName desk", "showComputerName no", "jpegCompressionFactor 0.5",
                          "pushScanTargetPath /usr", "ocrApplicationPath /bin/sh"})
    EXPECT_EQ(vox_.Run(std::string("settings set ") + set).status, 0) << set;
  std::istringstream lines(vox_.Run("settings list --json").out);
  for (std::string line; std::getline(lines, line);) {
    const ordered record = ordered::parse(line);
    const ordered &value = record["value"], &usual = record["default"];
    EXPECT_TRUE(value.is_null() || usual.is_null() || value.type() == usual.type()) << line;
    EXPECT_TRUE(value.is_null() || value != usual) << line;
  }
  EXPECT_EQ(Get("computerName")["default"], name) << "what was set does not matter";
}

TEST_F(SettingsJson, WhatProgramsSavedForADeviceHasTheSameKeys) {
  EXPECT_EQ(Get("Settings.02:56")["value"], nullptr);
  std::ofstream(vox_.File("config/com.veltronix.vox.plist"))
      << "<plist version=\"1.0\"><dict><key>Settings.02:56</key><dict><key>dpi</key>"
         "<integer>300</integer></dict></dict></plist>";
  const ordered record = Get("Settings.02:56");
  EXPECT_EQ(record["value"], ordered({{"dpi", 300}}));
  EXPECT_EQ(record["store"], "user");
  EXPECT_EQ(record["default"], nullptr);
}

}  // namespace
}  // namespace vox::cli::test
