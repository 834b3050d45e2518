// Pages through the backend over a whole road: virtual device, job server and library in one
// process. A handle is driven as a frontend drives it.
#include <csignal>
#include <random>
#include <set>
#include <span>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>

#include "frontends/sane/Handle.h"
#include "sim/Faults.h"
#include "sim/ScanInfo.h"
#include "tests/e2e/RoadFixture.h"
#include "tests/support/SmallDevice.h"
#include "tools/vox/Failure.h"

namespace vox::sane {
namespace {

using testing::AnyOf;
using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kLong{30};  // for what ends at once on a machine that is idle
constexpr std::chrono::milliseconds kShort{50};

class SaneJob : public test::RoadsTest {
 protected:
  SaneJob() { road.StartServer(); }

  static sim::DeviceOptions Faulty(const char* words) {
    sim::DeviceOptions options = test::SmallDevice();
    EXPECT_EQ(sim::ParseFault(words, options.faults), "");
    return options;
  }
  void Open(sim::DeviceOptions options = test::SmallDevice(), const JobTimes& times = {}) {
    road.Device(std::move(options));
    OpenAgain(times);
  }
  void OpenAgain(const JobTimes& times = {}) {
    handle_ = std::make_unique<Handle>("net:" + road.FirstDevice().Address(), devices_, times);
    Set(kOptMode, "Gray");
    Set(kOptResolution, 100);
  }
  void TearDown() override {
    handle_.reset();
    road.Close();
    RoadsTest::TearDown();
  }

  void Set(SANE_Int option, const char* text) {
    std::string copy(text);
    ASSERT_EQ(handle_->Control(option, SANE_ACTION_SET_VALUE, copy.data(), nullptr),
              SANE_STATUS_GOOD);
  }
  void Set(SANE_Int option, SANE_Word word) {
    ASSERT_EQ(handle_->Control(option, SANE_ACTION_SET_VALUE, &word, nullptr), SANE_STATUS_GOOD);
  }

