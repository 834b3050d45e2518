// Reads and writes of the port, with time-outs, short packets, stalls and devices that go.
#include <chrono>
#include <functional>
#include <string>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/interop/usb/BusProcess.h"
#include "tests/interop/usb/Opened.h"
#include "tests/interop/usb/ScriptDevice.h"
#include "vox/platform/FileDescriptor.h"

namespace vox::test {
namespace {

using namespace std::chrono_literals;

class UsbTransfers : public testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(opened_.Open(), kIOReturnSuccess); }

  // After runs something on another thread, some time from now; it ends with the object.
  class After {
   public:
    After(std::chrono::milliseconds time, const std::function<void()>& what)
        : thread_([time, what] {
            std::this_thread::sleep_for(time);
            what();
          }) {}
    ~After() { thread_.join(); }
    After(const After&) = delete;
    After& operator=(const After&) = delete;

   private:
    std::thread thread_;
  };

  BusProcess bus_;
  const std::string name_ = bus_.Plug({});
  Opened opened_;
};

TEST_F(UsbTransfers, EndAReadWithAShortPacket) {
  bus_.Send(name_, "one");
  bus_.Send(name_, "two");
  EXPECT_EQ(opened_.Read(4096).bytes, "one");
  EXPECT_EQ(opened_.Read(100).bytes, "two");
}

TEST_F(UsbTransfers, KeepWhatDoesNotFitForTheNextRead) {
  bus_.SendPattern(name_, 600);
  const std::string all = PatternText(600);
  EXPECT_EQ(opened_.Read(28).bytes, all.substr(0, 28));
  EXPECT_EQ(opened_.Read(2).bytes, all.substr(28, 2));
  // What is left of the packet, and the short one behind it, which ends the read.
  EXPECT_EQ(opened_.Read(4096).bytes, all.substr(30));
}

TEST_F(UsbTransfers, EndAReadWhereTheKeptPacketEndedShort) {
  bus_.Send(name_, "header and more");
  bus_.Send(name_, "next");
  EXPECT_EQ(opened_.Read(6).bytes, "header");
  EXPECT_EQ(opened_.Read(100).bytes, " and more");
  EXPECT_EQ(opened_.Read(100).bytes, "next");
}

TEST_F(UsbTransfers, ReadWholePacketsWithoutTouchingWhatFollows) {
  bus_.SendPattern(name_, 1024);
  bus_.Send(name_, "next");
  EXPECT_EQ(opened_.Read(512).bytes, PatternText(1024).substr(0, 512));
  EXPECT_EQ(bus_.Unsent(name_), 512u + 4u);
  EXPECT_EQ(opened_.Read(512).bytes, PatternText(1024).substr(512));
  EXPECT_EQ(bus_.Unsent(name_), 4u);
  EXPECT_EQ(opened_.Read(512).bytes, "next");
}

TEST_F(UsbTransfers, ReadAZeroLengthPacketAsNothing) {
  bus_.Send(name_, "");
  const auto got = opened_.Read(512);
  EXPECT_EQ(got.result, kIOReturnSuccess);
  EXPECT_EQ(got.bytes, "");
}

TEST_F(UsbTransfers, SendAZeroLengthPacket) {
  EXPECT_EQ(opened_.Write("command").result, kIOReturnSuccess);
  EXPECT_EQ(opened_.Write("", 0, 0).result, kIOReturnSuccess);
  EXPECT_EQ(bus_.Lengths(name_), "7 0");
}

TEST_F(UsbTransfers, MoveSixteenMebibytesByteForByte) {
  constexpr std::size_t size = 16u << 20;
  const std::string all = PatternText(size);
  ASSERT_EQ(opened_.Write(all).result, kIOReturnSuccess);
  EXPECT_TRUE(bus_.ReceivedPattern(name_, size));
  bus_.SendPattern(name_, size);
  const auto got = opened_.Read(size);
  EXPECT_EQ(got.result, kIOReturnSuccess);
  EXPECT_TRUE(got.bytes == all);
}

