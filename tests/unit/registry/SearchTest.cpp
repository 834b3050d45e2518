// The registry's searches, with real broadcasts on a loopback of the test's own.
#include "sim/VirtualDevice.h"
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
