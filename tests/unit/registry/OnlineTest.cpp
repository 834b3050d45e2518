// Interfaces of known devices, and which of them answer now, against virtual devices on loopback.
#include <chrono>

#include "sim/VirtualDevice.h"
#include "tests/support/FakeUsbPort.h"
#include "tests/support/NoMemory.h"
#include "tests/support/UdpPeer.h"
#include "tests/unit/registry/Registry.h"
#include "vox/SearchOnline.h"
#include "vox/drivers/net/TwImgIFNW.h"
#include "vox/drivers/net/reg_all_dev.h"
#include "vox/drivers/net/searchping.h"
#include "vox/drivers/net/searchregister.h"
#include "vox/drivers/usb/TwImgIFUsb.h"

namespace vox {
namespace {

class Online : public Registry {
 protected:
  // Puts a device at an address of loopback; all of them have one port.
  sim::VirtualDevice& Add(const std::string& address, const std::string& name,
                          sim::Faults faults = {}) {
    sim::DeviceOptions options;
    options.address = address;
    options.name = name;
    options.snmp_port = settings_ ? snmpPort.load() : std::uint16_t{0};
    options.command_port = settings_ ? udpCommandPort.load() : std::uint16_t{0};
    options.faults = faults;
    devices_.push_back(std::make_unique<sim::VirtualDevice>(options));
    sim::VirtualDevice& device = *devices_.back();
    EXPECT_TRUE(device.Start()) << device.Error();
    if (!settings_) {
      settings_.emplace(device.SnmpPort(), 100);
      udpCommandPort = device.CommandPort();
    }
    return device;
  }
  static DeviceInfo Know(const std::string& id, const std::string& ip, const std::string& name) {
    Manager().appendOneDeviceInfo(Network(id, ip, name));
    return Manager().infoForDevice(id);
  }
  static DeviceInfoArray Filter(const DeviceInfoArray& list, CancelDelegate* delegate = nullptr) {
    return Manager().filterOnlineDevicesCancelDelegate(list, delegate);
  }

  static DeviceInfo KnowUsb(const std::string& serial) {
    Manager().appendOneDeviceInfo(Usb(serial));
    return Manager().infoForDevice(serial);
  }

