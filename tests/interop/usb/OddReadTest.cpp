// Reads that are not of whole packets, of every way in which a device may send: the bytes come in
// their order and none is lost.
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "tests/interop/usb/BusProcess.h"
#include "tests/interop/usb/Opened.h"
#include "tests/interop/usb/ScriptDevice.h"
#include "vox/platform/FileDescriptor.h"

namespace vox::test {
namespace {

class OddReads : public testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(opened_.Open(), kIOReturnSuccess); }

  BusProcess bus_;
  const std::string name_ = bus_.Plug({});
  Opened opened_;
};

TEST_F(OddReads, GiveAnEndlessStreamPieceByPiece) {
  constexpr std::size_t kAll = 300'000;
  const std::string all = PatternText(kAll);
  bus_.SendPattern(name_, kAll);
  std::string got;
  for (std::uint32_t i = 0; got.size() < kAll; ++i) {
    const std::uint32_t sizes[] = {8, 5'001, 511, 513, 1, 20'480, 12'345};
    const auto piece = opened_.Read(sizes[i % 7]);
    ASSERT_EQ(piece.result, kIOReturnSuccess);
    ASSERT_GT(piece.bytes.size(), 0u);
    got += piece.bytes;
  }
  EXPECT_TRUE(got == all);
}

TEST_F(OddReads, EndWithTheDevicesTransfer) {
  bus_.SendPattern(name_, 5'001);
  bus_.Send(name_, "next");
  EXPECT_TRUE(opened_.Read(5'001).bytes == PatternText(5'001));
  bus_.SendPattern(name_, 3'000);
  EXPECT_EQ(opened_.Read(100).bytes, "next");
  EXPECT_TRUE(opened_.Read(5'001).bytes == PatternText(3'000));
}

TEST_F(OddReads, EndWhereTheRestOfAShortPacketWasKept) {
  bus_.Send(name_, PatternText(5'100));
  bus_.Send(name_, "next");
  EXPECT_TRUE(opened_.Read(5'001).bytes == PatternText(5'001));
  EXPECT_EQ(opened_.Read(700).bytes, PatternText(5'100).substr(5'001));
  EXPECT_EQ(opened_.Read(700).bytes, "next");
}

TEST_F(OddReads, GoOnWhereTheRestOfAWholePacketWasKept) {
  bus_.SendPattern(name_, 5'120);
  bus_.Send(name_, "end");
  EXPECT_TRUE(opened_.Read(5'001).bytes == PatternText(5'001));
  EXPECT_EQ(opened_.Read(700).bytes, PatternText(5'120).substr(5'001) + "end");
}

TEST_F(OddReads, KeepWhatCameBeforeAStall) {
  bus_.SendPattern(name_, 2'048);
  bus_.Stall(name_, 0x81);
  EXPECT_EQ(opened_.Read(4'001).result, kIOUSBPipeStalled);
  EXPECT_EQ(opened_.Read(1'000).bytes, PatternText(2'048).substr(0, 1'000));
  EXPECT_EQ(opened_.Read(1'048).bytes, PatternText(2'048).substr(1'000));
}

TEST_F(OddReads, KeepWhatCameBeforeAnInterrupt) {
  bus_.SendPattern(name_, 1'024);
  EventFd stop;
  EXPECT_EQ(opened_.Read(24).bytes, PatternText(1'024).substr(0, 24));
  {
    const UsbInterrupt interrupt(stop.Get());
    std::thread raise([&] {
      while (bus_.Unsent(name_) > 0) std::this_thread::yield();
      stop.Raise();
    });
    EXPECT_EQ(opened_.Read(2'001).result, kIOReturnAborted);
    raise.join();
  }
  bus_.Send(name_, "end");
  EXPECT_EQ(opened_.Read(2'001).bytes, PatternText(1'024).substr(24) + "end");
}

TEST_F(OddReads, GiveWhatCameBeforeTheTimeOut) {
  bus_.SendPattern(name_, 1'024);
  EXPECT_TRUE(opened_.Read(2'001, 100, 20'000).bytes == PatternText(1'024));
  EXPECT_EQ(opened_.Read(2'001, 100, 20'000).result, kIOUSBTransactionTimeout);
}

}  // namespace
}  // namespace vox::test
