// Reads and writes of any length, made of transfers of whole packets: which transfers are asked
// for, and that no byte is lost, doubled or put out of order.
#include "vox/platform/UsbPipe.h"

#include <deque>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/unit/usb/FakeLibUsb.h"
#include "vox/platform/FileDescriptor.h"

namespace vox::test {
namespace {

using testing::ElementsAre;

constexpr std::size_t kPacket = 512, kMiB = 1 << 20;

Bytes Counting(std::size_t from, std::size_t count) {
  Bytes bytes(count);
  for (std::size_t i = 0; i < count; ++i)
    bytes[i] = static_cast<std::uint8_t>((from + i) * 7 + ((from + i) >> 9));
  return bytes;
}

class Pipe : public testing::Test {
 protected:
  Pipe() {
    EXPECT_EQ(session_.Open(), kIOReturnSuccess);
    usb_.answer = [this](const FakeUrb& urb) {
      sizes_.push_back(urb.size);
      if (next_.empty()) return Cut({});
      FakeUrbEnd end = next_.front();
      next_.pop_front();
      return end;
    };
  }
  static FakeUrbEnd Sends(const Bytes& bytes) { return {.bytes = bytes}; }
  // Nothing more comes than these bytes, until the host cancels.
  static FakeUrbEnd Cut(const Bytes& bytes) {
    return {
        .status = LIBUSB_TRANSFER_CANCELLED, .bytes = bytes, .when = FakeUrbEnd::kWhenCancelled};
  }
  IOReturn Read(std::size_t size, std::uint32_t no_data_ms = 10'000,
                std::uint32_t completion_ms = 20'000) {
    got_.assign(size, 0);
    std::uint32_t count = 0;
    const IOReturn result = in_.Read(session_, got_, {no_data_ms, completion_ms}, &count);
    got_.resize(result == kIOReturnSuccess ? count : 0);
    return result;
  }
  std::vector<std::size_t> Sizes() { return std::exchange(sizes_, {}); }

