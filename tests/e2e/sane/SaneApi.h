// SaneApi is the backend's entry points with a small device at 127.0.0.2, in this process.
#pragma once

#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "tests/e2e/sane/SaneFixture.h"
#include "tests/e2e/sane/SaneModule.h"
#include "tests/support/SmallDevice.h"

namespace vox::cli::test {

inline constexpr char kSmall[] = "net:127.0.0.2";  // as the backend itself names it

class SaneApi : public Sane {
 protected:
  void SetUp() override {
    Sane::SetUp();
    if (!IsSkipped()) sane_.emplace();
  }

  sim::VirtualDevice& PutSmall(sim::DeviceOptions options = vox::test::SmallDevice()) {
    options.address = "127.0.0.2";
    options.snmp_port = 161;
    options.command_port = 3892;
    return Put(std::move(options));
  }
  sim::VirtualDevice& PutFeeder(std::uint32_t sheets, bool both_sides = false) {
    return PutSmall(vox::test::SmallFeeder(sheets, both_sides));
  }
  static sim::Faults FaultsOf(const std::string& words) {
    sim::Faults faults;
    if (!words.empty()) {
      EXPECT_EQ(sim::ParseFault(words, faults), "");
    }
    return faults;
  }
  // Opens the device for pages of 300 by 250 grey pixels.
  std::unique_ptr<SaneScanner> OpenSmall() {
    auto scanner = std::make_unique<SaneScanner>(*sane_, kSmall);
    EXPECT_EQ(scanner->Set("mode", "Gray"), SANE_STATUS_GOOD);
    EXPECT_EQ(scanner->Set("resolution", 100), SANE_STATUS_GOOD);
    return scanner;
  }
  static void ExpectGood(const SanePage& page) {
    EXPECT_EQ(page.started, SANE_STATUS_GOOD);
    EXPECT_EQ(page.ended, SANE_STATUS_EOF);
    EXPECT_EQ(page.bytes.size(), static_cast<std::size_t>(page.parameters.bytes_per_line) *
                                     static_cast<std::size_t>(page.parameters.lines));
    EXPECT_GT(page.bytes.size(), 0U);
  }
  std::vector<const SANE_Device*> Devices(SANE_Bool local_only = SANE_FALSE) {
    const SANE_Device** list = nullptr;
    EXPECT_EQ(sane_->get_devices(&list, local_only), SANE_STATUS_GOOD);
    std::vector<const SANE_Device*> devices;
    for (; list != nullptr && *list != nullptr; ++list) devices.push_back(*list);
    return devices;
  }
  static double Since(std::chrono::steady_clock::time_point begun) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begun).count();
  }
  static std::size_t CountIn(const char* folder) {
    std::size_t count = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(folder)) ++count;
    return count;
  }
  static std::size_t Descriptors() { return CountIn("/proc/self/fd"); }
  static std::size_t Threads() { return CountIn("/proc/self/task"); }

  std::optional<SaneModule> sane_;
};

}  // namespace vox::cli::test
