// Reading and writing the bulk pipes.
#include <array>
#include <limits>

#include "tests/unit/usb/UsbCtrl.h"

namespace vox {
namespace {

using std::chrono::milliseconds;
using test::Hex;
using testing::ElementsAre;
using testing::SizeIs;

class UsbTransfer : public UsbCtrl {
 protected:
  static constexpr unsigned kUntouched = 4711;

  // What a read of so many bytes gives; nothing on failure.
  std::optional<Bytes> Read(unsigned size, int timeout) {
    Bytes buffer(size);
    unsigned read = kUntouched;
    if (!ctrl_.UsbScanRead(buffer.data(), size, &read, timeout)) {
      EXPECT_EQ(read, kUntouched);
      return std::nullopt;
    }
    EXPECT_LE(read, size);
    buffer.resize(read);
    return buffer;
  }
  bool Write(Bytes bytes, int timeout) {
    return ctrl_.UsbScanWrite(bytes.data(), static_cast<unsigned>(bytes.size()), timeout) != 0;
  }
  int Transfers() const { return port_.Count("ReadPipeTO") + port_.Count("WritePipeTO"); }
};

TEST_F(UsbTransfer, GoesOverTheFirstPipesWithTheTimeOutAndTwiceTheTimeOut) {
  Shape().endpoints = {{kUSBIn, kUSBInterrupt},
                       {kUSBIn, kUSBBulk},
                       {kUSBOut, kUSBBulk},
                       {kUSBIn, kUSBBulk},
                       {kUSBOut, kUSBBulk}};
  test::UsbScript script(device_);
  script.Write(Hex("4D 46 50 50"), 300).Write({}, 0).Read(Hex("01 02 03"), 15000, 512);
  port_.Attach(device_);
  ASSERT_TRUE(Open());
  EXPECT_TRUE(Write(Hex("4D 46 50 50"), 300));
  EXPECT_TRUE(ctrl_.UsbScanWrite(nullptr, 0, 0));
  EXPECT_EQ(Read(512, 15000), Hex("01 02 03")) << "less than was asked for";
  EXPECT_EQ(port_.CallsOf("WritePipeTO")[0].pipe, 3);
  EXPECT_EQ(port_.CallsOf("WritePipeTO")[1].size, 0u);
  EXPECT_EQ(port_.CallsOf("ReadPipeTO")[0].pipe, 2);
}

TEST_F(UsbTransfer, IsOneOperationThatIsNeitherSplitNorRepeatedNorCleared) {
  test::UsbScript script(device_);
  script.Write(Bytes(100'000, 0x5A), 20, kIOUSBPipeStalled).FailRead(kIOUSBPipeStalled, 30);
  port_.Attach(device_);
  ASSERT_TRUE(Open());
  const int cleared = port_.Count("ClearPipeStallBothEnds");
  EXPECT_FALSE(Write(Bytes(100'000, 0x5A), 20));
  EXPECT_EQ(Read(200'000, 30), std::nullopt);
  EXPECT_EQ(Transfers(), 2);
  EXPECT_EQ(port_.Count("ClearPipeStallBothEnds"), cleared);
  EXPECT_TRUE(ctrl_.IsOnLine());
  EXPECT_EQ(ctrl_.GetLastError(), 0u);
}

TEST_F(UsbTransfer, ThatTimesOutLeavesTheCountAloneAndNoError) {
  device_.on_read = [](std::uint32_t, const FakeUsbTransfer&) {
    return FakeUsbAnswer{.silent = true};
  };
  port_.Attach(device_);
  ASSERT_TRUE(Open());
  EXPECT_EQ(Read(8, 20), std::nullopt);
  EXPECT_EQ(ctrl_.GetLastError(), 0u);
}

TEST_F(UsbTransfer, OfNothingIsSuccessWithNothing) {
  test::UsbScript script(device_);
  script.Read({}, 5);
  port_.Attach(device_);
  ASSERT_TRUE(Open());
  EXPECT_EQ(Read(8, 5), Bytes());
}

TEST_F(UsbTransfer, OfAClosedControllerFailsWithoutThePort) {
  EXPECT_EQ(Read(8, 5), std::nullopt);
  EXPECT_FALSE(Write({1}, 5));
  port_.Attach(device_);
  ASSERT_TRUE(Open());
  ctrl_.UsbScanClose();
  EXPECT_EQ(Read(8, 5), std::nullopt);
  EXPECT_FALSE(Write({1}, 5));
  EXPECT_EQ(Transfers(), 0);
}

TEST_F(UsbTransfer, WithoutAPipeFailsWithoutThePort) {
  Shape().endpoints = {{kUSBIn, kUSBInterrupt}};
  port_.Attach(device_);
  ASSERT_TRUE(Open());
  EXPECT_EQ(Read(8, 5), std::nullopt);
  EXPECT_FALSE(Write({1}, 5));
  EXPECT_EQ(Transfers(), 0);
}

TEST_F(UsbTransfer, TakesTheLongestTimeOutAndHoldsANegativeOneForNone) {
  port_.Attach(device_);
  ASSERT_TRUE(Open());
  EXPECT_TRUE(Write({1}, std::numeric_limits<int>::max()));
  EXPECT_TRUE(Write({1}, -1));
  const auto writes = port_.CallsOf("WritePipeTO");
  EXPECT_EQ(writes[0].no_data_ms, 0x7FFFFFFFu);
  EXPECT_EQ(writes[0].completion_ms, 0xFFFFFFFEu);
  EXPECT_EQ(writes[1].no_data_ms, 0u);
  EXPECT_EQ(writes[1].completion_ms, 0u);
}

TEST_F(UsbTransfer, EndsWhenTheDeviceIsUnplugged) {
  const int id = port_.Attach(device_);
  ASSERT_TRUE(Open());
  std::thread puller([&] {
    std::this_thread::sleep_for(milliseconds(20));
    port_.Detach(id);
  });
  EXPECT_EQ(Read(8, 3'600'000), std::nullopt);
  puller.join();
  EXPECT_FALSE(Write({1}, 5));
  ctrl_.UsbScanClose();
  ExpectNothingHeld();
}

TEST_F(UsbTransfer, EndsWhenItIsInterruptedAndLosesNoByte) {
  int asked = 0;
  device_.on_read = [&](std::uint32_t, const FakeUsbTransfer&) {
    return ++asked == 1 ? FakeUsbAnswer{kIOReturnAborted, Hex("01 02"), true}
                        : FakeUsbAnswer{kIOReturnSuccess, Hex("FF")};
  };
  port_.Attach(device_);
  ASSERT_TRUE(Open());
  {
    EventFd raised;
    const UsbInterrupt interrupt(raised.Get());
    std::thread raiser([&] {
      std::this_thread::sleep_for(milliseconds(20));
      raised.Raise();
    });
    EXPECT_EQ(Read(8, 3'600'000), std::nullopt);
    raiser.join();
    EXPECT_FALSE(Write({1}, 5));
  }
  EXPECT_EQ(Read(1, 5), Hex("01"));
  EXPECT_EQ(Read(8, 5), Hex("02"));
  EXPECT_EQ(Read(8, 5), Hex("FF"));
}

TEST_F(UsbTransfer, SendNullPacketSendsNone) {
  port_.Attach(device_);
  ASSERT_TRUE(Open());
  EXPECT_TRUE(ctrl_.SendNullPacket());
  EXPECT_EQ(Transfers(), 0);
}

}  // namespace
}  // namespace vox
