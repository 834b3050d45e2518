// vox discover where file descriptors are few: devices are found all the same, or that some may be
// missing is said.
#include "tests/e2e/VoxDevices.h"
#include "tests/support/FreshLoopback.h"

namespace vox::cli::test {
namespace {

using testing::HasSubstr;

constexpr std::uint8_t kDevices = 12;  // four questions each, at once

class Descriptors : public VoxDevices {
 protected:
  void SetUp() override {
    VoxDevices::SetUp();
    if (IsSkipped()) return;
    if (!vox::test::RouteBroadcasts()) GTEST_SKIP() << "no route for broadcasts can be made here";
    for (std::uint8_t i = 0; i < kDevices; ++i) {
      const auto host = static_cast<std::uint8_t>(i + 2);
      sim::Faults slow;
      slow.delays.snmp = std::chrono::milliseconds(300);  // so that all are asked at once
      PutHearing(host, host, "Office " + std::to_string(host), slow);
    }
  }
  std::size_t Found(const Outcome& outcome) {
    std::size_t found = 0;
    for (const nlohmann::json& object : Objects(outcome.out)) found += object.count("deviceId");
    return found;
  }
};

TEST_F(Descriptors, ALowSoftLimitIsRaised) {
  rlimit limit{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &limit), 0);
  ASSERT_GE(limit.rlim_max, 256U) << "too few for this test";
  vox_.Limit(RLIMIT_NOFILE, {16, limit.rlim_max});
  const Outcome outcome = Vox("discover --json");
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_EQ(Found(outcome), kDevices);
}

TEST_F(Descriptors, WithTooFewThatDevicesMayBeMissingIsSaid) {
  for (const rlim_t most : {16U, 24U, 40U}) {
    vox_.Limit(RLIMIT_NOFILE, {most, most});
    const Outcome outcome = Vox("discover --json");
    EXPECT_EQ(outcome.status, 10) << most << " descriptors\n" << outcome.err;
    EXPECT_LT(Found(outcome), kDevices) << most;
    EXPECT_THAT(
        outcome.err,
        HasSubstr("vox: too few file descriptors for the search, so devices may be missing"));
  }
}

}  // namespace
}  // namespace vox::cli::test
