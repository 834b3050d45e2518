// A scan at USB without memory: no call of a client's throws, whatever allocation fails, and none
// leaves the device open. What ends a page needs no memory at all.
#include <memory>
#include <optional>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/BlockPort.h"
#include "tests/support/NoMemory.h"
#include "vox/drivers/usb/TwImgIFUsb.h"

namespace vox::test {
namespace {

class Scanner final : public CTwImgIFUsb {
 public:
  Scanner() : CTwImgIFUsb(BlockPort::kModel, BlockPort::kSerial) {}
  ~Scanner() override { StopSession(); }
  using CTwainImageIF::m_semaphore;
  using CTwainImageIF::SetJobId;
};

class UsbMemory : public testing::Test {
 protected:
  UsbMemory() {
    port_.Load(0, 100);             // of which only the header that ends it comes
    EXPECT_TRUE(scanner_->Open());  // what is made once is made by now
    scanner_->Close();
  }

  // EachShortageOf runs the call of a fresh scanner; what it gives with all the memory there is
  // `good`.
  template <class Call>
  void EachShortageOf(bool good, std::uint32_t status, Call call) {
    bool given = false;
    EachShortage([&] { given = call(*scanner_); },
                 [&](bool failed) {
                   EXPECT_EQ(port_.Held(), 0);
                   if (!failed) {
                     EXPECT_EQ(given, good);
                     EXPECT_EQ(scanner_->GetIfErrorStatus(), status);
                   }
                   scanner_ = std::make_unique<Scanner>();
                 });
  }

  BlockPort port_;
  std::unique_ptr<Scanner> scanner_ = std::make_unique<Scanner>();
};

// Eight bytes are no answer, so a question ends with the status of a device without one.
TEST_F(UsbMemory, WhatAsksTheDeviceEnds) {
  EachShortageOf(false, IF_ERR_STS_DEVICE_COMM_ERR, [](Scanner& scanner) {
    tagSCANDEVINFO info{};
    return scanner.GetDevInfo(&info);
  });
  EachShortageOf(false, IF_ERR_STS_DEVICE_COMM_ERR,
                 [](Scanner& scanner) { return scanner.StartScan(false); });
  EachShortageOf(true, IF_ERR_STS_NONE, [](Scanner& scanner) { return scanner.SendCmdStandby(); });
  EachShortageOf(true, IF_ERR_STS_NONE, [](Scanner& scanner) { return scanner.IsOnLine(0); });
  EachShortageOf(true, IF_ERR_STS_NONE,
                 [](Scanner& scanner) { return scanner.Open() && scanner.Close(); });
}

TEST_F(UsbMemory, AnAbortEndsAndTheDestructorToo) {
  EachShortageOf(true, IF_ERR_STS_NONE, [](Scanner& scanner) {
    scanner.SetJobId({1, 2});
    return scanner.Abort();
  });
  scanner_->SetJobId({1, 2});
  EachShortage([this] { scanner_.reset(); },
               [this](bool) {
                 EXPECT_EQ(port_.Held(), 0);
                 scanner_ = std::make_unique<Scanner>();
                 scanner_->SetJobId({1, 2});
               });
}

TEST_F(UsbMemory, APageIsReadAndEndedWithoutAny) {
  port_.Load(1'000, 100);
  ASSERT_TRUE(scanner_->Open());
  unsigned char line[30];
  {
    const NoMemory none;
    for (int i = 0; i < 10; ++i) {
      unsigned got = 0;
      EXPECT_EQ(scanner_->ReadScanData(line, sizeof line, &got), 0);
      EXPECT_EQ(got, sizeof line);
    }
    EXPECT_TRUE(scanner_->DeviceEndScan());
    EXPECT_FALSE(none.HasFailed());
  }
  scanner_->m_semaphore.Down();
  EXPECT_EQ(port_.Held(), 0);
}

}  // namespace
}  // namespace vox::test
