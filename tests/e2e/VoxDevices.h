// The vox program with devices on a network: a network namespace of the test's own, in which
// virtual devices have the protocol's own ports on loopback addresses.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "sim/VirtualDevice.h"
#include "tests/e2e/VoxProgram.h"
#include "tests/support/FreshNamespace.h"

namespace vox::cli::test {

class VoxDevices : public testing::Test {
 protected:
  void SetUp() override {
    if (!vox::test::Unshare(CLONE_NEWNET) || std::system("ip link set lo up 2>/dev/null") != 0)
      GTEST_SKIP() << "no network namespace can be made here";
    std::filesystem::create_directories(Root() + "/var/tmp");
    std::filesystem::create_directories(Shared());
    ::setenv("VOX_ROOT", Root().c_str(), 1);
    ::setenv("XDG_CONFIG_HOME", vox_.File("config").c_str(), 1);
    ::setenv("PATH", (std::string(VOX_JOBD_FOLDER) + ":" + std::getenv("PATH")).c_str(), 1);
  }

  std::string Root() const { return vox_.File("root"); }
  std::string Shared() const { return Root() + "/var/lib/Veltronix Vox"; }
  std::string SharedFile() const { return Shared() + "/com.veltronix.vox.plist"; }

  // A device on 127.0.0.`host`, whose id ends in `id`; nameless, until it is given one.
  static sim::DeviceOptions At(std::uint8_t host, std::uint8_t id) {
    sim::DeviceOptions options;
    options.address = "127.0.0." + std::to_string(host);
    options.snmp_port = 161;
    options.command_port = 3892;
    options.mac[5] = id;
    return options;
  }
  sim::VirtualDevice& Put(sim::DeviceOptions options) {
    devices_.push_back(std::make_unique<sim::VirtualDevice>(std::move(options)));
    EXPECT_TRUE(devices_.back()->Start()) << devices_.back()->Error();
    return *devices_.back();
  }
  sim::VirtualDevice& Put(std::uint8_t host, const std::string& name, sim::Faults faults = {}) {
    sim::DeviceOptions options = At(host, host);
    options.name = name;
    options.faults = std::move(faults);
    return Put(std::move(options));
  }
  // One that hears broadcasts, too.
  sim::VirtualDevice& PutHearing(std::uint8_t host, std::uint8_t id, const std::string& name,
                                 sim::Faults faults = {}) {
    sim::DeviceOptions options = At(host, id);
    options.name = name;
    options.hears_broadcasts = true;
    options.faults = std::move(faults);
    return Put(std::move(options));
  }

  Outcome Vox(const std::string& arguments) { return vox_.Run(arguments); }
  std::string Good(const std::string& arguments) {
    const Outcome outcome = Vox(arguments);
    EXPECT_EQ(outcome.status, 0) << arguments << "\n" << outcome.err;
    EXPECT_EQ(outcome.err, "") << arguments;
    return outcome.out;
  }
  void ExpectFailure(const std::string& arguments, int status, const std::string& words) {
    const Outcome outcome = Vox(arguments);
    EXPECT_EQ(outcome.status, status) << arguments << "\n" << outcome.err;
    EXPECT_THAT(outcome.err,
                testing::AllOf(testing::StartsWith("vox: "), testing::HasSubstr(words)))
        << arguments;
    EXPECT_EQ(outcome.err.find('\n'), outcome.err.size() - 1) << "one line:\n" << outcome.err;
  }
  static std::vector<nlohmann::json> Objects(const std::string& text) {
    std::vector<nlohmann::json> objects;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) objects.push_back(nlohmann::json::parse(line));
    return objects;
  }

  VoxProgram vox_;
  std::vector<std::unique_ptr<sim::VirtualDevice>> devices_;
};

}  // namespace vox::cli::test
