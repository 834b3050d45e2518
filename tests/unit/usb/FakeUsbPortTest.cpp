// The fake itself: what it must notice, and what a port promises of bytes and time-outs.
#include <optional>
#include <thread>
#include <vector>

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include "tests/support/FakeUsbPort.h"
#include "tests/support/UsbScript.h"
#include "vox/drivers/usb/UsbScanCtrl.h"

namespace vox {
namespace {

using test::Bytes;
using test::FakeUsbAnswer;
using test::FakeUsbDevice;
using test::FakeUsbTransfer;
using test::Hex;
using test::StillImageDevice;

class FakeUsb : public testing::Test {
 protected:
  ~FakeUsb() override { ctrl_.UsbScanClose(); }
  void Open() {
    port_.Attach(device_);
    ASSERT_TRUE(ctrl_.UsbScanOpen(test::kFakeUsbVendor, test::kFakeUsbProduct, "SN1"));
  }
  bool Write(Bytes bytes, int timeout = 300) {
    return ctrl_.UsbScanWrite(bytes.data(), static_cast<unsigned>(bytes.size()), timeout) != 0;
  }
  std::optional<Bytes> Read(unsigned size, int timeout = 300) {
    Bytes buffer(size);
    unsigned read = 0;
    if (!ctrl_.UsbScanRead(buffer.data(), size, &read, timeout)) return std::nullopt;
    buffer.resize(read);
    return buffer;
  }

