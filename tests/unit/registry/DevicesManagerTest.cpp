// What the registry keeps, merges, stores and hands out.
#include <cstdio>
#include <limits>

#include <sys/inotify.h>
#include <unistd.h>

#include "tests/unit/registry/Registry.h"
#include "vox/platform/FileDescriptor.h"
#include "vox/platform/FileReplacement.h"

namespace vox {
namespace {

using testing::ElementsAre;
using testing::Optional;

// Counts how often a file is replaced while it lives.
class Replacements {
 public:
  Replacements() : before_(SetFileReplacementSystem({::write, ::fsync, &Counted})) { count = 0; }
  ~Replacements() { SetFileReplacementSystem(before_); }
  Replacements(const Replacements&) = delete;
  Replacements& operator=(const Replacements&) = delete;
  static inline int count = 0;

 private:
  static int Counted(const char* from, const char* to) {
    ++count;
    return std::rename(from, to);
  }
  const FileReplacementSystem before_;
};

// Counts how often a file was opened since.
class Openings {
 public:
  explicit Openings(const std::string& path) {
    // Closing, too: two equal events in a row would come as one.
    EXPECT_GE(::inotify_add_watch(watch_.Get(), path.c_str(), IN_OPEN | IN_CLOSE_NOWRITE), 0);
  }
  int Count() const {
    int count = 0;
    inotify_event event{};
    while (::read(watch_.Get(), &event, sizeof event) == sizeof event) {
      count += (event.mask & IN_OPEN) != 0;
    }
    return count;
  }

