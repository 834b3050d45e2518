// What the port says of attached devices.
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/interop/usb/BusProcess.h"
#include "tests/interop/usb/Opened.h"

namespace vox::test {
namespace {

using testing::IsEmpty;
using testing::SizeIs;

TEST(UsbRegistry, GivesNamesSerialLocationAndNode) {
  BusProcess bus;
  EXPECT_EQ(bus.Plug({.ports = "2.3", .manufacturer = "Vël"}), "1-2.3");
  const auto found = FindDevices();
  ASSERT_THAT(found, SizeIs(1));
  EXPECT_EQ(found[0].manufacturer, "Vël");
  EXPECT_EQ(found[0].product_name, "Model 1");
  EXPECT_EQ(found[0].serial, "VX0001");
  EXPECT_EQ(found[0].location, 0x01230000);
  EXPECT_EQ(found[0].node, "/dev/bus/usb/001/003");  // behind the root hub and a hub
}

TEST(UsbRegistry, SaysTheLocationThatTheOpenDeviceSays) {
  BusProcess bus;
  bus.Plug({.bus = 3, .ports = "5"});
  Opened opened;
  ASSERT_EQ(opened.OpenDevice(), kIOReturnSuccess);
  std::uint32_t location = 0;
  EXPECT_EQ(opened.device()->GetLocationID(&location), kIOReturnSuccess);
  EXPECT_EQ(location, 0x03500000u);
  EXPECT_EQ(FindDevices().at(0).location, location);
}

TEST(UsbRegistry, TellsDevicesApartAndLeavesOthersOut) {
  BusProcess bus;
  bus.Plug({.ports = "1", .serial = "A"});
  bus.Plug({.ports = "2", .serial = "B"});
  bus.Plug({.ports = "3", .product = 1, .serial = "C"});
  const auto found = FindDevices();
  ASSERT_THAT(found, SizeIs(2));
  EXPECT_NE(found[0].serial, found[1].serial);
  EXPECT_NE(found[0].serial, "C");
  EXPECT_NE(found[1].serial, "C");
}

TEST(UsbRegistry, SeesDevicesComeAndGo) {
  BusProcess bus;
  EXPECT_THAT(FindDevices(), IsEmpty());
  const std::string name = bus.Plug({});
  EXPECT_THAT(FindDevices(), SizeIs(1));
  bus.Unplug(name);
  EXPECT_THAT(FindDevices(), IsEmpty());
  bus.Plug({.serial = "again"});
  const auto found = FindDevices();
  ASSERT_THAT(found, SizeIs(1));
  EXPECT_EQ(found[0].serial, "again");
}

TEST(UsbRegistry, CleansWhatADeviceSaysOfItself) {
  BusProcess bus;
  bus.Plug({.manufacturer = "a\tb\x1b[2J",
            .product_name = std::string("bad \xff byte"),
            .serial = std::nullopt});
  const auto found = FindDevices();
  ASSERT_THAT(found, SizeIs(1));
  EXPECT_THAT(found[0].manufacturer, testing::StartsWith("a b"));
  EXPECT_THAT(found[0].manufacturer, testing::Not(testing::HasSubstr("\x1b")));
  EXPECT_EQ(found[0].product_name, "bad \xEF\xBF\xBD byte");
  EXPECT_EQ(found[0].serial, "(none)");
}

TEST(UsbRegistry, HoldsTextsToTheirLength) {
  BusProcess bus;
  bus.Plug({.serial = std::string(2000, 'x')});
  const auto found = FindDevices();
  ASSERT_THAT(found, SizeIs(1));
  EXPECT_LT(found[0].serial.size(), 400u);
  EXPECT_GE(found[0].serial.size(), 126u);
}

TEST(UsbRegistry, RefusesWhatItNeverGave) {
  BusProcess bus;
  UsbPort& port = UsbPort::Current();
  IOCFPlugInInterface* plugin = nullptr;
  EXPECT_EQ(port.IOIteratorNext(0xFFFFFF), 0u);
  EXPECT_EQ(port.IORegistryEntryCreateCFProperty(0xFFFFFF, kUSBVendorID), std::nullopt);
  EXPECT_EQ(port.IOCreatePlugInInterfaceForService(0xFFFFFF, kIOUSBDeviceUserClientTypeID, &plugin),
            kIOReturnBadArgument);
  EXPECT_EQ(plugin, nullptr);
  port.IOObjectRelease(0xFFFFFF);
}

}  // namespace
}  // namespace vox::test
