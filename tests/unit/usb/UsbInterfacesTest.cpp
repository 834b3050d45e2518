// Which interface and which pipes of a scanner are taken.
#include "tests/unit/usb/UsbCtrl.h"

namespace vox {
namespace {

using test::FakeUsbEndpoint;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

const FakeUsbEndpoint kBulkIn{kUSBIn, kUSBBulk}, kBulkOut{kUSBOut, kUSBBulk};

class UsbInterfaces : public UsbCtrl {
 protected:
  FakeUsbInterface& Second() {
    device_.interfaces.resize(2);
    device_.interfaces[1].endpoints = {kBulkOut, kBulkOut, kBulkIn, kBulkIn, kBulkOut};
    return device_.interfaces[1];
  }
  // Attaches the device, opens it, and expects what a device without a usable interface gives.
  void ExpectOnlyTheDeviceOpen(int level) {
    const int id = port_.Attach(device_);
    EXPECT_FALSE(Open());
    EXPECT_EQ(ctrl_.OpenLevel, level);
    EXPECT_EQ(ctrl_.m_deviceData.m_inf, nullptr);
    EXPECT_FALSE(ctrl_.IsOnLine());
    EXPECT_EQ(port_.OpenDevices(), 1);
    EXPECT_EQ(port_.OpenInterfaces(), 0);
    EXPECT_EQ(port_.HeldInterfaces(), 1) << "the device";
    EXPECT_EQ(port_.HeldRegistry(), 0);
    ctrl_.UsbScanClose();
    EXPECT_EQ(ctrl_.OpenLevel, 0);
    ExpectNothingHeld();
    port_.Detach(id);
  }
  std::vector<int> Cleared() const {
    std::vector<int> pipes;
    for (const auto& call : port_.CallsOf("ClearPipeStallBothEnds")) pipes.push_back(call.pipe);
    return pipes;
  }
};

TEST_F(UsbInterfaces, OfOtherClassesAreNotTouched) {
  device_.interfaces[0].interface_class = 7;
  device_.interfaces.push_back(device_.interfaces[0]);
  device_.interfaces[1].interface_class = 0xFF;
  ExpectOnlyTheDeviceOpen(3);
  EXPECT_EQ(port_.Count("USBInterfaceOpen"), 0);
}

TEST_F(UsbInterfaces, ThatAreMissingLeaveTheDeviceOpen) {
  device_.interfaces.clear();
  ExpectOnlyTheDeviceOpen(3);
}

// Another device with the same serial number is not tried then.
TEST_F(UsbInterfaces, ThatAreMissingEndTheSearch) {
  FakeUsbDevice none = device_;
  none.interfaces.clear();
  none.location = 1;
  port_.Attach(none);
  port_.Attach(device_);
  EXPECT_FALSE(Open());
  EXPECT_EQ(ctrl_.OpenLevel, 3);
  EXPECT_EQ(ctrl_.m_deviceData.locationID, 1u);
  EXPECT_EQ(port_.Count("USBDeviceOpenSeize"), 1);
}

TEST_F(UsbInterfaces, OfTheClassAreTakenWhateverTheirSubclassProtocolAndSetting) {
  Shape().subclass = 0xFE;
  Shape().protocol = 0xFD;
  Shape().alternate = 3;
  port_.Attach(device_);
  EXPECT_TRUE(Open());
}

TEST_F(UsbInterfaces, BesideThoseOfOtherClassesAreFound) {
  device_.interfaces.insert(device_.interfaces.begin(), device_.interfaces[0]);
  device_.interfaces[0].interface_class = 7;
  port_.Attach(device_);
  EXPECT_TRUE(Open());
  EXPECT_EQ(port_.Count("USBInterfaceOpen"), 1);
}

TEST_F(UsbInterfaces, ThatCannotBePluggedInOrQueriedOrOpenedLeaveLevel3) {
  for (void (*break_it)(FakeUsbInterface&) : {
           +[](FakeUsbInterface& shape) { shape.plugin = kRefused; },
           +[](FakeUsbInterface& shape) { shape.no_plugin = true; },
           +[](FakeUsbInterface& shape) { shape.query = kRefused; },
           +[](FakeUsbInterface& shape) { shape.no_object = true; },
           +[](FakeUsbInterface& shape) { shape.open = kRefused; },
       }) {
    const FakeUsbInterface good = Shape();
    break_it(Shape());
    ExpectOnlyTheDeviceOpen(3);
    Shape() = good;
  }
}

TEST_F(UsbInterfaces, ThatDoNotTellTheirEndpointsLeaveLevel4) {
  Shape().num_endpoints = kRefused;
  ExpectOnlyTheDeviceOpen(4);
}

TEST_F(UsbInterfaces, WithoutEndpointsAreLetGo) {
  Shape().endpoints.clear();
  ExpectOnlyTheDeviceOpen(4);
  EXPECT_EQ(ctrl_.m_deviceData.m_numPipes, 0);
}

TEST_F(UsbInterfaces, OfWhichAPipeDoesNotTellItsPropertiesAreLetGo) {
  for (std::size_t i = 0; i < Shape().endpoints.size(); ++i) {
    Shape().endpoints[i].properties = kRefused;
    ExpectOnlyTheDeviceOpen(4);
    Shape().endpoints[i].properties = kIOReturnSuccess;
  }
}

TEST_F(UsbInterfaces, TheLastOfTwoCountsAndTheFirstIsLetGo) {
  Second();
  port_.Attach(device_);
  ASSERT_TRUE(Open());
  EXPECT_EQ(ctrl_.OpenLevel, 5);
  EXPECT_EQ(ctrl_.m_deviceData.m_numPipes, 5);
  EXPECT_THAT(ctrl_.m_deviceData.m_bulkPipeIn, ElementsAre(3, 4));
  EXPECT_THAT(ctrl_.m_deviceData.m_bulkPipeOut, ElementsAre(1, 2));
  EXPECT_EQ(ctrl_.m_deviceData.m_intPipeIn, 0) << "the first one's is gone with it";
  EXPECT_EQ(port_.OpenInterfaces(), 1);
  EXPECT_EQ(port_.HeldInterfaces(), 2);
  ctrl_.UsbScanClose();
  ExpectNothingHeld();
}

TEST_F(UsbInterfaces, ASecondOneThatFailsLeavesTheFirst) {
  for (void (*break_it)(FakeUsbInterface&) : {
           +[](FakeUsbInterface& shape) { shape.plugin = kRefused; },
           +[](FakeUsbInterface& shape) { shape.open = kRefused; },
           +[](FakeUsbInterface& shape) { shape.num_endpoints = kRefused; },
           +[](FakeUsbInterface& shape) { shape.endpoints.clear(); },
       }) {
    break_it(Second());
    const int id = port_.Attach(device_);
    EXPECT_TRUE(Open());
    EXPECT_THAT(ctrl_.m_deviceData.m_bulkPipeIn, ElementsAre(1, 0));
    EXPECT_EQ(port_.OpenInterfaces(), 1);
    ctrl_.UsbScanClose();
    ExpectNothingHeld();
    port_.Detach(id);
    device_.interfaces.resize(1);
  }
}

TEST_F(UsbInterfaces, ASecondOneWhosePipesFailEndsWithNone) {
  Second().endpoints[2].properties = kRefused;
  ExpectOnlyTheDeviceOpen(5);
}

TEST_F(UsbInterfaces, PipesAreSortedByTypeAndDirection) {
  Shape().endpoints = {
      {kUSBOut, kUSBInterrupt, 16},
      {kUSBIn, 1, 1023},
      {kUSBOut, kUSBBulk, 64},
      {kUSBIn, kUSBInterrupt, 8},
      {kUSBIn, kUSBBulk, 512},
      {kUSBIn, kUSBInterrupt, 4},
      {kUSBIn, 0, 32},
      {3, kUSBBulk, 33},
  };
  port_.Attach(device_);
  ASSERT_TRUE(Open());
  EXPECT_EQ(ctrl_.m_deviceData.m_numPipes, 8);
  EXPECT_THAT(ctrl_.m_deviceData.m_bulkPipeOut, ElementsAre(3, 0));
  EXPECT_THAT(ctrl_.m_deviceData.m_bulkPipeIn, ElementsAre(5, 0));
  EXPECT_EQ(ctrl_.m_deviceData.m_intPipeIn, 6) << "the last one";
  EXPECT_EQ(ctrl_.m_deviceData.m_maxBulkPacketSize, 512u);
  EXPECT_THAT(Cleared(), ElementsAre(3, 4, 5, 6));
}

TEST_F(UsbInterfaces, ThePacketSizeIsTheLastBulkPipesEitherWay) {
  Shape().endpoints = {{kUSBIn, kUSBBulk, 512}, {kUSBOut, kUSBBulk, 64}, {kUSBIn, kUSBInterrupt}};
  port_.Attach(device_);
  ASSERT_TRUE(Open());
  EXPECT_EQ(ctrl_.m_deviceData.m_maxBulkPacketSize, 64u);
}

TEST_F(UsbInterfaces, AThirdBulkPipeOfADirectionIsIgnored) {
  Shape().endpoints = {kBulkIn, kBulkIn, kBulkIn, kBulkOut, kBulkOut, kBulkOut, kBulkIn};
  Shape().endpoints[5].max_packet_size = 1;
  Shape().endpoints[6].max_packet_size = 2;
  port_.Attach(device_);
  ASSERT_TRUE(Open());
  EXPECT_THAT(ctrl_.m_deviceData.m_bulkPipeIn, ElementsAre(1, 2));
  EXPECT_THAT(ctrl_.m_deviceData.m_bulkPipeOut, ElementsAre(4, 5));
  EXPECT_EQ(ctrl_.m_deviceData.m_intPipeIn, 0);
  EXPECT_EQ(ctrl_.m_deviceData.m_maxBulkPacketSize, 512u);
  EXPECT_THAT(Cleared(), ElementsAre(1, 2, 4, 5));
}

TEST_F(UsbInterfaces, WithAsManyEndpointsAsCanBeAreWalkedThrough) {
  Shape().endpoints.assign(255, {kUSBIn, kUSBInterrupt});
  port_.Attach(device_);
  ASSERT_TRUE(Open());
  EXPECT_EQ(ctrl_.m_deviceData.m_intPipeIn, 255);
}

TEST_F(UsbInterfaces, ThePipesOfAFormerDeviceAreForgotten) {
  const int id = port_.Attach(device_);
  ASSERT_TRUE(Open());
  port_.Detach(id);
  Shape().endpoints = {{kUSBIn, 1}};
  port_.Attach(device_);
  ASSERT_TRUE(Open());
  EXPECT_THAT(ctrl_.m_deviceData.m_bulkPipeIn, ElementsAre(0, 0));
  EXPECT_THAT(ctrl_.m_deviceData.m_bulkPipeOut, ElementsAre(0, 0));
  EXPECT_EQ(ctrl_.m_deviceData.m_intPipeIn, 0);
  EXPECT_EQ(ctrl_.m_deviceData.m_maxBulkPacketSize, 0u);
}

}  // namespace
}  // namespace vox