  SANE_Status ReadAll() {
    bytes_.clear();
    std::vector<SANE_Byte> piece(5'000);
    for (;;) {
      SANE_Int got = -1;
      const SANE_Status status =
          handle_->Read(piece.data(), static_cast<SANE_Int>(piece.size()), &got);
      if (status != SANE_STATUS_GOOD) {
        EXPECT_EQ(got, 0);
        return status;
      }
      EXPECT_GT(got, 0);
      bytes_.insert(bytes_.end(), piece.begin(), piece.begin() + got);
    }
  }
  std::size_t Promised() {
    SANE_Parameters parameters{};
    EXPECT_EQ(handle_->Parameters(&parameters), SANE_STATUS_GOOD);
    EXPECT_EQ(parameters.last_frame, SANE_TRUE);
    return static_cast<std::size_t>(parameters.bytes_per_line) *
           static_cast<std::size_t>(parameters.lines);
  }
  void ExpectPage() {
    ASSERT_EQ(handle_->Start(), SANE_STATUS_GOOD);
    const std::size_t promised = Promised();
    EXPECT_EQ(ReadAll(), SANE_STATUS_EOF);
    EXPECT_EQ(bytes_.size(), promised);
    EXPECT_GT(promised, 0U);
  }
  bool IsReady() {
    SANE_Int fd = -1;
    EXPECT_EQ(handle_->SelectFd(&fd), SANE_STATUS_GOOD);
    pollfd entry{fd, POLLIN, 0};
    return ::poll(&entry, 1, 0) == 1;
  }

  Devices devices_{Config{{}, false, false}};
  std::unique_ptr<Handle> handle_;
  std::vector<SANE_Byte> bytes_;
};

TEST_F(SaneJob, APageIsAsLongAsWasPromisedAndEndsOnce) {
  Open();
  ExpectPage();
  SANE_Byte byte = 0;
  SANE_Int got = 7;
  EXPECT_EQ(handle_->Read(&byte, 1, &got), SANE_STATUS_INVAL);
  EXPECT_EQ(got, 0);
  ExpectPage();
}

TEST_F(SaneJob, BlackIsOne) {
  Open();
  ExpectPage();
  std::size_t dark = 0, black = 0;
  for (const SANE_Byte grey : bytes_) dark += grey < 128;
  const std::size_t points = bytes_.size();
  Set(kOptMode, "Lineart");
  ExpectPage();
  for (const SANE_Byte byte : bytes_) black += static_cast<std::size_t>(__builtin_popcount(byte));
  ASSERT_GT(points, 4 * dark) << "a page is white for the most part";
  EXPECT_NEAR(static_cast<double>(black), static_cast<double>(dark), points / 50.0);
}

TEST_F(SaneJob, NothingIsSetWithinAPage) {
  Open();
  ASSERT_EQ(handle_->Start(), SANE_STATUS_GOOD);
  SANE_Word word = 150;
  EXPECT_EQ(handle_->Control(kOptResolution, SANE_ACTION_SET_VALUE, &word, nullptr),
            SANE_STATUS_INVAL);
  EXPECT_EQ(handle_->Control(kOptResolution, SANE_ACTION_GET_VALUE, &word, nullptr),
            SANE_STATUS_GOOD);
  EXPECT_EQ(word, 100);
  EXPECT_EQ(handle_->Start(), SANE_STATUS_INVAL);
  EXPECT_EQ(ReadAll(), SANE_STATUS_EOF);
  EXPECT_EQ(bytes_.size(), Promised());
  Set(kOptResolution, 150);
}

TEST_F(SaneJob, AFeederGivesPageAfterPageAndThenNone) {
  Open(test::SmallFeeder(3));
  Set(kOptSource, "ADF");
  for (int page = 0; page < 3; ++page) ExpectPage();
  EXPECT_EQ(handle_->Start(), SANE_STATUS_NO_DOCS);
  EXPECT_EQ(handle_->Start(), SANE_STATUS_NO_DOCS) << "and the device says so too";
  handle_->Cancel();
  EXPECT_EQ(handle_->Start(), SANE_STATUS_NO_DOCS);
}

// However long the frontend takes before it asks for the next one.
TEST_F(SaneJob, ACancelBetweenPagesIsHarmless) {
  for (const char* source : {"ADF", "ADF Duplex"}) {
    SCOPED_TRACE(source);
    const bool both_sides = std::string(source) == "ADF Duplex";
    handle_.reset();
    road.Close();
    road.StartServer();
    Open(test::SmallFeeder(3, both_sides), {.next_page = kLong});
    Set(kOptSource, source);
    std::set<std::vector<SANE_Byte>> pages;
    for (std::size_t page = 0; page < (both_sides ? 6 : 3); ++page) {
      ExpectPage();
      handle_->Cancel();
      pages.insert(bytes_);
      EXPECT_EQ(pages.size(), page + 1) << "each has a chart of its own";
    }
    EXPECT_EQ(handle_->Start(), SANE_STATUS_NO_DOCS);
    EXPECT_EQ(road.Events().Count(sim::EventKind::kJobStarted), 1U);
  }
}

TEST_F(SaneJob, ACancelBehindTheLastPageThatWasWantedEndsTheJob) {
  Open(test::SmallFeeder(4), {.next_page = kShort});
  Set(kOptSource, "ADF");
  ExpectPage();
  handle_->Cancel();
  EXPECT_TRUE(road.Events().WaitFor(sim::EventKind::kCancelCommand, 1, kLong));
  ExpectPage();
  EXPECT_EQ(road.Events().Count(sim::EventKind::kJobStarted), 2U);
}

TEST_F(SaneJob, ACloseBehindTheLastPageThatWasWantedEndsTheJobAtOnce) {
  Open(test::SmallFeeder(3), {.next_page = 2 * kLong});
  Set(kOptSource, "ADF");
  ExpectPage();
  handle_->Cancel();
  const auto begun = Clock::now();
  handle_.reset();
  EXPECT_LT(Clock::now() - begun, kLong);
  EXPECT_TRUE(road.Events().WaitFor(sim::EventKind::kCancelCommand, 1, kLong));
}

TEST_F(SaneJob, TheGlassIsOnePageThoughTheFeederIsLoaded) {
  Open(test::SmallFeeder(3));
  ExpectPage();
  EXPECT_TRUE(road.Events().WaitFor(sim::EventKind::kCancelCommand, 1, kLong));
  ExpectPage();
}

// The back of a sheet is turned where it has to be; a device does not turn those of a preview.
TEST_F(SaneJob, APreviewIsToldToTheDeviceButForBothSides) {
  sim::DeviceOptions options = test::SmallFeeder(1, true);
  options.reload_feeder = true;
  Open(std::move(options));
  const auto told = [&] {
    const auto block = road.Events().Last(sim::EventKind::kScanCommand).bytes;
    const auto info =
        sim::ParseScanInfo(std::span(block).last(std::min(block.size(), sim::kScanInfoSize)));
    return info ? std::optional(info->preview) : std::nullopt;
  };
  ExpectPage();
  EXPECT_EQ(told(), 0U);
  const std::size_t before = bytes_.size();
  Set(kOptPreview, SANE_TRUE);
  ExpectPage();
  EXPECT_EQ(told(), 1U);
  EXPECT_EQ(bytes_.size(), before) << "and changes nothing else";
  EXPECT_TRUE(road.Events().WaitFor(sim::EventKind::kJobEnded, 2, kLong)) << "the feeder is loaded";
  Set(kOptSource, "ADF Duplex");
  ExpectPage();
  EXPECT_EQ(told(), 0U);
}

TEST_F(SaneJob, OtherSettingsBetweenPagesAreAnotherJob) {
  Open(test::SmallFeeder(3));
  Set(kOptSource, "ADF");
  ExpectPage();
  const std::size_t before = bytes_.size();
  Set(kOptMode, "Color");
  ExpectPage();
  EXPECT_EQ(bytes_.size(), 3 * before);
}

TEST_F(SaneJob, TheDescriptorIsReadableExactlyWhenThereIsSomething) {
  Open();
  ASSERT_EQ(handle_->Start(), SANE_STATUS_GOOD);
  ASSERT_EQ(handle_->SetIoMode(true), SANE_STATUS_GOOD);
  const auto deadline = Clock::now() + kLong;
  std::size_t all = 0;
  for (SANE_Status status = SANE_STATUS_GOOD; status != SANE_STATUS_EOF;) {
    ASSERT_LT(Clock::now(), deadline);
    if (!IsReady()) continue;
    SANE_Byte piece[700];
    SANE_Int got = 0;
    status = handle_->Read(piece, sizeof piece, &got);
    ASSERT_TRUE(status == SANE_STATUS_EOF ? got == 0 : got > 0);
    all += static_cast<std::size_t>(got);
  }
  EXPECT_EQ(all, Promised());
  SANE_Int fd = -1;
  EXPECT_EQ(handle_->SelectFd(&fd), SANE_STATUS_INVAL);
}

TEST_F(SaneJob, WithoutBytesANonBlockingReadIsGoodAndEmpty) {
  Open(Faulty("stall=data:0"));
  ASSERT_EQ(handle_->Start(), SANE_STATUS_GOOD);
  ASSERT_EQ(handle_->SetIoMode(true), SANE_STATUS_GOOD);
  SANE_Byte byte = 0;
  SANE_Int got = 7;
  EXPECT_EQ(handle_->Read(&byte, 1, &got), SANE_STATUS_GOOD);
  EXPECT_EQ(got, 0);
  EXPECT_FALSE(IsReady());
  handle_->Cancel();
  EXPECT_EQ(handle_->Read(&byte, 1, &got), SANE_STATUS_CANCELLED);
}

TEST_F(SaneJob, ACancelEndsAWaitingReadAndTheNextPageIsGood) {
  Open(Faulty("page=1,stall=data:200"));
  ASSERT_EQ(handle_->Start(), SANE_STATUS_GOOD);
  std::thread other([this] {
    road.Events().WaitFor(sim::EventKind::kScanInfoSent, 1, kLong);
    handle_->Cancel();
  });
  EXPECT_EQ(ReadAll(), SANE_STATUS_CANCELLED);
  other.join();
  EXPECT_TRUE(road.Events().WaitFor(sim::EventKind::kCancelCommand, 1, kLong));
  ExpectPage();
}

TEST_F(SaneJob, ACancelEndsAWaitingStart) {
  Open(Faulty("page=1,stall=request"));
  std::thread other([this] {
    road.Events().WaitFor(sim::EventKind::kPageRequest, 1, kLong);
    handle_->Cancel();
  });
  EXPECT_EQ(handle_->Start(), SANE_STATUS_CANCELLED);
  other.join();
  ExpectPage();
}

// Whatever a cancel meets, the device is told, and the next page is a good one.
TEST_F(SaneJob, CancelsAtAnyMomentLeaveAGoodPageBehind) {
  Open();
  std::mt19937 random(11);
  for (int round = 0; round < 60; ++round) {
    SCOPED_TRACE(round);
    const auto after = std::chrono::microseconds(random() % 12'000);
    std::thread other([this, after] {
      std::this_thread::sleep_for(after);
      handle_->Cancel();
    });
    const SANE_Status started = handle_->Start();
    EXPECT_THAT(started, AnyOf(SANE_STATUS_GOOD, SANE_STATUS_CANCELLED));
    if (started == SANE_STATUS_GOOD && round % 3 != 0) {
      EXPECT_THAT(ReadAll(), AnyOf(SANE_STATUS_EOF, SANE_STATUS_CANCELLED));
    }
    other.join();
    handle_->Cancel();
    ExpectPage();
  }
}

// A device whose job was left open would be busy for everybody else.
TEST_F(SaneJob, AHandleThatIsClosedWithinAPageTellsTheDevice) {
  sim::DeviceOptions options = test::SmallFeeder(2);
  options.reload_feeder = true;
  Open(std::move(options));
  for (int round = 0; round < 40; ++round) {
    SCOPED_TRACE(round);
    Set(kOptSource, "ADF");
    Set(kOptMode, "Color");
    ASSERT_EQ(handle_->Start(), SANE_STATUS_GOOD);
    SANE_Byte piece[100];
    SANE_Int got = 0;
    EXPECT_EQ(handle_->Read(piece, sizeof piece, &got), SANE_STATUS_GOOD);
    if (round % 2 != 0) handle_->Cancel();
    handle_.reset();
    OpenAgain();
  }
  ExpectPage();
}

TEST_F(SaneJob, ABusyDeviceIsAskedAgainAndThenToldOf) {
  Open(Faulty("busy=2"));
  ExpectPage();
}

TEST_F(SaneJob, ADeviceThatStaysBusyIsBusyAfterABoundedTime) {
  Open(Faulty("busy"));
  const auto begun = Clock::now();
  EXPECT_EQ(handle_->Start(), SANE_STATUS_DEVICE_BUSY);
  EXPECT_GE(Clock::now() - begun, std::chrono::seconds(1)) << "or a frontend would ask for ever";
}

TEST_F(SaneJob, ALostConnectionIsAnErrorAndTheNextPageIsGood) {
  Open(Faulty("page=1,close-after=2000,reset"));
  ASSERT_EQ(handle_->Start(), SANE_STATUS_GOOD);
  EXPECT_EQ(ReadAll(), SANE_STATUS_IO_ERROR);
  ExpectPage();
}

TEST_F(SaneJob, AnEmptyAreaDoesNotStart) {
  Open();
  Set(kOptRight, 0);
  EXPECT_EQ(Promised(), 0U);
  EXPECT_THROW(handle_->Start(), cli::Failure);
}

}  // namespace
}  // namespace vox::sane
