// UsbCtrl is a controller whose record a test can read, on a machine of the test's own.
#pragma once

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/FakeUsbPort.h"
#include "tests/support/UsbScript.h"
#include "vox/drivers/usb/UsbScanCtrl.h"

namespace vox {

using test::Bytes;
using test::FakeUsbAnswer;
using test::FakeUsbDevice;
using test::FakeUsbInterface;
using test::FakeUsbTransfer;
using test::kFakeUsbProduct;
using test::kFakeUsbVendor;
using test::StillImageDevice;

constexpr IOReturn kRefused = 0xE00002D8;

class UsbCtrl : public testing::Test {
 protected:
  class Ctrl : public CUsbScanCtrl {
   public:
    using CUsbScanCtrl::idevice;
    using CUsbScanCtrl::m_deviceData;
    using CUsbScanCtrl::OpenLevel;
  };

  // Whatever a test does, everything has been given back once the controller is closed.
  ~UsbCtrl() override {
    ctrl_.UsbScanClose();
    EXPECT_EQ(ctrl_.OpenLevel, 0);
    EXPECT_FALSE(ctrl_.IsOnLine());
    ExpectNothingHeld();
  }
  void ExpectNothingHeld() const {
    EXPECT_EQ(port_.HeldRegistry(), 0);
    EXPECT_EQ(port_.HeldInterfaces(), 0);
    EXPECT_EQ(port_.OpenDevices(), 0);
    EXPECT_EQ(port_.OpenInterfaces(), 0);
  }
  bool Open(const char* serial = "SN1") {
    return ctrl_.UsbScanOpen(kFakeUsbVendor, kFakeUsbProduct, serial) != 0;
  }
  // Opens, and gives what is printed meanwhile.
  std::string Printed(bool expected) {
    testing::internal::CaptureStdout();
    const bool opened = Open();
    std::string text = testing::internal::GetCapturedStdout();
    EXPECT_EQ(opened, expected);
    return text;
  }
  FakeUsbInterface& Shape() { return device_.interfaces[0]; }

  test::FakeUsbPort port_;
  FakeUsbDevice device_ = StillImageDevice("SN1");
  Ctrl ctrl_;
};

}  // namespace vox