  test::FakeUsbPort usb_;
  std::vector<std::unique_ptr<sim::VirtualDevice>> devices_;
  std::optional<test::NetSettings> settings_;
};

TEST_F(Online, ANetworkDeviceGetsTheNetworkInterface) {
  Know("m", "127.0.0.1", "Office");
  const auto interface = Manager().createInterfaceForDevice("m");
  EXPECT_NE(dynamic_cast<CTwImgIFNW*>(interface.get()), nullptr);
  EXPECT_EQ(Manager().createInterfaceForDevice("never"), nullptr);
}

TEST_F(Online, ADeviceIsOnlineWhenItAnswersWithItsName) {
  Add("127.0.0.1", "Office");
  Know("m", "127.0.0.1", "Office");
  EXPECT_TRUE(Manager().isDeviceOnline("m"));
  Know("n", "127.0.0.1", "Elsewhere");
  EXPECT_FALSE(Manager().isDeviceOnline("n"));
  EXPECT_FALSE(Manager().isDeviceOnline("never"));
  EXPECT_FALSE(Manager().isDeviceOnline(std::nullopt));
}

TEST_F(Online, AUsbDeviceGetsTheUsbInterface) {
  KnowUsb("SN1");
  const auto interface = Manager().createInterfaceForDevice("SN1");
  EXPECT_NE(dynamic_cast<CTwImgIFUsb*>(interface.get()), nullptr);
}

TEST_F(Online, ARecordThatLacksWhatTheUsbInterfaceIsMadeWithGetsNone) {
  for (const char* key : {"modelName", "serialNumber"}) {
    const DeviceInfo broken = Usb(std::string("no ") + key);
    broken->Set(key, 7);
    Manager().appendOneDeviceInfo(broken);
    EXPECT_EQ(Manager().createInterfaceForDevice(*broken->String("deviceId")), nullptr);
    EXPECT_FALSE(Manager().isDeviceOnline(broken->String("deviceId")));
  }
}

TEST_F(Online, AUsbDeviceIsOnlineWhileItIsAttachedAndIsNotOpened) {
  KnowUsb("SN1");
  const int other = usb_.Attach(test::StillImageDevice("SN2"));
  EXPECT_FALSE(Manager().isDeviceOnline("SN1"));
  const int id = usb_.Attach(test::StillImageDevice("SN1"));
  EXPECT_TRUE(Manager().isDeviceOnline("SN1"));
  usb_.Detach(id);
  EXPECT_FALSE(Manager().isDeviceOnline("SN1"));
  usb_.Detach(other);
  EXPECT_EQ(usb_.Count("IOCreatePlugInInterfaceForService"), 0);
  EXPECT_EQ(usb_.Held(), 0);
}

TEST_F(Online, TheFilterGivesAttachedDevicesInTheirOrder) {
  const DeviceInfoArray list = {KnowUsb("SN3"), KnowUsb("SN2"), KnowUsb("SN1")};
  usb_.Attach(test::StillImageDevice("SN1"));
  usb_.Attach(test::StillImageDevice("SN3"));
  EXPECT_EQ(Filter(list), (DeviceInfoArray{list[0], list[2]}));
}

TEST_F(Online, TheFilterGivesUsbDevicesFirst) {
  if (!network_ping_permitted()) GTEST_SKIP() << "ping is not permitted here";
  Add("127.0.0.1", "A");
  usb_.Attach(test::StillImageDevice("SN1"));
  const DeviceInfoArray list = {Know("a", "127.0.0.1", "A"), KnowUsb("SN1")};
  EXPECT_EQ(Filter(list), (DeviceInfoArray{list[1], list[0]}));
}

TEST_F(Online, ACancelledFilterKeepsTheUsbDevicesBeforeIt) {
  usb_.Attach(test::StillImageDevice("SN1"));
  usb_.Attach(test::StillImageDevice("SN2"));
  const DeviceInfoArray list = {KnowUsb("SN1"), KnowUsb("SN2")};
  CancelledAt second(2), first(1);
  EXPECT_EQ(Filter(list, &second), DeviceInfoArray{list[0]});
  EXPECT_TRUE(Filter(list, &first).empty());
}

TEST_F(Online, NothingIsSearchedForNoKind) {
  EXPECT_TRUE(searchDevices(nullptr, 0).empty());
}

TEST_F(Online, TheFilterKeepsTheOrderOfThoseThatAnswer) {
  if (!network_ping_permitted()) GTEST_SKIP() << "ping is not permitted here";
  Add("127.0.0.1", "A");
  Add("127.0.0.2", "B");
  const DeviceInfoArray list = {Know("b", "127.0.0.2", "B"), Know("off", "127.0.0.9", "Off"),
                                Know("a", "127.0.0.1", "A")};
  EXPECT_EQ(Filter(list), (DeviceInfoArray{list[0], list[2]}));
}

TEST_F(Online, ACancelledFilterAsksNobody) {
  sim::VirtualDevice& device = Add("127.0.0.1", "A");
  CancelledAt cancelled(1);
  EXPECT_TRUE(Filter({Know("a", "127.0.0.1", "A")}, &cancelled).empty());
  EXPECT_GE(cancelled.asked, 1);
  EXPECT_TRUE(device.Events().All().empty());
}

// Says yes at the second question alone.
class CancelledOnce final : public CancelDelegate {
 public:
  bool isCancelled() override { return ++asked_ == 2; }