  FakeLibUsb usb_;
  UsbSession session_{usb_.Record()};
  UsbPipe in_{UsbPipeShape{0x81, kUSBBulk, kPacket, 0}};
  UsbPipe out_{UsbPipeShape{0x02, kUSBBulk, kPacket, 0}};
  std::deque<FakeUrbEnd> next_;
  std::vector<std::size_t> sizes_;
  Bytes got_;
};

TEST_F(Pipe, ReadsWholePacketsAndKeepsWhatDoesNotFit) {
  next_ = {Sends(Counting(0, 3 * kPacket))};
  EXPECT_EQ(Read(2 * kPacket + 10), kIOReturnSuccess);
  EXPECT_EQ(got_, Counting(0, 2 * kPacket + 10));
  EXPECT_THAT(Sizes(), ElementsAre(3 * kPacket)) << "the packet that does not fit comes with them";
  EXPECT_EQ(Read(500), kIOReturnSuccess);
  EXPECT_EQ(got_, Counting(2 * kPacket + 10, 500));
  EXPECT_THAT(Sizes(), ElementsAre()) << "nobody is asked for what is kept";
  next_ = {Sends(Hex("AA"))};
  EXPECT_EQ(Read(8), kIOReturnSuccess);
  EXPECT_EQ(got_, Counting(3 * kPacket - 2, 2) + Hex("AA")) << "the kept packet was a whole one";
}

TEST_F(Pipe, AsksForAMebibyteAtOnceAtMost) {
  next_ = {Sends(Counting(0, kMiB)), Sends(Counting(kMiB, kMiB)),
           Sends(Counting(2 * kMiB, kPacket))};
  EXPECT_EQ(Read(2 * kMiB + kPacket), kIOReturnSuccess);
  EXPECT_TRUE(got_ == Counting(0, 2 * kMiB + kPacket));
  EXPECT_THAT(Sizes(), ElementsAre(kMiB, kMiB, kPacket));
}

TEST_F(Pipe, AShortPacketEndsAReadAlsoWhereItWasKept) {
  next_ = {Sends(Counting(0, 20)), Sends(Hex("BB"))};
  EXPECT_EQ(Read(8), kIOReturnSuccess);
  EXPECT_EQ(Read(512), kIOReturnSuccess);
  EXPECT_EQ(got_, Counting(8, 12));
  EXPECT_EQ(Read(512), kIOReturnSuccess);
  EXPECT_EQ(got_, Hex("BB"));
}

// A large read that is cut is read again in small ones, byte for byte.
TEST_F(Pipe, WhatAFailedReadHadReceivedComesAgainWhateverTheSizes) {
  constexpr std::size_t size = 3 * kMiB;
  next_ = {Sends(Counting(0, kMiB)),
           Sends(Counting(kMiB, kMiB)),
           {.status = LIBUSB_TRANSFER_STALL, .bytes = Counting(2 * kMiB, 1000)}};
  EXPECT_EQ(Read(size), kIOUSBPipeStalled);
  constexpr std::size_t received = 2 * kMiB + 1000;
  std::size_t at = 0;
  for (std::size_t piece = 1; at < received; piece = piece * 3 % 70'001) {
    const std::size_t left = std::min(piece, received - at);
    ASSERT_EQ(Read(left), kIOReturnSuccess);
    ASSERT_TRUE(got_ == Counting(at, left)) << at;
    at += left;
  }
  Sizes();
  next_ = {Sends(Hex("CC"))};
  EXPECT_EQ(Read(4), kIOReturnSuccess);
  EXPECT_EQ(got_, Hex("CC")) << "and nothing comes twice";
}

TEST_F(Pipe, AReadThatFailsAgainKeepsWhatWasKept) {
  next_ = {{.status = LIBUSB_TRANSFER_STALL, .bytes = Counting(0, 600)}};
  EXPECT_EQ(Read(2048), kIOUSBPipeStalled);
  next_ = {{.status = LIBUSB_TRANSFER_STALL, .bytes = Counting(600, 700)}};
  EXPECT_EQ(Read(2048), kIOUSBPipeStalled);
  EXPECT_EQ(Read(1), kIOReturnSuccess);
  EXPECT_EQ(got_, Counting(0, 1));
  next_ = {Sends(Counting(1300, 8))};
  EXPECT_EQ(Read(4096), kIOReturnSuccess);
  EXPECT_EQ(got_, Counting(1, 1307));
}

TEST_F(Pipe, AReadGoesOnAfterATimeOutThatBytesCameIn) {
  next_ = {Cut(Counting(0, kPacket)), Cut(Counting(kPacket, kPacket)), Cut({})};
  EXPECT_EQ(Read(4096, 100, 60'000), kIOReturnSuccess);
  EXPECT_EQ(got_, Counting(0, 2 * kPacket));
  EXPECT_THAT(Sizes(), ElementsAre(4096, 3584, 3072));
  EXPECT_EQ(Read(4096, 20, 60'000), kIOUSBTransactionTimeout);
}

TEST_F(Pipe, AReadEndsInTimeThoughBytesCame) {
  next_ = {Cut(Counting(0, kPacket)), Cut(Counting(kPacket, kPacket))};
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(Read(4096, 60'000, 100), kIOReturnSuccess);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
  EXPECT_EQ(got_, Counting(0, kPacket));
}

// A transfer may be cut within a packet: the room of the rest is no number of whole packets then.
TEST_F(Pipe, AReadOfWholePacketsGoesOnAfterAnOddCut) {
  next_ = {Cut(Counting(0, 600)), Sends(Counting(600, kPacket)), Sends(Counting(1112, kPacket)),
           Sends(Counting(1624, 424))};
  EXPECT_EQ(Read(2048, 50, 60'000), kIOReturnSuccess);
  EXPECT_EQ(got_, Counting(0, 2048));
  EXPECT_THAT(Sizes(), ElementsAre(2048, kPacket, kPacket, kPacket));
}

TEST_F(Pipe, AnInterruptedReadLosesNoByte) {
  EventFd raised;
  {
    const UsbInterrupt interrupt(raised.Get());
    usb_.answer = [&](const FakeUrb&) {
      raised.Raise();
      return Cut(Counting(0, kPacket));
    };
    EXPECT_EQ(Read(4096), kIOReturnAborted);
    EXPECT_EQ(Read(8), kIOReturnAborted) << "though bytes are kept";
  }
  EXPECT_EQ(Read(kPacket), kIOReturnSuccess);
  EXPECT_EQ(got_, Counting(0, kPacket));
}

TEST_F(Pipe, WritesInWholePacketsAndGoesOnWhereATimeOutCut) {
  Bytes sent;
  usb_.answer = [&](const FakeUrb& urb) {
    sizes_.push_back(urb.size);
    const bool cut = sizes_.size() == 1;
    const std::size_t taken = cut ? 3 * kPacket : urb.size;
    sent.insert(sent.end(), urb.written.begin(),
                urb.written.begin() + static_cast<std::ptrdiff_t>(taken));
    FakeUrbEnd end = cut ? Cut({}) : FakeUrbEnd{};
    end.taken = taken;
    return end;
  };
  const Bytes all = Counting(0, kMiB + 100);
  EXPECT_EQ(out_.Write(session_, all, {100, 60'000}), kIOReturnSuccess);
  EXPECT_TRUE(sent == all);
  EXPECT_THAT(Sizes(), ElementsAre(kMiB, kMiB + 100 - 3 * kPacket));
}

// A transfer that has ended well and moved nothing would be repeated for ever.
TEST_F(Pipe, AWriteThatMovesNothingEnds) {
  next_ = {FakeUrbEnd{.taken = kPacket}, FakeUrbEnd{}};
  EXPECT_EQ(out_.Write(session_, Counting(0, 2 * kPacket), {100, 200}), kIOReturnNotResponding);
  EXPECT_THAT(Sizes(), ElementsAre(2 * kPacket, kPacket));
}

TEST_F(Pipe, AZeroLengthPacketIsOneTransferOfNothing) {
  next_ = {Sends({})};
  EXPECT_EQ(out_.Write(session_, {}, {0, 0}), kIOReturnSuccess);
  EXPECT_THAT(Sizes(), ElementsAre(0u));
}

// Five seconds, and not for ever.
TEST_F(Pipe, AZeroLengthPacketThatNobodyTakesHasAnEndThoughItsTimeIsNone) {
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(out_.Write(session_, {}, {0, 0}), kIOUSBTransactionTimeout);
  const auto took = std::chrono::steady_clock::now() - start;
  EXPECT_GE(took, std::chrono::milliseconds(4'900));
  EXPECT_LT(took, std::chrono::seconds(20));
}

TEST_F(Pipe, OfAPacketSizeThatNoDeviceHasMovesNothing) {
  std::uint32_t count = 0;
  Bytes room(8);
  for (const std::uint16_t packet : {std::uint16_t{0}, std::uint16_t{2048}}) {
    UsbPipe odd(UsbPipeShape{0x81, kUSBBulk, packet, 0});
    EXPECT_EQ(odd.Read(session_, room, {10, 20}, &count), kIOReturnBadArgument);
  }
  UsbPipe control(UsbPipeShape{0x81, 0, kPacket, 0});
  EXPECT_EQ(control.Read(session_, room, {10, 20}, &count), kIOReturnBadArgument);
  EXPECT_EQ(out_.Read(session_, room, {10, 20}, &count), kIOReturnBadArgument);
  EXPECT_EQ(in_.Write(session_, room, {10, 20}), kIOReturnBadArgument);
  EXPECT_THAT(Sizes(), ElementsAre());
}

}  // namespace
}  // namespace vox::test
