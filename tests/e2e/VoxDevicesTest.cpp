// The vox program with devices on a network: found, remembered, named, registered with, scanned
// from, and gone. Each case runs in a network namespace of its own, in which virtual devices have
// the protocol's own ports on loopback addresses.
#include <filesystem>
#include <fstream>
#include <sstream>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "tests/e2e/VoxDevices.h"

namespace vox::cli::test {
namespace {

using nlohmann::json;
using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

constexpr char kOffice[] = "02:56:58:00:00:02";  // 127.0.0.2
constexpr char kCellar[] = "02:56:58:00:00:03";  // 127.0.0.3

TEST_F(VoxDevices, AScanByNameIsRememberedAsTheLastUse) {
  Put(2, "Office");
  Put(3, "Cellar");
  Good("add 127.0.0.2");
  Good("add net:127.0.0.3");
  ExpectFailure("info", 4, "Name one of Cellar (127.0.0.3)");
  EXPECT_EQ(Good("scan off --mode gray --resolution 75 --frame 0,0,30,30 -o a.png"),
            "a.png: page 1, 89 x 89 pixels, gray, 75 dpi\n");
  EXPECT_EQ(json::parse(Good("settings get lastscannerdeviceid --json"))["value"], kOffice);
  EXPECT_EQ(json::parse(Good("info --json"))["deviceId"], kOffice);
  Good("scan net:127.0.0.3 --mode gray --resolution 75 --frame 0,0,30,30 -o b.png");
  EXPECT_EQ(json::parse(Good("info --json"))["deviceId"], kCellar);
}

TEST_F(VoxDevices, AddTellsWhatItFindsAtAnAddress) {
  Put(2, "Office");
  Good("add 127.0.0.2 --json");
  EXPECT_THAT(Good("add 127.0.0.2"), StartsWith("known already: Office"));
  devices_.clear();
  sim::DeviceOptions renamed = At(2, 2);
  renamed.name = "Study";
  Put(std::move(renamed));
  EXPECT_THAT(Good("add 127.0.0.2"), StartsWith("changed: Study"));
  ExpectFailure("add 127.0.0.9", 9, "no device answers at 127.0.0.9");
}

TEST_F(VoxDevices, AModelThatIsNotSupportedIsFour) {
  sim::DeviceOptions options = At(4, 4);
  options.model = "Typewriter";
  Put(std::move(options));
  ExpectFailure("add 127.0.0.4", 4, "is a Veltronix Typewriter, which is not supported");
}

TEST_F(VoxDevices, AListHasEveryRecordByNameAndOnlineAsksThem) {
  Put(2, "Office");
  Put(3, "Cellar");
  Good("add 127.0.0.2");
  Good("add 127.0.0.3");
  EXPECT_EQ(Good("list"),
            "127.0.0.3       Cellar                  Veltronix QD7200        02:56:58:00:00:03\n"
            "127.0.0.2       Office                  Veltronix QD7200        02:56:58:00:00:02\n");
  devices_[0]->Stop();
  const Outcome outcome = Vox("list --online --json");  // a note says where pings are not permitted
  const auto devices = Objects(outcome.out);
  ASSERT_EQ(devices.size(), 2U);
  EXPECT_EQ(devices[0]["online"], true) << outcome.err;
  EXPECT_EQ(devices[1]["online"], false);
}

TEST_F(VoxDevices, WhatIsRemovedIsForgotten) {
  Put(2, "Office");
  Good("add 127.0.0.2");
  ExpectFailure("remove cellar", 4, "no remembered device is called cellar");
  ExpectFailure("remove net:127.0.0.1", 4, "no device with the address of net:127.0.0.1");
  EXPECT_EQ(Good("remove OFFICE"), "forgotten: Office (127.0.0.2)\n");
  EXPECT_THAT(Vox("list").err, HasSubstr("no device is remembered"));
}

TEST_F(VoxDevices, ARememberedDeviceThatIsOffSaysWhatWasTried) {
  Put(2, "Office");
  Good("add 127.0.0.2");
  devices_[0]->Stop();
  ExpectFailure("scan office -o a.png", 9, "asked over SNMP at 127.0.0.2");
}

TEST_F(VoxDevices, AnAddressThatPassedToAnotherDeviceIsNotUsed) {
  Put(2, "Office");
  Good("add 127.0.0.2");
  devices_.clear();
  Put(At(2, 1));
  ExpectFailure("scan office -o a.png", 9, "another device, 02:56:58:00:00:01, answers");
}

TEST_F(VoxDevices, RegistrationsAreToldAsTheyAreAndKept) {
  const sim::VirtualDevice& office = Put(2, "Office");
  Good("add 127.0.0.2");
  Good("settings set computerName desk");
  EXPECT_EQ(Good("register office"), "Office (127.0.0.2): lists this computer as desk\n");
  ASSERT_EQ(office.Registrations().size(), 1U);
  EXPECT_EQ(office.Registrations()[0].host_name, "desk");
  Good("unregister --all");
  EXPECT_THAT(office.Registrations(), IsEmpty());
  EXPECT_EQ(json::parse(Good("list --json"))["isNetworkPushEnabled"], false);
  EXPECT_EQ(json::parse(Good("register office --json"))["result"], "accepted");
  EXPECT_EQ(json::parse(Good("list --json"))["isNetworkPushEnabled"], true);
}

TEST_F(VoxDevices, EachDeviceThatRefusesIsToldOfAndTheFirstGivesTheStatus) {
  sim::Faults busy, refusing;
  busy.register_reply = 0xD4;
  refusing.register_reply = 0xE4;
  Put(2, "Office", refusing);
  Put(3, "Cellar", busy);
  Put(4, "Attic");
  for (const char* host : {"2", "3", "4"}) Good(std::string("add 127.0.0.") + host);
  Good("unregister attic office cellar");
  const Outcome outcome = Vox("register --all --json");
  EXPECT_EQ(outcome.status, 3);
  EXPECT_EQ(outcome.err,
            "vox: cannot register with Cellar (127.0.0.3): it is busy; try again when it has "
            "finished\n"
            "vox: cannot register with Office (127.0.0.2): it refused; its list may be full, look "
            "at its panel\n");
  const auto devices = Objects(outcome.out);
  ASSERT_EQ(devices.size(), 3U);
  EXPECT_EQ(devices[0]["result"], "accepted");
  EXPECT_EQ(devices[1]["reply"], 0xD4);
  EXPECT_EQ(devices[2]["result"], "refused");
  EXPECT_EQ(devices[2]["isNetworkPushEnabled"], false) << "a refusal changes nothing";
}

TEST_F(VoxDevices, ASearchWithoutARouteSaysSo) {
  ExpectFailure("discover", 9, "no route to 255.255.255.255");
}

TEST_F(VoxDevices, ADamagedFileIsKeptAndReportedOnce) {
  Put(2, "Office");
  std::ofstream(SharedFile()) << "no property list";
  const Outcome first = Vox("list");
  EXPECT_THAT(first.err, HasSubstr("were damaged and count as empty; they are kept as " +
                                   SharedFile() + ".damaged"));
  Good("add 127.0.0.2");
  EXPECT_TRUE(std::filesystem::exists(SharedFile() + ".damaged"));
}

TEST_F(VoxDevices, AMissingFolderIsOneLineWithHowToMakeIt) {
  Put(2, "Office");
  std::filesystem::remove(Shared());
  ExpectFailure("add 127.0.0.2", 9, "make its folder: sudo install -d -m 2775 -g scanner");
}

TEST_F(VoxDevices, ANameFromTheNetworkCannotSteerTheTerminal) {
  Put(2, "Off\033[31mice");
  EXPECT_EQ(Good("add 127.0.0.2").find('\033'), std::string::npos);
  EXPECT_EQ(Good("list").find('\033'), std::string::npos);
  EXPECT_EQ(Good("list --json").find('\033'), std::string::npos);
}

// --- on a virtual device of one's own

TEST(VoxVirtual, EveryVerbWorksAndLeavesNoSetting) {
  VoxProgram vox;
  ::setenv("VOX_ROOT", vox.File("root").c_str(), 1);
  ::setenv("XDG_CONFIG_HOME", vox.File("config").c_str(), 1);
  for (const char* line :
       {"discover --virtual", "list --virtual --json", "--virtual add", "remove --virtual",
        "info --virtual", "register --virtual", "unregister --virtual --json",
        "settings set computerName desk --virtual", "settings list --virtual",
        "trace --virtual --frame 0,0,20,20 --resolution 75"})
    EXPECT_EQ(vox.Run(line).status, 0) << line;
  EXPECT_THAT(vox.Folder().Leaves(), IsEmpty());
}

TEST(VoxVirtual, ADiscoveryShowsTheDeviceAndASummary) {
  VoxProgram vox;
  std::istringstream lines(vox.Run("discover --virtual --json").out);
  std::string device, summary;
  ASSERT_TRUE(std::getline(lines, device) && std::getline(lines, summary));
  EXPECT_EQ(json::parse(device)["state"], "new");
  EXPECT_EQ(json::parse(device)["ip"], "127.0.0.1");
  EXPECT_EQ(json::parse(summary)["found"], 1);
  EXPECT_EQ(json::parse(summary)["new"], 1);
}

TEST(VoxVirtual, ATraceGoesToStandardErrorAndThePageNowhere) {
  VoxProgram vox;
  const Outcome outcome = vox.Run("trace --virtual --frame 0,0,20,20 --resolution 75");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.out, "");
  EXPECT_THAT(outcome.err, AllOf(StartsWith("****"), HasSubstr("[0x0401] - MSG_OPENDS"),
                                 HasSubstr("[6] - TWRC_XFERDONE")));
  const Outcome scan = vox.Run("scan --virtual --trace --virtual-feeder 0 -o a.png");
  EXPECT_EQ(scan.status, 7);
  EXPECT_THAT(scan.err, HasSubstr("[29] - TWCC_NOMEDIA"));
  EXPECT_THAT(scan.err, testing::ContainsRegex("\n-+\nvox: cannot scan .* no document"));
}

struct SettingRow {
  const char* key;
  const char* value;
  const char* got;  // null: refused
};

TEST(VoxSettings, ValuesAreCheckedKeptAndForgotten) {
  VoxProgram vox;
  std::filesystem::create_directories(vox.File("root/var/lib/Veltronix Vox"));
  ::setenv("VOX_ROOT", vox.File("root").c_str(), 1);
  ::setenv("XDG_CONFIG_HOME", vox.File("config").c_str(), 1);
  const SettingRow rows[] = {
      {"computerName", "desk", "desk"},           {"showComputerName", "off", "no"},
      {"showcomputername", "TRUE", "yes"},        {"showComputerName", "maybe", nullptr},
      {"jpegCompressionFactor", "0.25", "0.25"},  {"jpegCompressionFactor", "0", "0.0"},
      {"jpegCompressionFactor", "1.01", nullptr}, {"jpegCompressionFactor", "nan", nullptr},
      {"pushScanTargetPath", "/usr/", "/usr/"},   {"pushScanTargetPath", "/nowhere", nullptr},
      {"pushScanTargetPath", "/bin/sh", nullptr}, {"ocrApplicationPath", "/bin/sh", "/bin/sh"},
  };
  for (const SettingRow& row : rows) {
    const std::string key = row.key;
    const Outcome set = vox.Run("settings set " + key + " " + row.value);
    EXPECT_EQ(set.status, row.got != nullptr ? 0 : 64) << key << " " << row.value << set.err;
    if (row.got != nullptr) {
      EXPECT_EQ(vox.Run("settings get " + key).out, std::string(row.got) + "\n");
    }
  }
  EXPECT_EQ(vox.Run("settings set jpegCompressionFactor --default").status, 0);
  EXPECT_EQ(vox.Run("settings get jpegCompressionFactor").out, "0.8\n");
  EXPECT_EQ(vox.Run("settings get nothing").status, 4);
  EXPECT_EQ(vox.Run("settings set pushScanTargetPathMountPoint /").status, 4);
  EXPECT_EQ(vox.Run("settings set LastScannerDeviceId nobody").status, 4);
  EXPECT_EQ(vox.Run("settings get Settings.02:56").out, "-\n");
}

}  // namespace
}  // namespace vox::cli::test
