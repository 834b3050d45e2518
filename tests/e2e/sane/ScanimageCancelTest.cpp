// Ctrl-C in scanimage at a hundred moments, from its start to its last line: it ends by itself, and
// a good scan comes after each.
#include <chrono>
#include <csignal>
#include <random>
#include <thread>

#include "tests/e2e/sane/SaneFixture.h"
#include "tests/support/SmallDevice.h"

namespace vox::cli::test {
namespace {

using namespace std::chrono_literals;
using testing::AnyOf;

class ScanimageCancel : public Sane, public testing::WithParamInterface<unsigned> {
 protected:
  static constexpr unsigned kRounds = 25;  // of each of the four series
  static constexpr char kPages[] =
      "--mode Gray --resolution 200 --format=pnm --source ADF --batch=p%d.pnm ";

  void SetUp() override {
    Sane::SetUp();
    if (IsSkipped()) return;
    sim::DeviceOptions options = vox::test::SmallFeeder(3);
    options.reload_feeder = true;
    options.address = "127.0.0.2";
    options.snmp_port = 161;
    options.command_port = 3892;
    options.faults.delays.data = 20ms;  // a place to hit
    Put(std::move(options));
  }
  void StartPages() { StartScanimage(std::string("-d ") + kAt2 + " " + kPages); }
  void RemovePages() {
    for (const std::string& leaf : Files("p")) std::filesystem::remove(vox_.File(leaf));
  }
};

TEST_P(ScanimageCancel, AtAnyMomentLeavesTheDeviceReady) {
  StartPages();
  const Outcome whole = vox_.Wait();
  ASSERT_EQ(whole.status, 0) << whole.err;
  RemovePages();
  GoodScan("--mode Gray --resolution 100 --format=pnm -o first.pnm");
  const std::string good = Pnm("first.pnm");
  std::mt19937 random(GetParam());
  auto longest = whole.took.count();
  unsigned cancelled = 0;
  for (unsigned round = 0; round < kRounds; ++round) {
    std::uniform_int_distribution<long> moment(0, longest);
    const auto when = std::chrono::milliseconds(moment(random));
    SCOPED_TRACE("after " + std::to_string(when.count()) + " ms");
    StartPages();
    std::this_thread::sleep_for(when);
    const auto begun = std::chrono::steady_clock::now();
    vox_.Signal(SIGINT);
    const Outcome outcome = vox_.Wait();
    const auto took = std::chrono::steady_clock::now() - begun;
    EXPECT_LT(took, 10s) << "a slow machine's second";
    const bool over = took < 10ms;
    // Before scanimage looks at signals at all, the system ends it.
    EXPECT_THAT(outcome.status, AnyOf(0, kCancelled, -1)) << outcome.err;
    cancelled += outcome.status == kCancelled;
    // It was over already: the first run was slow, on a machine that had others to serve.
    if (outcome.status == 0 && over) longest = static_cast<long>(when.count());
    RemovePages();
    GoodScan("--mode Gray --resolution 100 --format=pnm -o again.pnm");
    EXPECT_TRUE(SameFile(Pnm("again.pnm"), good));
  }
  EXPECT_GT(cancelled, 0U);
}

INSTANTIATE_TEST_SUITE_P(Series, ScanimageCancel, testing::Range(0U, 4U));

// The moments that matter, made and not hoped for: the device does nothing from there on.
TEST_F(ScanimageCancel, WhileTheDeviceStallsEndsAtOnceAndTheDeviceIsToldSo) {
  sim::VirtualDevice& device = *devices_[0];
  for (const char* stage : {"request", "start", "info", "data:0", "data:40000"}) {
    SCOPED_TRACE(stage);
    sim::Faults faults;
    ASSERT_EQ(sim::ParseFault(std::string("stall=") + stage, faults), "");
    device.SetFaults(faults);
    const std::size_t jobs = device.Events().Count(sim::EventKind::kJobStarted);
    const std::size_t cancels = device.Events().Count(sim::EventKind::kCancelCommand);
    StartPages();
    ASSERT_TRUE(device.Events().WaitFor(sim::EventKind::kJobStarted, jobs + 1, 60s));
    std::this_thread::sleep_for(200ms);
    const auto begun = std::chrono::steady_clock::now();
    vox_.Signal(SIGINT);
    const Outcome outcome = vox_.Wait();
    EXPECT_LT(std::chrono::steady_clock::now() - begun, 10s);
    EXPECT_EQ(outcome.status, kCancelled) << outcome.err;
    EXPECT_GT(device.Events().Count(sim::EventKind::kCancelCommand), cancels);
    device.SetFaults({});
    RemovePages();
    GoodScan("--mode Gray --resolution 100 --format=pnm -o again.pnm");
  }
}

}  // namespace
}  // namespace vox::cli::test
