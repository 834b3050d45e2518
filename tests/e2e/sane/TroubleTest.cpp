// Devices in trouble through the backend: the status that SANE has for it, within a time, and a
// good page once the trouble is over.
#include <thread>

#include "tests/e2e/sane/SaneApi.h"

namespace vox::cli::test {
namespace {

using namespace std::chrono_literals;
using testing::AnyOf;

class SaneTrouble : public SaneApi {
 protected:
  void SetUp() override {
    SaneApi::SetUp();
    if (IsSkipped()) return;
    sim::DeviceOptions options = vox::test::SmallFeeder(1);
    options.reload_feeder = true;
    device_ = &PutSmall(std::move(options));
    session_.emplace(*sane_);
  }
  void TearDown() override {
    session_.reset();
    SaneApi::TearDown();
  }
  std::optional<SaneSession> session_;
  sim::VirtualDevice* device_ = nullptr;
};

struct Trouble {
  const char* name;
  const char* mode;  // grey pages go raw, others in blocks
  const char* faults;
  SANE_Status status;
  bool at_start;   // or while the page is read
  double seconds;  // that it may take on a slow machine
};

class SaneTroubles : public SaneTrouble, public testing::WithParamInterface<Trouble> {};

TEST_P(SaneTroubles, HasItsStatusAndAnEnd) {
  const Trouble& trouble = GetParam();
  const auto scanner = OpenSmall();
  ASSERT_EQ(scanner->Set("mode", trouble.mode), SANE_STATUS_GOOD);
  device_->SetFaults(FaultsOf(trouble.faults));
  const auto begun = std::chrono::steady_clock::now();
  const SanePage page = scanner->Page();
  EXPECT_LT(Since(begun), trouble.seconds);
  EXPECT_EQ(page.ended, trouble.status);
  if (trouble.at_start) {
    EXPECT_EQ(page.started, trouble.status);
  }
  scanner->Cancel();
  device_->SetFaults({});
  ExpectGood(scanner->Page());
}

INSTANTIATE_TEST_SUITE_P(
    All, SaneTroubles,
    testing::Values(
        Trouble{"Busy", "Gray", "busy", SANE_STATUS_DEVICE_BUSY, true, 30},
        Trouble{"BusyOnce", "Gray", "busy=1", SANE_STATUS_EOF, false, 30},
        Trouble{"NoDocument", "Gray", "no-document", SANE_STATUS_NO_DOCS, true, 20},
        Trouble{"Refused", "Gray", "scan-reply=81", SANE_STATUS_IO_ERROR, true, 20},
        Trouble{"SilentAtTheScanCommand", "Gray", "silent=scan", SANE_STATUS_IO_ERROR, true, 60},
        Trouble{"SilentWithinThePage", "Lineart", "silent=data:200", SANE_STATUS_IO_ERROR, false,
                100},
        Trouble{"ConnectionLostWithinThePage", "Gray", "close-after=20000", SANE_STATUS_IO_ERROR,
                false, 30},
        Trouble{"ConnectionResetWithinThePage", "Gray", "close-after=20000,reset",
                SANE_STATUS_IO_ERROR, false, 30},
        Trouble{"InformationCutShort", "Gray", "info-cut=100", SANE_STATUS_IO_ERROR, false, 30},
        Trouble{"NoticeSpoilt", "Gray", "bad-start", SANE_STATUS_IO_ERROR, false, 100}),
    [](const auto& one) { return one.param.name; });

TEST_F(SaneTrouble, BrokenBlocksOfALineartPageAreAnErrorAndNoPage) {
  const auto scanner = OpenSmall();
  ASSERT_EQ(scanner->Set("mode", "Lineart"), SANE_STATUS_GOOD);
  for (const char* block : {"block=hostile", "block=cut-header", "block=cut-data"}) {
    SCOPED_TRACE(block);
    device_->SetFaults(FaultsOf(block));
    const SanePage page = scanner->Page();
    EXPECT_EQ(page.ended, SANE_STATUS_IO_ERROR);
    scanner->Cancel();
    device_->SetFaults({});
    ExpectGood(scanner->Page());
    scanner->Cancel();
  }
}

TEST_F(SaneTrouble, ADeviceThatIsOffDoesNotOpenAndOpensWhenItIsOnAgain) {
  device_->SetFaults(FaultsOf("silent=always"));
  SANE_Handle handle = nullptr;
  const auto begun = std::chrono::steady_clock::now();
  EXPECT_THAT(sane_->open(kSmall, &handle), AnyOf(SANE_STATUS_INVAL, SANE_STATUS_IO_ERROR));
  EXPECT_LT(Since(begun), 60);
  device_->SetFaults({});
  ExpectGood(OpenSmall()->Page());
}

// After sleep or a power cycle the handle that a frontend holds is good for the next page.
TEST_F(SaneTrouble, ADeviceThatWasOffBetweenPagesScansAgainFromTheSameHandle) {
  const auto scanner = OpenSmall();
  ExpectGood(scanner->Page());
  scanner->Cancel();
  device_->SetFaults(FaultsOf("silent=always"));
  EXPECT_EQ(scanner->Start(), SANE_STATUS_IO_ERROR);
  scanner->Cancel();
  device_->SetFaults({});
  ExpectGood(scanner->Page());
}

TEST_F(SaneTrouble, AJobServerThatIsGoneIsStartedAgain) {
  const auto scanner = OpenSmall();
  ExpectGood(scanner->Page());
  scanner->Cancel();
  ASSERT_EQ(std::system(("fuser -s -k -TERM '" + Root() +
                         "/var/tmp/com.veltronix.vox.lpd.lock' 2>/dev/null; true")
                            .c_str()),
            0);
  std::this_thread::sleep_for(300ms);
  ExpectGood(scanner->Page());
}

}  // namespace
}  // namespace vox::cli::test