 private:
  const FileDescriptor watch_{::inotify_init1(IN_NONBLOCK | IN_CLOEXEC)};
};

TEST_F(Registry, IsOneObjectThatNobodyFrees) {
  DevicesManager& manager = DevicesManager::instance();
  EXPECT_EQ(&manager, &DevicesManager::instance());
  EXPECT_EQ(&manager, &manager.retain());
  EXPECT_EQ(&manager, &manager.autorelease());
  manager.release();
  EXPECT_EQ(manager.retainCount(), std::numeric_limits<unsigned>::max());
}

TEST_F(Registry, ANewDeviceIsKeptAsACopyAndStoredWholeWithPushAndLocation) {
  const DeviceInfo found = Network("02:00:00:00:00:01", "192.168.0.5", "Office");
  Manager().appendDevices({{"any key", found}});
  const DeviceInfo kept = Manager().infoForDevice("02:00:00:00:00:01");
  ASSERT_NE(kept, nullptr);
  EXPECT_NE(kept, found);
  Dictionary wanted = *found;
  wanted.Set("isNetworkPushEnabled", true);
  wanted.Set("location", "Office (192.168.0.5)");
  EXPECT_EQ(*kept, wanted);
  EXPECT_THAT(StoredDevice("02:00:00:00:00:01"), Optional(wanted));
  EXPECT_FALSE(found->Contains("location"));
}

TEST_F(Registry, WhatWasStoredIsThereInTheNextProgram) {
  Manager().appendOneDeviceInfo(Network("02:00:00:00:00:01", "192.168.0.5", "Office"));
  Manager().appendOneDeviceInfo(Usb("SN1"));
  Reload();
  EXPECT_EQ(Ids(Manager().knownDevices()), (std::set<std::string>{"02:00:00:00:00:01", "SN1"}));
  EXPECT_EQ(Manager().infoForDevice("SN1")->String("location"), "USB");
}

TEST_F(Registry, AMissingPushFlagLoadsAsTrueButIsWrittenOnlyWithTheNextSave) {
  Store("Device.m", *Network("m", "10.0.0.1", "A"));
  const std::string before = SharedText();
  Reload();
  EXPECT_EQ(Manager().infoForDevice("m")->Boolean("isNetworkPushEnabled"), true);
  EXPECT_EQ(Manager().infoForDevice("m")->String("location"), "A (10.0.0.1)");
  EXPECT_EQ(SharedText(), before);
  Manager().saveAllDevices();
  EXPECT_EQ(StoredDevice("m")->Boolean("isNetworkPushEnabled"), true);
}

TEST_F(Registry, APushFlagThatIsFalseStays) {
  Dictionary stored = *Network("m", "10.0.0.1", "A");
  stored.Set("isNetworkPushEnabled", false);
  Store("Device.m", stored);
  Reload();
  EXPECT_EQ(Manager().infoForDevice("m")->Boolean("isNetworkPushEnabled"), false);
  Manager().appendOneDeviceInfo(Network("m", "10.0.0.2", "A"));
  EXPECT_EQ(StoredDevice("m")->Boolean("isNetworkPushEnabled"), false);
}

TEST_F(Registry, AKnownDeviceWithoutAPushFlagGetsItBackUnsaved) {
  Manager().appendOneDeviceInfo(Network("m", "10.0.0.1", "A"));
  Manager().infoForDevice("m")->Remove("isNetworkPushEnabled");
  Manager().saveDeviceInfo("m");
  Manager().appendOneDeviceInfo(Network("m", "10.0.0.1", "A"));
  EXPECT_EQ(Manager().infoForDevice("m")->Boolean("isNetworkPushEnabled"), true);
  EXPECT_FALSE(StoredDevice("m")->Contains("isNetworkPushEnabled"));
}

TEST_F(Registry, AUsbDeviceGetsNoPushFlag) {
  Manager().appendOneDeviceInfo(Usb("SN1"));
  EXPECT_FALSE(Manager().infoForDevice("SN1")->Contains("isNetworkPushEnabled"));
}

TEST_F(Registry, AKnownNetworkDeviceTakesOverAddressAndName) {
  Manager().appendOneDeviceInfo(Network("m", "10.0.0.1", "A"));
  const DeviceInfo kept = Manager().infoForDevice("m");
  DeviceInfo moved = Network("m", "10.0.0.2", "B");
  moved->Set("modelName", "Veltronix Other");
  Manager().appendOneDeviceInfo(moved);
  EXPECT_EQ(Manager().infoForDevice("m"), kept) << "the same dictionary";
  EXPECT_EQ(kept->String("ip"), "10.0.0.2");
  EXPECT_EQ(kept->String("name"), "B");
  EXPECT_EQ(kept->String("location"), "B (10.0.0.2)");
  EXPECT_EQ(kept->String("modelName"), "Veltronix QD7200") << "only address and name";
  EXPECT_THAT(StoredDevice("m"), Optional(*kept));
}

TEST_F(Registry, EitherChangeAloneIsSaved) {
  Manager().appendOneDeviceInfo(Network("m", "10.0.0.1", "A"));
  Manager().appendOneDeviceInfo(Network("m", "10.0.0.2", "A"));
  EXPECT_EQ(StoredDevice("m")->String("location"), "A (10.0.0.2)");
  Manager().appendOneDeviceInfo(Network("m", "10.0.0.2", "B"));
  EXPECT_EQ(StoredDevice("m")->String("location"), "B (10.0.0.2)");
}

TEST_F(Registry, AnUnchangedDeviceIsNotWritten) {
  Manager().appendOneDeviceInfo(Network("m", "10.0.0.1", "A"));
  Prefs().removeSharedKey("Device.m");
  Manager().appendOneDeviceInfo(Network("m", "10.0.0.1", "A"));
  EXPECT_EQ(StoredDevice("m"), std::nullopt);
}

TEST_F(Registry, AKnownUsbDeviceIsNeitherChangedNorSaved) {
  Manager().appendOneDeviceInfo(Usb("SN1"));
  Prefs().removeSharedKey("Device.SN1");
  DeviceInfo again = Usb("SN1");
  again->Set("modelName", "Veltronix Other");
  again->Set("ip", "10.0.0.9");
  again->Set("name", "N");
  Manager().appendOneDeviceInfo(again);
  EXPECT_EQ(Manager().infoForDevice("SN1")->String("modelName"), "Veltronix QD7200");
  EXPECT_FALSE(Manager().infoForDevice("SN1")->Contains("ip"));
  EXPECT_EQ(StoredDevice("SN1"), std::nullopt);
}

TEST_F(Registry, WhatASearchFoundIsWrittenInOnePieceBesideWhatOthersWrote) {
  Manager().appendOneDeviceInfo(Network("a", "10.0.0.1", "A"));
  Manager().appendOneDeviceInfo(Network("b", "10.0.0.2", "B"));
  Store("Device.later", *Usb("later"));  // by another program
  const DeviceInfoDictionary found = {{"1", Network("a", "10.0.0.1", "A")},
                                      {"2", Network("b", "10.0.0.3", "B")},
                                      {"3", Network("c", "10.0.0.4", "C")},
                                      {"4", nullptr}};
  {
    const Replacements replacements;
    Manager().appendDevices(found);
    EXPECT_EQ(replacements.count, 1);
    Manager().appendDevices(found);
    EXPECT_EQ(replacements.count, 1) << "nothing changed";
  }
  for (const char* id : {"a", "b", "c"}) {
    EXPECT_THAT(StoredDevice(id), Optional(*Manager().infoForDevice(id)));
  }
  EXPECT_EQ(StoredDevice("b")->String("location"), "B (10.0.0.3)");
  EXPECT_NE(StoredDevice("later"), std::nullopt);
}

TEST_F(Registry, AllAreSavedInOnePiece) {
  Manager().appendDevices({{"1", Usb("SN1")}, {"2", Usb("SN2")}});
  Prefs().removeSharedKey("Device.SN1");
  Prefs().removeSharedKey("Device.SN2");
  const Replacements replacements;
  Manager().saveAllDevices();
  EXPECT_EQ(replacements.count, 1);
  EXPECT_THAT(Prefs().allSharedKeys(), ElementsAre("Device.SN1", "Device.SN2"));
}

TEST_F(Registry, TheFileIsReadOnceHoweverManyDevicesItHas) {
  for (const char* id : {"SN1", "SN2", "SN3"}) Manager().appendOneDeviceInfo(Usb(id));
  const Openings openings(Prefs().pathToGlobalSettings());
  Manager().synchronizeDevices();
  EXPECT_EQ(openings.Count(), 1);
}

TEST_F(Registry, WhatHasNoIdIsNotTaken) {
  Manager().appendOneDeviceInfo(nullptr);
  Manager().appendOneDeviceInfo(std::make_shared<Dictionary>(Dictionary{{"type", "usb"}}));
  Manager().appendOneDeviceInfo(std::make_shared<Dictionary>(Dictionary{{"deviceId", 7}}));
  EXPECT_TRUE(Manager().knownDevices().empty());
  EXPECT_TRUE(Prefs().allSharedKeys().empty());
}

TEST_F(Registry, RemovingForgetsHereAndInTheFile) {
  Manager().appendOneDeviceInfo(Usb("SN1"));
  Manager().appendOneDeviceInfo(Usb("SN2"));
  Manager().removeDevice("SN1");
  EXPECT_EQ(Manager().infoForDevice("SN1"), nullptr);
  EXPECT_THAT(Prefs().allSharedKeys(), ElementsAre("Device.SN2"));
}

TEST_F(Registry, RemovingAnUnknownIdRemovesItsAbsentKeyWithoutError) {
  Store("Device.later", *Usb("later"));  // by another program, after this one loaded
  Manager().removeDevice("later");
  EXPECT_TRUE(Prefs().allSharedKeys().empty());
  Manager().removeDevice("never");
  EXPECT_TRUE(Manager().knownDevices().empty());
}

TEST_F(Registry, AChangedDictionaryIsSavedOnRequest) {
  Manager().appendOneDeviceInfo(Network("m", "10.0.0.1", "A"));
  Manager().infoForDevice("m")->Set("isNetworkPushEnabled", false);
  EXPECT_EQ(StoredDevice("m")->Boolean("isNetworkPushEnabled"), true);
  Manager().saveDeviceInfo("m");
  EXPECT_EQ(StoredDevice("m")->Boolean("isNetworkPushEnabled"), false);
}

TEST_F(Registry, SavingNilOrAnUnknownIdDoesNothing) {
  Manager().saveDeviceInfo(std::nullopt);
  Manager().saveDeviceInfo("never");
  EXPECT_FALSE(std::filesystem::exists(Prefs().pathToGlobalSettings()));
}

TEST_F(Registry, SynchronizingForgetsWhatIsNotStored) {
  Manager().appendOneDeviceInfo(Usb("SN1"));
  Prefs().removeSharedKey("Device.SN1");
  Store("Device.SN2", *Usb("SN2"));
  Manager().synchronizeDevices();
  EXPECT_EQ(Ids(Manager().knownDevices()), std::set<std::string>{"SN2"});
}

TEST_F(Registry, OnlyKeysThatBeginWithDeviceAreRecords) {
  Store("Device.SN1", *Usb("SN1"));
  Store("device.SN2", *Usb("SN2"));
  Store("MyDevice.SN3", *Usb("SN3"));
  Store("computerName", "desk");
  Reload();
  EXPECT_EQ(Ids(Manager().knownDevices()), std::set<std::string>{"SN1"});
}

TEST_F(Registry, ARecordCountsUnderItsOwnIdWhateverItsKey) {
  Store("Device.elsewhere", *Usb("SN1"));
  Reload();
  EXPECT_EQ(Ids(Manager().knownDevices()), std::set<std::string>{"SN1"});
  EXPECT_EQ(Manager().infoForDevice("elsewhere"), nullptr);
}

TEST_F(Registry, AStoredLocationIsMadeAnew) {
  Dictionary stored = *Network("m", "10.0.0.1", "A");
  stored.Set("location", "B (10.0.0.2)");
  Store("Device.m", stored);
  Reload();
  EXPECT_EQ(Manager().infoForDevice("m")->String("location"), "A (10.0.0.1)");
  EXPECT_EQ(StoredDevice("m")->String("location"), "B (10.0.0.2)") << "nothing is written back";
}

TEST_F(Registry, RecordsOfTheWrongTypesAreLeftOut) {
  Store("Device.a", "text");
  Store("Device.b", Array{1, 2});
  Store("Device.c", Dictionary{{"type", "usb"}});
  Store("Device.d", Dictionary{{"deviceId", 5}, {"type", "usb"}});
  Store("Device.e", Dictionary{{"deviceId", "e"}, {"type", 9}, {"name", Data{1}}});
  Store("Device.f", Dictionary{{"deviceId", "f"}, {"type", "network"}, {"ip", 3}});
  Reload();
  EXPECT_EQ(Ids(Manager().knownDevices()), (std::set<std::string>{"e", "f"}));
  EXPECT_EQ(Manager().deviceLocation("e"), std::nullopt);
  EXPECT_EQ(Manager().deviceLocation("f"), " ()");
  for (const char* id : {"e", "f"}) {
    EXPECT_EQ(Manager().createInterfaceForDevice(id), nullptr);
    EXPECT_FALSE(Manager().isDeviceOnline(id));
  }
}

TEST_F(Registry, TheLocationIsMadeOfTypeNameAndAddress) {
  const auto location = &DevicesManager::deviceLocationWithDeviceInfo;
  EXPECT_EQ(location(*Network("m", "192.168.0.5", "Office")), "Office (192.168.0.5)");
  EXPECT_EQ(location(*Usb("SN1")), "USB");
  EXPECT_EQ(location(Dictionary{{"type", "scsi"}}), std::nullopt);
  EXPECT_EQ(location(Dictionary{}), std::nullopt);
  Manager().appendOneDeviceInfo(Usb("SN1"));
  EXPECT_EQ(Manager().deviceLocation("SN1"), "USB");
  EXPECT_EQ(Manager().deviceLocation("never"), std::nullopt);
}

TEST_F(Registry, ListsOfIdsAndOfDevicesKeepTheirOrder) {
  Manager().appendOneDeviceInfo(Usb("SN1"));
  Manager().appendOneDeviceInfo(Usb("SN2"));
  const auto devices = Manager().devicesListFromDevicesIdList({"SN2", "SN1", "SN2"});
  ASSERT_TRUE(devices);
  EXPECT_THAT(Manager().devicesIdListFromDevicesList(*devices), ElementsAre("SN2", "SN1", "SN2"));
  EXPECT_EQ((*devices)[0], Manager().infoForDevice("SN2"));
  EXPECT_EQ(Manager().devicesListFromDevicesIdList({"SN1", "never"}), std::nullopt);
}

TEST_F(Registry, AFolderThatIsMissingLosesNothingOfTheSession) {
  std::filesystem::remove_all(Path("root/var/lib/Veltronix Vox"));
  Manager().appendOneDeviceInfo(Usb("SN1"));
  EXPECT_NE(Prefs().lastOutcome().error, 0);
  EXPECT_NE(Manager().infoForDevice("SN1"), nullptr);
}

}  // namespace
}  // namespace vox
