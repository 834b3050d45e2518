// The emulated bus, met by libusb itself.
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <libusb.h>

#include "tests/interop/usb/BusProcess.h"
#include "tests/interop/usb/ScriptDevice.h"

namespace vox::test {
namespace {

constexpr unsigned kMs = 5000;

class Bus : public testing::Test {
 protected:
  void SetUp() override {
    name_ = bus_.Plug({});
    ASSERT_EQ(libusb_init(&context_), 0);
    handle_ = libusb_open_device_with_vid_pid(context_, 0x1209, 0xbeef);
    ASSERT_NE(handle_, nullptr);
    ASSERT_EQ(libusb_claim_interface(handle_, 0), 0);
  }
  void TearDown() override {
    if (handle_ != nullptr) libusb_close(handle_);
    if (context_ != nullptr) libusb_exit(context_);
  }

  int Transfer(std::uint8_t endpoint, std::vector<std::uint8_t>& bytes, unsigned ms = kMs) {
    int moved = 0;
    const int result = libusb_bulk_transfer(handle_, endpoint, bytes.data(),
                                            static_cast<int>(bytes.size()), &moved, ms);
    bytes.resize(static_cast<std::size_t>(moved));
    return result;
  }
  int Read(std::size_t room, std::vector<std::uint8_t>* bytes, unsigned ms = kMs) {
    bytes->assign(room, 0);
    return Transfer(0x81, *bytes, ms);
  }

  BusProcess bus_;
  std::string name_;
  libusb_context* context_ = nullptr;
  libusb_device_handle* handle_ = nullptr;
};

TEST_F(Bus, MovesBytesBothWays) {
  auto sent = Pattern(100'000);
  EXPECT_EQ(Transfer(0x02, sent), 0);
  EXPECT_EQ(sent.size(), 100'000u);
  EXPECT_TRUE(bus_.ReceivedPattern(name_, 100'000));
  bus_.SendPattern(name_, 100'000);
  std::vector<std::uint8_t> got;
  EXPECT_EQ(Read(1u << 20, &got), 0);
  EXPECT_EQ(got, Pattern(100'000));
}

TEST_F(Bus, EndsAReadWithAShortPacket) {
  bus_.Send(name_, "one");
  bus_.Send(name_, "two");
  std::vector<std::uint8_t> got;
  EXPECT_EQ(Read(1024, &got), 0);
  EXPECT_EQ(std::string(got.begin(), got.end()), "one");
  EXPECT_EQ(Read(1024, &got), 0);
  EXPECT_EQ(std::string(got.begin(), got.end()), "two");
}

TEST_F(Bus, OverflowsAReadWithoutRoomForThePacket) {
  bus_.SendPattern(name_, 512);
  std::vector<std::uint8_t> got;
  EXPECT_EQ(Read(100, &got), LIBUSB_ERROR_OVERFLOW);
}

TEST_F(Bus, KeepsAReadWaitingAndGivesWhatCameBeforeItTimedOut) {
  std::vector<std::uint8_t> got;
  EXPECT_EQ(Read(512, &got, 50), LIBUSB_ERROR_TIMEOUT);
  EXPECT_TRUE(got.empty());
  bus_.SendPattern(name_, 512);
  EXPECT_EQ(Read(1024, &got, 200), LIBUSB_ERROR_TIMEOUT);
  EXPECT_EQ(got, Pattern(512));
}

TEST_F(Bus, StallsUntilItIsCleared) {
  bus_.Stall(name_, 0x81);
  std::vector<std::uint8_t> got;
  EXPECT_EQ(Read(512, &got), LIBUSB_ERROR_PIPE);
  EXPECT_EQ(Read(512, &got), LIBUSB_ERROR_PIPE);
  EXPECT_EQ(libusb_clear_halt(handle_, 0x81), 0);
  bus_.Send(name_, "back");
  EXPECT_EQ(Read(512, &got), 0);
  EXPECT_EQ(got.size(), 4u);
}

TEST_F(Bus, HoldsBackPacketsThatTheDeviceDoesNotTake) {
  bus_.Accept(name_, 2);
  auto sent = Pattern(2048);
  EXPECT_EQ(Transfer(0x02, sent, 200), LIBUSB_ERROR_TIMEOUT);
  EXPECT_EQ(sent.size(), 1024u);
  EXPECT_EQ(bus_.Lengths(name_), "512 512");
}

TEST_F(Bus, EndsTransfersOfADeviceThatIsUnplugged) {
  bus_.Unplug(name_);
  std::vector<std::uint8_t> got;
  EXPECT_EQ(Read(512, &got), LIBUSB_ERROR_NO_DEVICE);
  const std::string again = bus_.Plug({});
  EXPECT_EQ(again, name_);
}

TEST_F(Bus, LetsOneProgramClaimAnInterface) {
  libusb_device_handle* const second = libusb_open_device_with_vid_pid(context_, 0x1209, 0xbeef);
  ASSERT_NE(second, nullptr);
  EXPECT_EQ(libusb_claim_interface(second, 0), LIBUSB_ERROR_BUSY);
  EXPECT_EQ(bus_.Claims(name_), 1);
  libusb_close(handle_);
  handle_ = second;
  // The bus hears of a node that is closed when it can.
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  int result = LIBUSB_ERROR_BUSY;
  while (result == LIBUSB_ERROR_BUSY && std::chrono::steady_clock::now() < end) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    result = libusb_claim_interface(second, 0);
  }
  EXPECT_EQ(result, 0);
}

}  // namespace
}  // namespace vox::test
