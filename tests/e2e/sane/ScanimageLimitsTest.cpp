// scanimage where the system does not give what a scan needs: it ends, and with the right status.
#include "tests/e2e/sane/SaneFixture.h"
#include "tests/support/SmallDevice.h"

namespace vox::cli::test {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Ne;

constexpr int kTimedOut = 124;  // exit status of timeout(1)

class ScanimageLimits : public Sane {
 protected:
  void SetUp() override {
    Sane::SetUp();
    if (IsSkipped()) return;
    sim::DeviceOptions options = vox::test::SmallDevice();
    options.address = "127.0.0.2";
    options.snmp_port = 161;
    options.command_port = 3892;
    Put(std::move(options));
  }
};

// One that the backend would start lacks the same, so a good one runs already.
TEST_F(ScanimageLimits, WithTooFewDescriptorsItEndsAndWithEnoughItScans) {
  if (*SANE_JUDGE_PRELOAD != '\0') GTEST_SKIP() << "a sanitizer opens descriptors of its own";
  JobServerStarterOptions server;
  server.program = VOX_JOBD_FOLDER "/voxjobd";
  bool said = false, scanned = false;
  for (rlim_t most = 4; most <= 64 && !scanned; ++most) {
    SCOPED_TRACE(std::to_string(most) + " descriptors");
    ASSERT_TRUE(EnsureJobServer(server).running);
    vox_.Limit(RLIMIT_NOFILE, {most, most});
    vox_.StartCommand(
        SanePlace::Judge("timeout", std::string("60 scanimage --format=pnm -o a.pnm -d ") + kAt2));
    const Outcome outcome = vox_.Wait();
    EXPECT_THAT(outcome.status, AllOf(Ne(kTimedOut), Ne(-1))) << outcome.err;
    said = said || outcome.err.find("Out of memory") != std::string::npos;
    scanned = outcome.status == 0;
  }
  EXPECT_TRUE(said) << "at no limit";
  EXPECT_TRUE(scanned) << "with the most of them";
}

TEST_F(ScanimageLimits, WhoMayNotOpenTheJobServersLockFileIsDenied) {
  const std::string lock = Root() + "/var/tmp/com.veltronix.vox.lpd.lock";
  std::ofstream(lock).flush();
  std::filesystem::permissions(lock, std::filesystem::perms::owner_read);
  vox_.StartCommand(SanePlace::Judge(
      "setpriv",
      std::string("--bounding-set=-dac_override scanimage --format=pnm -o a.pnm -d ") + kAt2));
  const Outcome outcome = vox_.Wait();
  EXPECT_EQ(outcome.status, kDenied) << outcome.err;
  EXPECT_THAT(outcome.err, HasSubstr("Access to resource has been denied"));
}

}  // namespace
}  // namespace vox::cli::test
