// The registry where memory runs out: nothing is thrown, and what it keeps is the old or the new.
#include <cerrno>
#include <new>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "tests/support/NoMemory.h"
#include "tests/unit/registry/Registry.h"

namespace vox {
namespace {

TEST_F(Registry, WithoutMemoryADeviceIsKeptWholeOrNotAtAll) {
  const DeviceInfo found = Network("m", "10.0.0.1", "Office");
  Manager();  // there is a registry by then
  test::EachShortage([&] { EXPECT_NO_THROW(Manager().appendOneDeviceInfo(found)); },
                     [&](bool failed) {
                       const DeviceInfo known = Manager().infoForDevice("m");
                       if (known != nullptr) {
                         EXPECT_EQ(known->String("location"), "Office (10.0.0.1)");
                         EXPECT_EQ(known->Boolean("isNetworkPushEnabled"), true);
                       }
                       EXPECT_EQ(Prefs().lastOutcome().error, failed ? ENOMEM : 0);
                       EXPECT_TRUE(known != nullptr || failed);
                       EXPECT_EQ(StoredDevice("m").has_value(), !failed);
                       Manager().removeDevice("m");
                     });
}

TEST_F(Registry, WithoutMemoryFoundDevicesAreAllTakenOverOrNone) {
  Manager().appendDevices({{"a", Network("a", "10.0.0.1", "A")}, {"u", Usb("SN1")}});
  const DeviceInfo known = Manager().infoForDevice("a");
  const Dictionary before = *known;
  const DeviceInfoDictionary found{{"a", Network("a", "10.0.0.7", "B")},
                                   {"b", Network("b", "10.0.0.8", "C")}};
  test::EachShortage([&] { EXPECT_NO_THROW(Manager().appendDevices(found)); },
                     [&](bool failed) {
                       EXPECT_EQ(Prefs().lastOutcome().error, failed ? ENOMEM : 0);
                       const bool taken = Manager().infoForDevice("b") != nullptr;
                       EXPECT_TRUE(taken || failed);
                       EXPECT_EQ(Manager().infoForDevice("a"), known) << "the same object";
                       EXPECT_EQ(known->String("location"),
                                 taken ? "B (10.0.0.7)" : "A (10.0.0.1)");
                       EXPECT_EQ(StoredDevice("b").has_value(), !failed);
                       EXPECT_EQ(StoredDevice("a")->String("ip"), failed ? "10.0.0.1" : "10.0.0.7");
                       Manager().removeDevice("b");
                       *known = before;
                       Manager().saveDeviceInfo("a");
                     });
}

TEST_F(Registry, WithoutMemoryTheRecordsThatAreKnownStay) {
  Manager().appendOneDeviceInfo(Network("m", "10.0.0.1", "Office"));
  Store("Device.SN1", *Usb("SN1"));
  test::EachShortage(
      [&] { EXPECT_NO_THROW(Manager().synchronizeDevices()); },
      [&](bool failed) {
        EXPECT_EQ(Prefs().lastOutcome().error, failed ? ENOMEM : 0);
        EXPECT_EQ(Ids(Manager().knownDevices()),
                  failed ? std::set<std::string>{"m"} : (std::set<std::string>{"SN1", "m"}));
      });
}

TEST_F(Registry, WithoutMemoryToLoadItsRecordsThereIsNoRegistry) {
  Manager().appendOneDeviceInfo(Network("m", "10.0.0.1", "Office"));
  Reload();
  bool thrown = false;
  test::EachShortage(
      [&] {
        thrown = false;
        try {
          Manager();
        } catch (const std::bad_alloc&) {
          thrown = true;
        }
      },
      [&](bool failed) {
        EXPECT_EQ(thrown, failed);
        EXPECT_EQ(Ids(Manager().knownDevices()), std::set<std::string>{"m"});
        Reload();
      });
}

TEST_F(Registry, WithoutMemoryARemovalIsMadeOrToldOf) {
  Manager().appendOneDeviceInfo(Network("m", "10.0.0.1", "Office"));
  const std::string id = "m";
  test::EachShortage([&] { EXPECT_NO_THROW(Manager().removeDevice(id)); },
                     [&](bool failed) {
                       EXPECT_EQ(Prefs().lastOutcome().error, failed ? ENOMEM : 0);
                       EXPECT_EQ(StoredDevice("m").has_value(), failed);
                     });
}

TEST_F(Registry, WithoutMemoryQuestionsAreAnsweredWithNothing) {
  Manager().appendOneDeviceInfo(Network("m", "10.0.0.1", "A name beyond what fits in a string"));
  DevicesManager& manager = Manager();
  const DevicesManager& asked = manager;
  const std::string id = "m";
  const DeviceInfo info = asked.infoForDevice(id);
  std::optional<bool> given;
  const auto each = [&](auto question) {
    test::EachShortage([&] { EXPECT_NO_THROW(given = question()); },
                       [&](bool failed) { EXPECT_EQ(given, !failed); });
  };
  const std::vector<std::string> ids{id};
  const DeviceInfoArray infos{info};
  each([&] { return !asked.knownDevices().empty(); });
  each([&] { return asked.devicesListFromDevicesIdList(ids).has_value(); });
  each([&] { return !asked.devicesIdListFromDevicesList(infos).empty(); });
  each([&] { return asked.deviceLocation(id).has_value(); });
  each([&] { return asked.createInterfaceForDevice(id) != nullptr; });
}

TEST_F(Registry, WithoutMemoryASaveLeavesTheFileOrWritesIt) {
  Manager().appendOneDeviceInfo(Network("m", "10.0.0.1", "Office"));
  const auto each = [&](auto save) {
    const bool wanted = !StoredDevice("m")->Boolean("isNetworkPushEnabled").value_or(false);
    Manager().infoForDevice("m")->Set("isNetworkPushEnabled", wanted);
    test::EachShortage([&] { EXPECT_NO_THROW(save()); },
                       [&](bool failed) {
                         EXPECT_EQ(Prefs().lastOutcome().error, failed ? ENOMEM : 0);
                         EXPECT_EQ(StoredDevice("m")->Boolean("isNetworkPushEnabled"),
                                   failed ? !wanted : wanted);
                       });
  };
  const std::vector<std::string> ids{"m"};
  const std::optional<std::string> id = "m";
  each([&] { Manager().saveDeviceInfo(id); });
  each([&] { Manager().saveDevices(ids); });
  each([&] { Manager().saveAllDevices(); });
}

}  // namespace
}  // namespace vox