 private:
  int asked_ = 0;
};

TEST_F(Online, ACancelEndsTheListButThoseBeforeItAreStillAsked) {
  if (!network_ping_permitted()) GTEST_SKIP() << "ping is not permitted here";
  Add("127.0.0.1", "A");
  Add("127.0.0.2", "B");
  const DeviceInfoArray list = {Know("a", "127.0.0.1", "A"), Know("b", "127.0.0.2", "B")};
  CancelledOnce once;
  EXPECT_EQ(Filter(list, &once), DeviceInfoArray{list[0]});
}

TEST_F(Online, ADeviceThatThereIsNoMemoryToAskIsOff) {
  if (!network_ping_permitted()) GTEST_SKIP() << "ping is not permitted here";
  settings_.emplace(std::uint16_t{9}, 100'000);  // nobody is there; 300 s for an answer
  const DeviceInfoArray list = {Know("a", "127.0.0.8", "A"), Know("b", "127.0.0.9", "B")};
  const test::Stopwatch watch;
  const test::NoMemoryInNewThreads none;
  EXPECT_TRUE(Filter(list).empty());
  EXPECT_LT(watch.Elapsed(), std::chrono::seconds(30));
}

TEST_F(Online, ACancelEndsTheWaitForADeviceThatDoesNotAnswer) {
  if (!network_ping_permitted()) GTEST_SKIP() << "ping is not permitted here";
  Add("127.0.0.1", "A");  // at 127.0.0.9 only the kernel answers
  settings_.reset();
  settings_.emplace(devices_[0]->SnmpPort(), 100'000);
  const DeviceInfoArray list = {Know("a", "127.0.0.1", "A"), Know("mute", "127.0.0.9", "Mute")};
  const test::Stopwatch watch;
  CancelledAt cancelled(12);
  EXPECT_EQ(Filter(list, &cancelled), DeviceInfoArray{list[0]});
  EXPECT_LT(watch.Elapsed(), std::chrono::seconds(30)) << "the device has 300 s to answer";
}

TEST_F(Online, ManyThatDoNotAnswerAreAskedAtTheSameTime) {
  if (!network_ping_permitted()) GTEST_SKIP() << "ping is not permitted here";
  Add("127.0.0.1", "A");
  settings_.reset();
  settings_.emplace(devices_[0]->SnmpPort(), 300);  // 0.9 s for a device that does not answer
  DeviceInfoArray list;
  for (int i = 0; i < 30; ++i) {
    const std::string address = "127.0.1." + std::to_string(i + 1);
    list.push_back(Know(address, address, "Mute"));
  }
  list.push_back(Know("a", "127.0.0.1", "A"));
  const test::Stopwatch watch;
  EXPECT_EQ(Filter(list), DeviceInfoArray{list.back()});
  EXPECT_LT(watch.Elapsed(), std::chrono::seconds(13)) << "one after the other they take 27 s";
}

TEST_F(Online, DevicesOfOtherTypesThatCannotBeReachedAreLeftOut) {
  Manager().appendOneDeviceInfo(
      std::make_shared<Dictionary>(Dictionary{{"deviceId", "x"}, {"type", "scsi"}}));
  EXPECT_TRUE(Filter({Manager().infoForDevice("x"), nullptr}).empty());
}

TEST_F(Online, RegisteringAllListsThoseThatRefuse) {
  EXPECT_TRUE(reg_all_dev().empty());
  sim::Faults refuses;
  refuses.register_reply = 0xE4;
  const sim::VirtualDevice& good = Add("127.0.0.1", "A");
  const sim::VirtualDevice& bad = Add("127.0.0.2", "B", refuses);
  sim::VirtualDevice& unwanted = Add("127.0.0.3", "C", refuses);
  Know("a", "127.0.0.1", "A");
  const DeviceInfo refused = Know("b", "127.0.0.2", "B");
  Know("c", "127.0.0.3", "C")->Set("isNetworkPushEnabled", false);
  Manager().appendOneDeviceInfo(Usb("SN1"));
  EXPECT_EQ(reg_all_dev(), DeviceInfoArray{refused});
  EXPECT_EQ(good.Registrations().size(), 1u);
  EXPECT_TRUE(bad.Registrations().empty());
  EXPECT_EQ(unwanted.Events().Count(sim::EventKind::kRegister), 0u);
}

TEST_F(Online, RegisteringAllWaitsForTheSilentOnesAtTheSameTime) {
  test::UdpPeer silent(test::Silent(), "0.0.0.0");
  settings_.emplace(silent.Port(), 40);  // 0.36 s for an answer
  for (int i = 1; i <= REG_THREADS; ++i) {
    const std::string address = "127.0.1." + std::to_string(i);
    Know(address, address, "Mute");
  }
  const test::Stopwatch watch;
  EXPECT_TRUE(reg_all_dev().empty()) << "silence is no refusal";
  EXPECT_EQ(silent.Requests().size(), 3u * REG_THREADS);
  EXPECT_LT(watch.Elapsed(), std::chrono::seconds(3)) << "one after the other they take 5.8 s";
}

}  // namespace
}  // namespace vox