  FakeUsbDevice device_ = StillImageDevice("SN1");
  test::FakeUsbPort port_;
  CUsbScanCtrl ctrl_;
};

TEST_F(FakeUsb, NoticesWhatIsGivenBackTwice) {
  EXPECT_NONFATAL_FAILURE(port_.IOObjectRelease(7), "not handed out");
  port_.Attach(device_);
  io_iterator_t devices = 0;
  ASSERT_EQ(port_.IOServiceGetMatchingServices(*port_.IOServiceMatching("IOUSBDevice"), &devices),
            kIOReturnSuccess);
  const io_service_t device = port_.IOIteratorNext(devices);
  EXPECT_EQ(port_.IOIteratorNext(devices), 0u);
  EXPECT_EQ(port_.Held(), 2);
  IOCFPlugInInterface* plugin = nullptr;
  port_.IOCreatePlugInInterfaceForService(device, kIOUSBDeviceUserClientTypeID, &plugin);
  ASSERT_NE(plugin, nullptr);
  EXPECT_EQ(port_.Held(), 3);
  plugin->Release();
  EXPECT_NONFATAL_FAILURE(plugin->Release(), "given back before");
  IOUSBDeviceInterface182* object = nullptr;
  EXPECT_NONFATAL_FAILURE(plugin->QueryInterface(&object), "given back");
  object->Release();
  port_.IOObjectRelease(device);
  port_.IOObjectRelease(devices);
  EXPECT_NONFATAL_FAILURE(port_.IOIteratorNext(devices), "not handed out");
  EXPECT_EQ(port_.Held(), 0);
}

TEST_F(FakeUsb, ReleaseClosesWhatIsOpen) {
  port_.Attach(device_);
  const auto matching = port_.IOServiceMatching(kIOUSBDeviceClassName);
  io_iterator_t devices = 0;
  port_.IOServiceGetMatchingServices(*matching, &devices);
  const io_service_t service = port_.IOIteratorNext(devices);
  IOCFPlugInInterface* plugin = nullptr;
  port_.IOCreatePlugInInterfaceForService(service, kIOUSBDeviceUserClientTypeID, &plugin);
  IOUSBDeviceInterface182 *first = nullptr, *second = nullptr;
  plugin->QueryInterface(&first);
  plugin->QueryInterface(&second);
  EXPECT_EQ(first->USBDeviceOpenSeize(), kIOReturnSuccess);
  EXPECT_EQ(second->USBDeviceOpenSeize(), kIOReturnExclusiveAccess);
  EXPECT_EQ(port_.OpenDevices(), 1);
  first->Release();
  EXPECT_EQ(port_.OpenDevices(), 0);
  EXPECT_EQ(second->USBDeviceClose(), kIOReturnNotOpen);
  second->Release();
  plugin->Release();
  port_.IOObjectRelease(service);
  port_.IOObjectRelease(devices);
}

TEST_F(FakeUsb, KeepsWhatIsLongerThanTheReadForTheNextReads) {
  test::UsbScript script(device_);
  script.Read(Hex("01 02 03 04 05"), 300).Read(Hex("06"), 300);
  Open();
  EXPECT_EQ(Read(2), Hex("01 02"));
  EXPECT_EQ(Read(2, 7), Hex("03 04")) << "which takes no step";
  EXPECT_EQ(Read(2), Hex("05")) << "where the answer ends, the read does";
  EXPECT_EQ(Read(2), Hex("06"));
}

TEST_F(FakeUsb, DeliversWhatCameBeforeATimeOutAndKeepsWhatCameBeforeAnError) {
  std::vector<FakeUsbAnswer> answers = {{kIOUSBTransactionTimeout, {}},
                                        {kIOUSBPipeStalled, Hex("02")},
                                        {kIOUSBTransactionTimeout, Hex("01")}};
  device_.on_read = [&](std::uint32_t, const FakeUsbTransfer&) {
    const FakeUsbAnswer answer = answers.back();
    answers.pop_back();
    return answer;
  };
  Open();
  EXPECT_EQ(Read(8), Hex("01"));
  EXPECT_EQ(Read(8), std::nullopt);
  EXPECT_EQ(Read(8), Hex("02"));
  EXPECT_EQ(Read(8), std::nullopt);
}

TEST_F(FakeUsb, AScriptNoticesOtherBytesTimeOutsSizesAndOrders) {
  test::UsbScript script(device_);
  script.Write(Hex("01 02"), 300).Write(Hex("03"), 300).Read(Hex("04"), 300, 8);
  Open();
  EXPECT_NONFATAL_FAILURE(EXPECT_FALSE(Write(Hex("01 03"))), "01 03");
  EXPECT_NONFATAL_FAILURE(EXPECT_EQ(Read(8), std::nullopt), "step 1 is a write");
  std::optional<Bytes> got;
  {
    testing::TestPartResultArray failures;
    const testing::ScopedFakeTestPartResultReporter reporter(
        testing::ScopedFakeTestPartResultReporter::INTERCEPT_ALL_THREADS, &failures);
    EXPECT_TRUE(Write(Hex("03"), 301));
    got = Read(9);
    ASSERT_EQ(failures.size(), 3) << "two time-outs and a size";
  }
  EXPECT_EQ(got, Hex("04"));
  EXPECT_NONFATAL_FAILURE(EXPECT_FALSE(Write(Hex("05"))), "not there");
}

TEST_F(FakeUsb, AScriptNoticesStepsThatAreLeft) {
  test::UsbScript script(device_);
  script.Write(Hex("01"), 300);
  EXPECT_EQ(script.Left(), 1);
  EXPECT_NONFATAL_FAILURE(script.Done(), "a write of 1 bytes:\n  01");
  EXPECT_EQ(script.Left(), 0);
}

TEST_F(FakeUsb, AScriptRefusesASilentDeviceAndAnError) {
  test::UsbScript script(device_);
  script.SilentRead(20).FailRead(kIOUSBPipeStalled, 300).Write({1}, 300, kIOReturnNoDevice);
  Open();
  EXPECT_EQ(Read(8, 20), std::nullopt);
  EXPECT_EQ(Read(8), std::nullopt);
  EXPECT_FALSE(Write({1}));
}

TEST_F(FakeUsb, ServesSeveralThreadsThatAttachAndScan) {
  std::vector<std::thread> threads;
  threads.reserve(4);
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([this, i] {
      const std::string serial = "T" + std::to_string(i);
      FakeUsbDevice device = StillImageDevice(serial);
      test::UsbScript script(device);
      for (int round = 0; round < 20; ++round) {
        const int id = port_.Attach(device);
        script.Write(Hex("01"), 300).Read(Hex("02"), 300);
        CUsbScanCtrl ctrl;
        EXPECT_TRUE(ctrl.UsbScanOpen(test::kFakeUsbVendor, test::kFakeUsbProduct, serial.c_str()));
        unsigned char byte = 1;
        unsigned read = 0;
        EXPECT_TRUE(ctrl.UsbScanWrite(&byte, 1, 300));
        EXPECT_TRUE(ctrl.UsbScanRead(&byte, 1, &read, 300));
        EXPECT_EQ(byte, 2);
        port_.Detach(id);
        ctrl.UsbScanClose();
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(port_.Held(), 0);
}

}  // namespace
}  // namespace vox
