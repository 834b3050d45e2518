// BusRoadTest is the whole way of a page at USB: the library and libusb in this process, and in
// another one an emulated bus with a virtual scanner on it, whose pages this process foretells.
// Every test says at its end that nothing was left behind: no thread, no descriptor, no semaphore
// set, no temporary file.
#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "sim/UsbDevice.h"
#include "tests/e2e/Ask.h"
#include "tests/e2e/SameLines.h"
#include "tests/e2e/usb/UsbClient.h"
#include "tests/interop/usb/BusProcess.h"
#include "tests/support/Footprint.h"
#include "tests/support/UsbShape.h"
#include "tests/unit/core/Scratch.h"

namespace vox::test {

// BusScanner is a virtual scanner on the bus.
//
// Thread rule: any thread.
class BusScanner {
 public:
  static constexpr char kSerial[] = "A7K0123";

  BusScanner(BusProcess& bus, const std::string& words) : bus_(bus), twin_(UsbShape(Named(words))) {
    Tell("make " + Named(words));
  }

  sim::Forecast Foretell() const { return twin_.Foretell(); }
  void Plug() { Tell("plug"); }
  void Unplug() { Tell("unplug"); }
  void Reset() { Tell("reset"); }
  void SetFaults(const std::string& words) { Tell("faults " + words); }
  std::size_t Count(sim::EventKind kind) { return Number("count " + Word(kind)); }
  bool WaitFor(sim::EventKind kind, std::size_t count = 1) {
    return Tell("wait " + Word(kind) + " " + std::to_string(count)) == "1";
  }
  // Unread counts the bytes that the device had to give up because the host opened it anew.
  std::size_t Unread() { return Number("unread"); }
  std::size_t SheetsLeft() { return Number("sheets"); }

 private:
  static std::string Named(const std::string& words) {
    return words + " serial=" + std::string(kSerial);
  }
  static std::string Word(sim::EventKind kind) {
    return std::to_string(static_cast<unsigned>(kind));
  }
  std::string Tell(const std::string& line) { return bus_.Tell("scanner 4 " + line); }
  std::size_t Number(const std::string& line) { return std::stoul(Tell(line)); }

  BusProcess& bus_;
  sim::UsbDevice twin_;
};

class BusRoadTest : public testing::Test {
 protected:
  BusRoadTest()
      : root_("VOX_ROOT", scratch_.Path("root")), temporary_("TMPDIR", scratch_.Path("tmp")) {
    std::filesystem::create_directories(scratch_.Path("root/var/lib/Veltronix Vox"));
    std::filesystem::create_directories(scratch_.Path("tmp"));
  }

  // Plug replaces the scanner and the client.
  void Plug(const std::string& words = "") {
    client_.reset();
    scanner_.emplace(bus_, words);
    client_ = std::make_unique<UsbClient>(BusScanner::kSerial);
    ASSERT_TRUE(client_->KnowsDevice()) << client_->Interface().GetIfErrorStatus();
    if (!footprint_) footprint_.emplace();
  }
  std::vector<Line> Expected(const tagTWSCANPARAM& request, std::size_t page = 0) {
    return client_->Expected(scanner_->Foretell(), request, page);
  }
  void ExpectPage(const Ask& ask) {
    const Page page = client_->Scan(ask);
    EXPECT_TRUE(page.started);
    EXPECT_EQ(page.status, 0u);
    EXPECT_TRUE(SameLines(page.lines, Expected(ask)));
  }
  void ExpectJob(const Ask& ask, std::size_t pages) {
    const std::vector<Page> got = client_->ScanJob(ask);
    ASSERT_EQ(got.size(), pages);
    for (std::size_t i = 0; i < pages; ++i) {
      EXPECT_EQ(got[i].status, 0u);
      EXPECT_TRUE(SameLines(got[i].lines, Expected(ask, i))) << "page " << i;
    }
  }
  // The device is put in order: a page comes, line for line.
  void ExpectUsable() {
    scanner_->SetFaults("none");
    ExpectPage(Ask::Grey());
  }

  void TearDown() override {
    client_.reset();
    for (const auto& entry : std::filesystem::recursive_directory_iterator(scratch_.Path("tmp"))) {
      EXPECT_TRUE(entry.is_directory()) << entry.path();
    }
    ASSERT_TRUE(footprint_);
    EXPECT_TRUE(footprint_->IsBack()) << footprint_->Describe();
  }

 private:
  BusProcess bus_;  // has its files elsewhere
  Scratch scratch_;
  Variable root_, temporary_;
  // From the first device on: umockdev's library keeps a descriptor of its own.
  std::optional<Footprint> footprint_;

 protected:
  std::optional<BusScanner> scanner_;
  std::unique_ptr<UsbClient> client_;
};

}  // namespace vox::test