TEST_F(UsbTransfers, TakeAnOddLengthWhole) {
  constexpr std::size_t size = (2u << 20) + 777;
  bus_.SendPattern(name_, size + 10);
  EXPECT_TRUE(opened_.Read(size).bytes == PatternText(size));
  EXPECT_EQ(opened_.Read(512).bytes, PatternText(size + 10).substr(size));
}

TEST_F(UsbTransfers, EndWhenNothingComes) {
  const auto got = opened_.Read(512, 100, 20'000);
  EXPECT_EQ(got.result, kIOUSBTransactionTimeout);
  EXPECT_GE(got.milliseconds, 100);
  EXPECT_LT(got.milliseconds, 10'000);
  const auto other = opened_.Read(28, 20'000, 100);
  EXPECT_EQ(other.result, kIOUSBTransactionTimeout);
  EXPECT_LT(other.milliseconds, 10'000);
}

TEST_F(UsbTransfers, EndOfThemselvesWithoutTimeOuts) {
  const auto got = opened_.Read(512, 0, 0);
  EXPECT_EQ(got.result, kIOUSBTransactionTimeout);
  EXPECT_GE(got.milliseconds, 1000);
}

TEST_F(UsbTransfers, GiveWhatCameBeforeTheTimeOut) {
  bus_.SendPattern(name_, 1024);
  const auto got = opened_.Read(1u << 20, 100, 20'000);
  EXPECT_EQ(got.result, kIOReturnSuccess);
  EXPECT_EQ(got.bytes, PatternText(1024));
  EXPECT_LT(got.milliseconds, 10'000);
}

TEST_F(UsbTransfers, GoOnWhileBytesKeepComing) {
  bus_.SendPattern(name_, 512);
  const After more(1000ms, [&] { bus_.SendPattern(name_, 512); });
  const After end(2600ms, [&] { bus_.Send(name_, "end"); });
  const auto got = opened_.Read(1u << 20, 2000, 40'000);
  EXPECT_EQ(got.result, kIOReturnSuccess);
  EXPECT_EQ(got.bytes, PatternText(512) + PatternText(512) + "end");
}

TEST_F(UsbTransfers, EndInTimeThoughBytesKeepComing) {
  EventFd stop;
  std::thread drip([&] {
    while (!stop.IsRaised()) {
      bus_.SendPattern(name_, 512);
      std::this_thread::sleep_for(20ms);
    }
  });
  const auto got = opened_.Read(64u << 20, 10'000, 500);
  stop.Raise();
  drip.join();
  EXPECT_EQ(got.result, kIOReturnSuccess);
  EXPECT_FALSE(got.bytes.empty());
  EXPECT_EQ(got.bytes.size() % 512, 0u);
  EXPECT_GE(got.milliseconds, 500);
  EXPECT_LT(got.milliseconds, 9'000);
}

TEST_F(UsbTransfers, WaitForLateData) {
  const After late(300ms, [&] { bus_.Send(name_, "late"); });
  EXPECT_EQ(opened_.Read(512).bytes, "late");
}

TEST_F(UsbTransfers, SayThatNotAllWasWritten) {
  bus_.Accept(name_, 3);
  const auto got = opened_.Write(PatternText(4096), 100, 20'000);
  EXPECT_EQ(got.result, kIOUSBTransactionTimeout);
  EXPECT_EQ(bus_.Lengths(name_), "512 512 512");
}

TEST_F(UsbTransfers, GoOnWritingWhereATimeOutCut) {
  bus_.Accept(name_, 1);
  const After rest(2000ms, [&] { bus_.Accept(name_, 1000); });
  const auto got = opened_.Write(PatternText(4096), 1500, 40'000);
  EXPECT_EQ(got.result, kIOReturnSuccess);
  EXPECT_TRUE(bus_.ReceivedPattern(name_, 4096));
}

TEST_F(UsbTransfers, StallUntilTheStallIsCleared) {
  bus_.Stall(name_, 0x81);
  EXPECT_EQ(opened_.Read(512).result, kIOUSBPipeStalled);
  EXPECT_EQ(opened_.Read(28).result, kIOUSBPipeStalled);
  EXPECT_EQ(opened_.interface()->ClearPipeStallBothEnds(Opened::kIn), kIOReturnSuccess);
  EXPECT_EQ(bus_.ClearedHalts(name_), 1);
  bus_.Send(name_, "back");
  EXPECT_EQ(opened_.Read(512).bytes, "back");
  bus_.Stall(name_, 0x02);
  EXPECT_EQ(opened_.Write("x").result, kIOUSBPipeStalled);
}

TEST_F(UsbTransfers, KeepWhatCameBeforeAStall) {
  bus_.SendPattern(name_, 1024);
  bus_.Stall(name_, 0x81);
  EXPECT_EQ(opened_.Read(4096).result, kIOUSBPipeStalled);
  EXPECT_EQ(opened_.Read(1000).bytes, PatternText(1024).substr(0, 1000));
  EXPECT_EQ(opened_.Read(24).bytes, PatternText(1024).substr(1000));
}

TEST_F(UsbTransfers, EndWhenTheDeviceGoes) {
  const After pull(200ms, [&] { bus_.Unplug(name_); });
  const auto got = opened_.Read(512);
  EXPECT_EQ(got.result, kIOReturnNoDevice);
  EXPECT_LT(got.milliseconds, 10'000);
  EXPECT_EQ(opened_.Read(512).result, kIOReturnNoDevice);
  EXPECT_EQ(opened_.Write("x").result, kIOReturnNoDevice);
  opened_.Close();
}

TEST_F(UsbTransfers, EndAtOnceWhenInterruptedAndLoseNothing) {
  bus_.SendPattern(name_, 1024);
  EventFd stop;
  std::chrono::steady_clock::time_point raised;
  {
    const UsbInterrupt interrupt(stop.Get());
    const After raise(300ms, [&] {
      raised = std::chrono::steady_clock::now();
      stop.Raise();
    });
    EXPECT_EQ(opened_.Read(1u << 20).result, kIOReturnAborted);
    EXPECT_LT(std::chrono::steady_clock::now() - raised, 2s);
    EXPECT_EQ(opened_.Read(100).result, kIOReturnAborted);  // though bytes are kept
    EXPECT_EQ(opened_.Write("x").result, kIOReturnAborted);
  }
  bus_.Send(name_, "end");
  EXPECT_EQ(opened_.Read(1u << 20).bytes, PatternText(1024) + "end");
}

TEST_F(UsbTransfers, RefusePipesOfTheOtherDirectionAndPipesThatAreNot) {
  std::uint32_t size = 1;
  char byte = 0;
  auto* const interface = opened_.interface();
  EXPECT_EQ(interface->ReadPipeTO(Opened::kOut, &byte, &size, 100, 100), kIOReturnBadArgument);
  EXPECT_EQ(interface->WritePipeTO(Opened::kIn, &byte, 1, 100, 100), kIOReturnBadArgument);
  EXPECT_EQ(interface->ReadPipeTO(0, &byte, &size, 100, 100), kIOReturnBadArgument);
  EXPECT_EQ(interface->ReadPipeTO(4, &byte, &size, 100, 100), kIOReturnBadArgument);
  EXPECT_EQ(interface->ClearPipeStallBothEnds(9), kIOReturnBadArgument);
}

TEST_F(UsbTransfers, OfTwoDevicesDoNotMeet) {
  const std::string other = bus_.Plug({.ports = "5", .product = 0xbee0});
  bus_.SendPattern(name_, 1u << 20);
  // A second device and a second thread, each with a libusb of its own.
  std::thread search([] {
    for (int i = 0; i < 10; ++i) EXPECT_THAT(FindDevices(), testing::SizeIs(1));
  });
  EXPECT_TRUE(opened_.Read(1u << 20).bytes == PatternText(1u << 20));
  search.join();
}

}  // namespace
}  // namespace vox::test
