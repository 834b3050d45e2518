// UsbRoadTest is the whole way of a page at USB in one process: a virtual device on a fake of the
// machine's USB, and a client that scans it with CTwImgIFUsb. Every test says at its end that
// nothing was left behind: no thread, no descriptor, no semaphore set, no file, nothing of USB's,
// and no byte that the device was made to send and nobody read.
#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "tests/e2e/Ask.h"
#include "tests/e2e/SameLines.h"
#include "tests/e2e/usb/UsbClient.h"
#include "tests/support/Footprint.h"
#include "tests/support/PluggedScanner.h"
#include "tests/support/SmallDevice.h"
#include "tests/unit/core/Scratch.h"

namespace vox::test {

class UsbRoadTest : public testing::Test {
 protected:
  UsbRoadTest()
      : root_("VOX_ROOT", scratch_.Path("root")), temporary_("TMPDIR", scratch_.Path("tmp")) {
    std::filesystem::create_directories(scratch_.Path("root"));
    std::filesystem::create_directories(scratch_.Path("tmp"));
  }

  // Plug replaces the device and the client.
  void Plug(sim::DeviceOptions options) {
    client_.reset();
    scanner_ = std::make_unique<PluggedScanner>(*port_, std::move(options));
    client_ = std::make_unique<UsbClient>(scanner_->Serial());
    ASSERT_TRUE(client_->KnowsDevice()) << client_->Interface().GetIfErrorStatus();
  }
  sim::UsbDevice& Device() { return scanner_->Device(); }
  sim::EventLog& Events() { return Device().Events(); }

  sim::ScanInfo Request(const tagTWSCANPARAM& request) { return client_->Request(request); }
  std::vector<Line> Expected(const tagTWSCANPARAM& request, std::size_t page = 0) {
    return client_->Expected(Device().Foretell(), request, page);
  }
  // Unread counts the bytes that the device had to give up because the host opened it anew.
  std::uint64_t Unread() {
    std::uint64_t bytes = 0;
    for (const sim::Event& event : Events().All()) {
      if (event.kind == sim::EventKind::kHaltCleared) bytes += event.count;
    }
    return bytes;
  }

  void TearDown() override {
    client_.reset();
    scanner_.reset();
    EXPECT_EQ(port_->Held(), 0);
    EXPECT_EQ(port_->OpenDevices(), 0);
    port_.reset();
    for (const auto& entry : std::filesystem::recursive_directory_iterator(scratch_.Path(""))) {
      EXPECT_TRUE(entry.is_directory()) << entry.path();
    }
    EXPECT_TRUE(footprint_.IsBack()) << footprint_.Describe();
  }

 private:
  Scratch scratch_;
  Variable root_, temporary_;
  const Footprint footprint_;  // before port_ is made

 protected:
  std::optional<FakeUsbPort> port_{std::in_place};
  std::unique_ptr<PluggedScanner> scanner_;
  std::unique_ptr<UsbClient> client_;
};

}  // namespace vox::test
