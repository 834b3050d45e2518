// The names of devices, and the list that is made of what is known; nothing is searched here.
#include "frontends/sane/Devices.h"

#include <filesystem>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/unit/core/Scratch.h"
#include "vox/DevicesManager.h"

namespace vox::sane {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

Dictionary Network(const std::string& ip, const std::string& mac) {
  Dictionary device;
  device.Set(kDeviceTypeKey, std::string(kDeviceTypeNetwork));
  device.Set(kDeviceIpKey, ip);
  device.Set(kDeviceModelNameKey, std::string("Veltronix QD7200"));
  device.Set(kDeviceNameKey, std::string("Office"));
  if (!mac.empty()) device.Set(kDeviceMacKey, mac);
  device.Set(kDeviceIdKey, mac.empty() ? ip : mac);
  return device;
}

Dictionary AtUsb(const std::string& serial) {
  Dictionary device;
  device.Set(kDeviceTypeKey, std::string(kDeviceTypeUsb));
  device.Set(kDeviceSerialNumberKey, serial);
  return device;
}

TEST(SaneDevices, NamesAreStable) {
  EXPECT_EQ(NameOf(Network("192.168.0.5", "00:1b:21:0a:4c:7e")), "net:00:1b:21:0a:4c:7e");
  EXPECT_EQ(NameOf(Network("192.168.0.5", "")), "net:192.168.0.5");
  EXPECT_EQ(NameOf(Network("192.168.0.5", "no address")), "net:192.168.0.5");
  EXPECT_EQ(NameOf(AtUsb("A7K0123")), "usb:A7K0123");
}

TEST(SaneDevices, WhatCannotBeNamedHasNoName) {
  EXPECT_EQ(NameOf(Dictionary()), "");
  EXPECT_EQ(NameOf(AtUsb("")), "");
  EXPECT_EQ(NameOf(AtUsb("A\x1b[2J")), "");
  EXPECT_EQ(NameOf(Network("copier", "00:1b:21:0a:4c:7e")), "") << "nowhere to find it";
}

TEST(SaneDevices, MacNames) {
  EXPECT_TRUE(IsMacName("net:00:1b:21:0A:4c:7e"));
  for (const char* name : {"net:00:1b:21:0a:4c", "net:00:1b:21:0a:4c:7g", "00:1b:21:0a:4c:7e",
                           "net:00-1b-21-0a-4c-7e", "net:192.168.0.5", "net:", ""})
    EXPECT_FALSE(IsMacName(name)) << name;
}

// A machine of its own, in whose registry devices are put; searching is off.
class SaneList : public testing::Test {
 protected:
  SaneList()
      : root_("VOX_ROOT", scratch_.Path("root")), home_("XDG_CONFIG_HOME", scratch_.Path("")) {
    std::filesystem::create_directories(scratch_.Path("root/var/lib/Veltronix Vox"));
  }

  static std::vector<std::string> Names(const SANE_Device** list) {
    std::vector<std::string> names;
    for (; *list != nullptr; ++list) names.emplace_back((*list)->name);
    return names;
  }
  static void Remember(const Dictionary& device) {
    DevicesManager::instance().synchronizeDevices();
    DevicesManager::instance().appendOneDeviceInfo(std::make_shared<Dictionary>(device));
  }
  static Config Quiet(std::vector<std::string> devices = {}) {
    return {std::move(devices), false, false};
  }

