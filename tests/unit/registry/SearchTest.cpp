// The registry's searches, with real broadcasts on a loopback of the test's own and a machine's USB
// in memory.
#include "sim/VirtualDevice.h"
#include "tests/support/FakeUsbPort.h"
#include "tests/support/FreshLoopback.h"
#include "tests/support/UdpPeer.h"
#include "tests/unit/registry/Registry.h"
#include "vox/SearchOnline.h"

namespace vox {
namespace {

constexpr char kId[] = "02:56:58:00:00:01";

class Searches : public Registry {
 protected:
  // With runs the work where one device of the name "Office" hears broadcasts; it gives 0, or
  // which check failed.
  template <typename Work>
  static int With(Work work) {
    return test::OnFreshLoopback([work] {
      if (!test::RouteBroadcasts()) return test::kNotPermitted;
      sim::DeviceOptions options;
      options.name = "Office";
      options.hears_broadcasts = true;
      sim::VirtualDevice device(options);
      if (!device.Start()) return 99;
      const test::NetSettings settings(device.SnmpPort(), 300);
      return work();
    });
  }
  static bool IsStored() { return StoredDevice(kId).has_value(); }
  static bool KnowsOffice() {
    return Manager().deviceLocation(kId) == "Office (127.0.0.1)" && IsStored();
  }
  void Attach(const std::string& serial) { usb_.Attach(test::StillImageDevice(serial)); }

  test::FakeUsbPort usb_;
};

TEST_F(Searches, OfTheNetworkAddWhatTheyFindToTheRegistry) {
  const int code = With([] {
    if (!Manager().searchNetworkDevices(nullptr)) return 1;
    return KnowsOffice() ? 0 : 2;
  });
  SKIP_IF_NOT_PERMITTED(code);
  EXPECT_EQ(code, 0);
}

TEST_F(Searches, OfAllKindsHoldTheNetworkToo) {
  const int code = With([] {
    Manager().searchAllDevices(nullptr);
    if (!KnowsOffice()) return 1;
    Manager().removeDevice(kId);
    if (!Manager().searchDevices(nullptr)) return 2;
    return KnowsOffice() ? 0 : 3;
  });
  SKIP_IF_NOT_PERMITTED(code);
  EXPECT_EQ(code, 0);
}

TEST_F(Searches, OfUsbAddWhatIsAttachedToTheRegistry) {
  Attach("SN1");
  Manager().searchUsbDevices(nullptr);
  const std::optional<Dictionary> stored = StoredDevice("SN1");
  ASSERT_TRUE(stored);
  EXPECT_EQ(*stored, (Dictionary{{"deviceId", "SN1"},
                                 {"type", "usb"},
                                 {"modelName", "Veltronix QD7200"},
                                 {"serialNumber", "SN1"},
                                 {"location", "USB"}}));
  EXPECT_EQ(Ids(Manager().knownDevices()), std::set<std::string>{"SN1"});
}

TEST_F(Searches, OfUsbFindDevicesAtAnyPlaceAndHeedNoOtherBits) {
  usb_.Attach(test::StillImageDevice("SN1", 0x01100000));
  usb_.Attach(test::StillImageDevice("SN2", 0x02200000));
  for (const int kinds : {SEARCH_USB + 0, SEARCH_USB | 4}) {
    const DeviceInfoDictionary found = searchDevices(nullptr, kinds);
    EXPECT_EQ(found.size(), 2u);
    EXPECT_EQ(found.count("SN2"), 1u);
  }
  EXPECT_TRUE(searchDevices(nullptr, 4).empty());
  EXPECT_EQ(usb_.Count("IOCreatePlugInInterfaceForService"), 0) << "none is opened";
  EXPECT_EQ(usb_.Held(), 0);
}

TEST_F(Searches, OfUsbCalledOffAddNothing) {
  Attach("SN1");
  CancelledAt first(1);
  Manager().searchUsbDevices(&first);
  EXPECT_TRUE(Manager().knownDevices().empty());
  EXPECT_EQ(first.asked, 1);
}

TEST_F(Searches, OfAllKindsHoldBoth) {
  Attach("SN1");
  const int code = With([] {
    Manager().searchAllDevices(nullptr);
    if (!KnowsOffice() || Manager().deviceLocation("SN1") != "USB") return 1;
    return Manager().knownDevices().size() == 2 ? 0 : 2;
  });
  SKIP_IF_NOT_PERMITTED(code);
  EXPECT_EQ(code, 0);
}

TEST_F(Searches, OfAllKindsPreferTheDeviceAtUsbOfTwoWithOneId) {
  Attach(kId);
  Attach("SN1");
  const int code = With([] {
    const DeviceInfoDictionary found = searchDevices(nullptr, SEARCH_ALL);
    if (found.size() != 2 || found.count(kId) != 1 || found.count("SN1") != 1) return 1;
    return is_device_of_type(*found.at(kId), kDeviceTypeUsb) ? 0 : 2;
  });
  SKIP_IF_NOT_PERMITTED(code);
  EXPECT_EQ(code, 0);
}

TEST_F(Searches, OfTheNetworkLeaveUsbAlone) {
  Attach("SN1");
  const int code = With([] { return searchDevices(nullptr, SEARCH_NETWORK).size() == 1 ? 0 : 1; });
  SKIP_IF_NOT_PERMITTED(code);
  EXPECT_EQ(code, 0);
}

TEST_F(Searches, OfOtherKindsOrNoneSendNoQuery) {
  const int code = With([] {
    Manager().searchUsbDevices(nullptr);
    const bool none = Manager().knownDevices().empty() && searchDevices(nullptr, 0).empty() &&
                      searchDevices(nullptr, SEARCH_USB).empty();
    return none ? 0 : 1;
  });
  SKIP_IF_NOT_PERMITTED(code);
  EXPECT_EQ(code, 0);
}

TEST_F(Searches, AsAFunctionLeaveTheRegistryAlone) {
  const int code = With([] {
    if (searchDevices(nullptr, SEARCH_NETWORK).count(kId) != 1) return 1;
    return Manager().knownDevices().empty() && !IsStored() ? 0 : 2;
  });
  SKIP_IF_NOT_PERMITTED(code);
  EXPECT_EQ(code, 0);
}

TEST_F(Searches, CalledOffAddNothing) {
  const int code = With([] {
    CancelledAt first(1);
    if (!Manager().searchNetworkDevices(&first)) return 1;
    return Manager().knownDevices().empty() && first.asked == 1 ? 0 : 2;
  });
  SKIP_IF_NOT_PERMITTED(code);
  EXPECT_EQ(code, 0);
}

}  // namespace
}  // namespace vox
