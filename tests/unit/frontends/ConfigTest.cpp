// vox.conf: what its words mean, what is left out, and where it is looked for.
#include "frontends/sane/Config.h"

#include <fstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/unit/core/Scratch.h"

namespace vox::sane {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(SaneConfig, AnEmptyFileIsTheUsual) {
  const Config usual;
  EXPECT_THAT(usual.devices, IsEmpty());
  EXPECT_TRUE(usual.discovery);
  EXPECT_FALSE(usual.network_when_local_only);
  EXPECT_EQ(ParseConfig(""), usual);
  EXPECT_EQ(ParseConfig("\n\n# device net:1.2.3.4\n   # x\n\r\n"), usual);
}

TEST(SaneConfig, ReadsEveryWord) {
  const Config config = ParseConfig(
      "device net:192.168.0.5   # the copier\n\tdevice usb:A7K0123\r\ndiscovery off\n"
      "network-when-local-only on");
  EXPECT_THAT(config.devices, ElementsAre("net:192.168.0.5", "usb:A7K0123"));
  EXPECT_FALSE(config.discovery);
  EXPECT_TRUE(config.network_when_local_only);
}

TEST(SaneConfig, TheLastOfTwoSwitchesHolds) {
  EXPECT_TRUE(ParseConfig("discovery off\ndiscovery on\n").discovery);
}

TEST(SaneConfig, ADeviceIsTakenOnce) {
  EXPECT_THAT(ParseConfig("device net:a\ndevice net:b\ndevice net:a\n").devices,
              ElementsAre("net:a", "net:b"));
}

TEST(SaneConfig, LeavesOutWhatItDoesNotUnderstandAndKeepsTheRest) {
  const char* const bad[] = {"device",
                             "device net:",
                             "device 192.168.0.5",
                             "device net:a b",
                             "device net:\x1b[2J",
                             "device net:caf\xc3\xa9",
                             "discovery maybe",
                             "discovery",
                             "discovery off on",
                             "Discovery off",
                             "option x"};
  for (const std::string line : bad) {
    const Config config = ParseConfig(line + "\ndevice usb:B\n");
    EXPECT_THAT(config.devices, ElementsAre("usb:B")) << line;
    EXPECT_TRUE(config.discovery) << line;
  }
  EXPECT_THAT(ParseConfig("device net:" + std::string(300, 'a')).devices, IsEmpty());
}

TEST(SaneConfig, TakesSoManyDevicesAndNoMore) {
  std::string text;
  for (std::size_t i = 0; i < kMostConfigDevices + 5; ++i)
    text += "device net:host" + std::to_string(i) + "\n";
  EXPECT_EQ(ParseConfig(text).devices.size(), kMostConfigDevices);
}

TEST(SaneConfig, TheCurrentFolderIsNotLookedInto) {
  const auto usual = ConfigFolders(nullptr);
  ASSERT_EQ(usual.size(), 1U);
  EXPECT_THAT(usual[0], testing::EndsWith("/sane.d"));
  EXPECT_EQ(ConfigFolders(""), usual);
  EXPECT_EQ(ConfigFolders(".:"), usual);
  EXPECT_THAT(ConfigFolders(".:/etc/x"), ElementsAre("/etc/x"));
  EXPECT_THAT(ConfigFolders("./:./.:a/..:/x"), ElementsAre("/x"));
  EXPECT_THAT(ConfigFolders("conf:/x"), ElementsAre("conf", "/x"));
  EXPECT_THAT(ConfigFolders("/x:"), ElementsAre("/x", usual[0]));
}

TEST(SaneConfig, TheFirstFolderThatHasAFileHolds) {
  const Scratch scratch;
  for (const std::string leaf : {"a", "b"}) std::filesystem::create_directory(scratch.Path(leaf));
  std::ofstream(scratch.Path("b") + "/vox.conf") << "discovery off\n";
  const std::vector<std::string> both{scratch.Path("a"), scratch.Path("b")};
  EXPECT_FALSE(LoadConfig(both).discovery);
  std::ofstream(scratch.Path("a") + "/vox.conf") << "discovery on\n";
  EXPECT_TRUE(LoadConfig(both).discovery);
}

TEST(SaneConfig, AFolderInPlaceOfTheFileAndAHugeFileDoNoHarm) {
  const Scratch scratch;
  std::filesystem::create_directory(scratch.Path("vox.conf"));
  EXPECT_EQ(LoadConfig({scratch.Path("")}), Config());
  const Scratch other;
  std::ofstream(other.Path("vox.conf"))
      << "discovery off\n"
      << std::string(2 * kLongestConfig, '#') << "\ndiscovery on\n";
  EXPECT_FALSE(LoadConfig({other.Path("")}).discovery);
}

}  // namespace
}  // namespace vox::sane
