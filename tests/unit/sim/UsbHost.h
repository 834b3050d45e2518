// A tiny host at the other end of a virtual device's two pipes: packets are put together here by
// hand, and time stands still until a test moves it.
//
//     const Bytes job = StartJob(Request());
//     RequestPage(job);
//     EXPECT_EQ(Read(128), ...);
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "sim/UsbDevice.h"
#include "tests/support/Hex.h"

namespace vox::sim {

using test::Hex;
using test::ToHex;
using namespace std::chrono_literals;
using test::operator+;

inline constexpr char kPrefix[] = "4D 46 50 50 30 32 30 30 4D 4C 30 31 00 00 32 ";

inline Bytes UsbCommand(std::uint8_t code, const Bytes& parameters) {
  const Bytes tail = {code, static_cast<std::uint8_t>(parameters.size()), 0, 0, 0};
  return Hex(kPrefix) + tail + parameters;
}

inline Bytes Le32(std::uint32_t value) {
  return {static_cast<std::uint8_t>(value), static_cast<std::uint8_t>(value >> 8),
          static_cast<std::uint8_t>(value >> 16), static_cast<std::uint8_t>(value >> 24)};
}

// A window of 64 by 40 pixels at 100 dpi, as bytes of a scan command.
inline Bytes Block(std::uint32_t data_type) {
  Bytes bytes = Le32(data_type) + Le32(0) + Le32(0) + Le32(100) + Le32(100) + Le32(0) + Le32(0) +
                Le32(64) + Le32(40);
  bytes.resize(128);
  return bytes;
}
inline constexpr std::size_t kGreyPage = std::size_t{64} * 40;  // bytes

class UsbTest : public testing::Test {
 protected:
  void Start(DeviceOptions options = {}) {
    device_ = std::make_unique<UsbDevice>(std::move(options), [this] { return now_; });
    ASSERT_EQ(device_->Error(), "");
  }
  void StartWith(const std::string& faults, DeviceOptions options = {}) {
    ASSERT_EQ(ParseFault(faults, options.faults), "") << faults;
    Start(std::move(options));
  }
  UsbScanner& Scanner() { return device_->Scanner(); }
  EventLog& Events() { return device_->Events(); }
  void Pass(std::chrono::milliseconds time) { now_ += time; }

  // Send sends a command and the empty packet behind it.
  UsbStatus Send(std::uint8_t code, const Bytes& parameters = {}) {
    const UsbStatus status = Scanner().OnBulkOut(UsbCommand(code, parameters));
    return status == UsbStatus::kOk ? Scanner().OnBulkOut({}) : status;
  }
  // Read is one transfer with room for so many bytes, as far as it gets; status_ tells how it went.
  Bytes Read(std::size_t room) {
    Bytes bytes;
    do {
      UsbIn in = Scanner().OnBulkIn(room - bytes.size());
      status_ = in.status;
      again_ = in.again;
      bytes = std::move(bytes) + in.bytes;
      if (in.status != UsbStatus::kOk || in.ends) break;
    } while (bytes.size() < room);
    return bytes;
  }
  Bytes StartJob(std::uint32_t data_type = kGrey) {
    EXPECT_EQ(Send(0x41, Block(data_type)), UsbStatus::kOk);
    const Bytes response = Read(28);
    EXPECT_EQ(response.size(), 28u);
    if (response.size() != 28) return Bytes(8);
    EXPECT_EQ(response[15], 0x43);
    return {response.begin() + 20, response.end()};
  }
  // The page request, and the block that comes upon it.
  Bytes OpenPage(const Bytes& job) {
    EXPECT_EQ(Send(0x62, job), UsbStatus::kOk);
    return Read(128);
  }
  // TakePage reads blocks as they come, to the header that ends the page.
  struct Taken {
    Bytes data;
    std::vector<std::uint32_t> sizes;  // of the blocks
    Bytes end;                         // the last header
  };
  Taken TakePage() {
    Taken taken;
    for (int i = 0; i < 100000; ++i) {
      const Bytes header = Read(8);
      if (header.size() != 8) break;
      const std::uint32_t length = header[0] | header[1] << 8 | header[2] << 16;
      if (length == 0 && header[5] == 4) continue;
      taken.end = header;
      if (length == 0) break;
      taken.sizes.push_back(length);
      taken.data = std::move(taken.data) + Read(length);
    }
    return taken;
  }
  // What the device must send of page `page`, worked out without the pipes.
  Bytes Lines(std::uint32_t data_type, std::size_t page = 0) {
    return device_->Foretell().PageLines(*ParseScanInfo(Block(data_type)), page);
  }
  // The device is in order: a job goes through.
  void ExpectUsable() {
    const Bytes job = StartJob();
    EXPECT_EQ(OpenPage(job).size(), 128u);
    EXPECT_EQ(TakePage().data, Lines(kGrey));
  }

  UsbScanner::Clock::time_point now_{1000s};
  std::unique_ptr<UsbDevice> device_;
  UsbStatus status_ = UsbStatus::kOk;  // of the last part of the last Read
  std::optional<UsbScanner::Clock::time_point> again_;
};

// A page of 64 by 40 pixels at 100 dpi whose pixels depend on its number.
inline PagePtr NumberedPage(std::uint32_t number) {
  Image image;
  image.width = 64;
  image.height = 40;
  image.x_millidpi = image.y_millidpi = 100000;
  for (std::uint32_t i = 0; i < image.width * image.height; ++i) {
    image.samples.push_back(static_cast<std::uint8_t>(i * 7 + number * 37));
  }
  return MakeImagePage(std::move(image));
}

inline std::vector<Sheet> Sheets(std::uint32_t count, bool backs = false) {
  std::vector<Sheet> sheets;
  for (std::uint32_t i = 1; i <= count; ++i) {
    sheets.push_back({NumberedPage(i), nullptr});
    if (backs) sheets.back().back = NumberedPage(100 + i);
  }
  return sheets;
}

}  // namespace vox::sim