 private:
  Scratch scratch_;
  Variable root_, home_;
};

TEST_F(SaneList, NobodyIsAnEmptyList) {
  Devices devices(Quiet());
  EXPECT_THAT(Names(devices.List(false)), IsEmpty());
  EXPECT_EQ(devices.First(), "");
}

TEST_F(SaneList, RememberedDevicesAreThereAtOnce) {
  Remember(Network("192.168.0.5", "00:1b:21:0a:4c:7e"));
  Devices devices(Quiet());
  const SANE_Device** const list = devices.List(false);
  ASSERT_THAT(Names(list), ElementsAre("net:00:1b:21:0a:4c:7e"));
  EXPECT_STREQ(list[0]->vendor, "Veltronix");
  EXPECT_STREQ(list[0]->model, "QD7200");
  EXPECT_STREQ(list[0]->type, "multi-function peripheral");
  EXPECT_EQ(devices.First(), "net:00:1b:21:0a:4c:7e");
  EXPECT_NE(devices.Remembered("net:00:1B:21:0A:4C:7E"), nullptr) << "capitals do not matter";
  EXPECT_EQ(devices.Remembered("net:00:1b:21:0a:4c:7f"), nullptr);
}

TEST_F(SaneList, WhatAnotherProgramRemembersIsInTheNextList) {
  Devices devices(Quiet());
  EXPECT_THAT(Names(devices.List(false)), IsEmpty());
  Remember(Network("192.168.0.5", ""));
  EXPECT_THAT(Names(devices.List(false)), ElementsAre("net:192.168.0.5"));
}

TEST_F(SaneList, LocalDevicesAreThoseAtUsbUnlessTheConfigurationSaysMore) {
  Remember(Network("192.168.0.5", "00:1b:21:0a:4c:7e"));
  Config config = Quiet({"net:127.0.0.10"});
  EXPECT_THAT(Names(Devices(config).List(true)), IsEmpty());
  config.network_when_local_only = true;
  EXPECT_THAT(Names(Devices(config).List(true)),
              ElementsAre("net:127.0.0.10", "net:00:1b:21:0a:4c:7e"));
}

TEST_F(SaneList, DevicesOfTheConfigurationComeFirstAndOnce) {
  Remember(Network("192.168.0.5", "00:1b:21:0a:4c:7e"));
  Remember(Network("192.168.0.4", "00:1b:21:0a:4c:00"));
  Devices devices(Quiet({"net:192.168.0.5", "net:copier.example", "usb:NOBODY"}));
  EXPECT_THAT(Names(devices.List(false)),
              ElementsAre("net:00:1b:21:0a:4c:7e", "net:copier.example", "net:00:1b:21:0a:4c:00"));
}

// Nobody answers there, who could say which of them it is.
TEST_F(SaneList, AnAddressThatTwoAreRememberedAtIsListedAsItself) {
  Remember(Network("127.0.0.10", "00:1b:21:0a:4c:7e"));
  Remember(Network("127.0.0.10", "00:1b:21:0a:4c:00"));
  Devices devices(Quiet({"net:127.0.0.10", "net:00:1b:21:0a:4c:7e"}));
  EXPECT_THAT(Names(devices.List(false)),
              ElementsAre("net:127.0.0.10", "net:00:1b:21:0a:4c:7e", "net:00:1b:21:0a:4c:00"));
}

TEST_F(SaneList, TheFirstOfOthersIsTheNext) {
  Remember(Network("192.168.0.5", "00:1b:21:0a:4c:7e"));
  Remember(Network("192.168.0.4", "00:1b:21:0a:4c:00"));
  Devices devices(Quiet());
  const std::string first = devices.First(), second = devices.First({first});
  EXPECT_EQ(first, "net:00:1b:21:0a:4c:00");
  EXPECT_EQ(second, "net:00:1b:21:0a:4c:7e");
  EXPECT_EQ(devices.First({second}), first);
  EXPECT_EQ(devices.First({first, second}), "");
}

TEST_F(SaneList, HostileRecordsAreLeftOut) {
  Remember(Network("192.168.0.5\n", "00:1b:21:0a:4c:7e"));
  Devices devices(Quiet());
  EXPECT_THAT(Names(devices.List(false)), IsEmpty());
}

TEST_F(SaneList, WithoutLeaveNobodyIsSearchedFor) {
  Devices devices(Quiet());
  EXPECT_EQ(devices.SearchFor("net:00:1b:21:0a:4c:7e"), nullptr);
}

}  // namespace
}  // namespace vox::sane
