// A page through the entry points: parameters that hold, lengths, one end, the select descriptor,
// reads that do not wait, cancels from a signal handler.
#include <atomic>
#include <csignal>
#include <thread>

#include <poll.h>
#include <pthread.h>
#include <sys/time.h>

#include "tests/e2e/sane/SaneApi.h"

namespace vox::cli::test {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

class SaneData : public SaneApi {
 protected:
  void SetUp() override {
    SaneApi::SetUp();
    if (!IsSkipped()) session_.emplace(*sane_);
  }
  void TearDown() override {
    session_.reset();
    SaneApi::TearDown();
  }
  static bool Readable(int fd, int ms = 0) {
    pollfd entry{fd, POLLIN, 0};
    return ::poll(&entry, 1, ms) == 1 && (entry.revents & POLLIN) != 0;
  }
  std::optional<SaneSession> session_;
};

TEST_F(SaneData, ParametersAreExactFromTheStartToTheEnd) {
  PutSmall();
  SaneScanner scanner(*sane_, kSmall);
  struct Kind {
    const char* mode;
    SANE_Frame format;
    SANE_Int depth, bits;
  };
  constexpr Kind kKinds[] = {{"Lineart", SANE_FRAME_GRAY, 1, 1},
                             {"Gray", SANE_FRAME_GRAY, 8, 8},
                             {"Color", SANE_FRAME_RGB, 8, 24}};
  for (const Kind& kind : kKinds) {
    for (const SANE_Word dpi : {100, 150, 200}) {
      for (const double right : {76.2, 50.0, 33.3}) {
        SCOPED_TRACE(std::string(kind.mode) + " " + std::to_string(dpi) + " " +
                     std::to_string(right));
        ASSERT_EQ(scanner.Set("mode", kind.mode), SANE_STATUS_GOOD);
        ASSERT_EQ(scanner.Set("resolution", dpi), SANE_STATUS_GOOD);
        ASSERT_EQ(scanner.Set("br-x", SANE_FIX(right)), SANE_STATUS_GOOD);
        const SANE_Parameters estimate = scanner.Parameters();
        const SanePage page = scanner.Page();
        ExpectGood(page);
        const SANE_Parameters& exact = page.parameters;
        EXPECT_EQ(exact.format, kind.format);
        EXPECT_EQ(exact.depth, kind.depth);
        EXPECT_EQ(exact.last_frame, SANE_TRUE);
        EXPECT_EQ(exact.bytes_per_line, (exact.pixels_per_line * kind.bits + 7) / 8);
        EXPECT_NEAR(exact.pixels_per_line, right / 25.4 * dpi, kind.bits == 1 ? 8 : 1);
        EXPECT_NEAR(exact.lines, 2.5 * dpi, 1);
        EXPECT_NEAR(estimate.pixels_per_line, exact.pixels_per_line, 8);
        EXPECT_NEAR(estimate.lines, exact.lines, 1);
        EXPECT_EQ(estimate.format, exact.format);
        EXPECT_EQ(estimate.depth, exact.depth);
        const SANE_Parameters after = scanner.Parameters();
        EXPECT_EQ(after.lines, exact.lines) << "still exact at the end";
        EXPECT_EQ(after.bytes_per_line, exact.bytes_per_line);
        scanner.Cancel();
      }
    }
  }
}

TEST_F(SaneData, ReadsOfAnyLengthGiveTheSamePage) {
  PutSmall();
  const auto scanner = OpenSmall();
  const SanePage whole = scanner->Page();
  ExpectGood(whole);
  scanner->Cancel();
  for (const SANE_Int most : {1, 7, 299, 300, 301, 4096, 1 << 20}) {
    const SanePage page = scanner->Page(most);
    ExpectGood(page);
    EXPECT_TRUE(page.bytes == whole.bytes) << most;
    scanner->Cancel();
  }
}

TEST_F(SaneData, AReadWithoutRoomOrPlaceTakesNothing) {
  PutSmall();
  const auto scanner = OpenSmall();
  ASSERT_EQ(scanner->Start(), SANE_STATUS_GOOD);
  SANE_Byte byte = 0;
  SANE_Int length = -1;
  sane_->read(scanner->Handle(), &byte, 0, &length);
  EXPECT_EQ(length, 0);
  length = -1;
  EXPECT_EQ(sane_->read(scanner->Handle(), nullptr, 100, &length), SANE_STATUS_INVAL);
  EXPECT_EQ(sane_->read(scanner->Handle(), &byte, 1, nullptr), SANE_STATUS_INVAL);
  length = -1;
  EXPECT_NE(sane_->read(scanner->Handle(), &byte, -1, &length), SANE_STATUS_GOOD);
  std::vector<SANE_Byte> bytes;
  while (scanner->Read(bytes) == SANE_STATUS_GOOD) {
  }
  EXPECT_EQ(bytes.size(), 300U * 250U) << "the page is whole all the same";
}

TEST_F(SaneData, TheEndComesOnce) {
  PutSmall();
  const auto scanner = OpenSmall();
  ExpectGood(scanner->Page());
  std::vector<SANE_Byte> bytes;
  for (int i = 0; i < 3; ++i) {
    const SANE_Status status = scanner->Read(bytes);
    EXPECT_NE(status, SANE_STATUS_GOOD);
    EXPECT_NE(status, SANE_STATUS_EOF) << "read again " << i + 1 << " times";
  }
  EXPECT_TRUE(bytes.empty());
}

TEST_F(SaneData, AFeederGivesPageAfterPageWithoutACancelBetween) {
  PutFeeder(3);
  const auto scanner = OpenSmall();
  ASSERT_EQ(scanner->Set("source", "ADF"), SANE_STATUS_GOOD);
  std::vector<std::vector<SANE_Byte>> pages;
  SanePage page = scanner->Page();
  for (; page.started == SANE_STATUS_GOOD && pages.size() < 10; page = scanner->Page()) {
    ExpectGood(page);
    pages.push_back(page.bytes);
  }
  EXPECT_EQ(page.started, SANE_STATUS_NO_DOCS);
  ASSERT_EQ(pages.size(), 3U);
  EXPECT_NE(pages[0], pages[1]);
  EXPECT_NE(pages[1], pages[2]);
  EXPECT_EQ(scanner->Start(), SANE_STATUS_NO_DOCS) << "and again";
  scanner->Cancel();
}

TEST_F(SaneData, ACancelBetweenPagesTakesNoPageAway) {
  PutFeeder(3);
  const auto scanner = OpenSmall();
  ASSERT_EQ(scanner->Set("source", "ADF"), SANE_STATUS_GOOD);
  std::vector<std::vector<SANE_Byte>> pages;
  SanePage page = scanner->Page();
  for (; page.started == SANE_STATUS_GOOD && pages.size() < 10; page = scanner->Page()) {
    ExpectGood(page);
    pages.push_back(page.bytes);
    scanner->Cancel();
  }
  EXPECT_EQ(page.started, SANE_STATUS_NO_DOCS);
  EXPECT_EQ(pages.size(), 3U);
}

// A frontend may show each page before it asks for the next one.
TEST_F(SaneData, ACancelAndAPauseAfterEachPageTakeNoPageAway) {
  PutFeeder(2, true);
  const auto scanner = OpenSmall();
  ASSERT_EQ(scanner->Set("source", "ADF Duplex"), SANE_STATUS_GOOD);
  std::vector<std::vector<SANE_Byte>> pages;
  SanePage page = scanner->Page();
  for (; page.started == SANE_STATUS_GOOD && pages.size() < 10; page = scanner->Page()) {
    ExpectGood(page);
    EXPECT_THAT(pages, testing::Not(testing::Contains(page.bytes)));
    pages.push_back(page.bytes);
    scanner->Cancel();
    std::this_thread::sleep_for(900ms);
  }
  EXPECT_EQ(page.started, SANE_STATUS_NO_DOCS);
  EXPECT_EQ(pages.size(), 4U);
}

TEST_F(SaneData, TheGlassGivesAPageAtEveryStart) {
  PutSmall();
  const auto scanner = OpenSmall();
  ASSERT_EQ(scanner->Set("source", "Flatbed"), SANE_STATUS_GOOD);
  const SanePage first = scanner->Page();
  ExpectGood(first);
  scanner->Cancel();
  const SanePage second = scanner->Page();
  ExpectGood(second);
  EXPECT_TRUE(first.bytes == second.bytes);
}

TEST_F(SaneData, AReadThatDoesNotWaitGivesNothingExactlyWhenTheDescriptorIsNotReadable) {
  sim::DeviceOptions options = vox::test::SmallDevice();
  options.faults = FaultsOf("delay=data:30");
  PutSmall(std::move(options));
  SaneScanner scanner(*sane_, kSmall);
  ASSERT_EQ(scanner.Set("mode", "Color"), SANE_STATUS_GOOD);
  ASSERT_EQ(scanner.Set("resolution", 200), SANE_STATUS_GOOD);
  ASSERT_EQ(scanner.Start(), SANE_STATUS_GOOD);
  ASSERT_EQ(sane_->set_io_mode(scanner.Handle(), SANE_TRUE), SANE_STATUS_GOOD);
  SANE_Int fd = -1;
  ASSERT_EQ(sane_->get_select_fd(scanner.Handle(), &fd), SANE_STATUS_GOOD);
  ASSERT_GE(fd, 0);
  const SANE_Parameters parameters = scanner.Parameters();
  std::vector<SANE_Byte> bytes;
  SANE_Status status = SANE_STATUS_GOOD;
  while (status == SANE_STATUS_GOOD) {
    ASSERT_TRUE(Readable(fd, 20000));
    const std::size_t before = bytes.size();
    status = scanner.Read(bytes, 1 << 20);
    if (status != SANE_STATUS_GOOD) break;
    ASSERT_GT(bytes.size(), before) << "it was readable";
    const bool readable = Readable(fd);
    std::vector<SANE_Byte> next;
    if (!readable) continue;
    status = scanner.Read(next, 1 << 20);
    ASSERT_TRUE(status != SANE_STATUS_GOOD || !next.empty()) << "it was readable";
    bytes.insert(bytes.end(), next.begin(), next.end());
  }
  EXPECT_EQ(status, SANE_STATUS_EOF);
  EXPECT_EQ(bytes.size(), static_cast<std::size_t>(parameters.bytes_per_line * parameters.lines));
  EXPECT_FALSE(Readable(fd)) << "nothing comes any more";
}

TEST_F(SaneData, WhileTheDevicePausesAReadThatDoesNotWaitGivesNothing) {
  sim::DeviceOptions options = vox::test::SmallDevice();
  options.faults = FaultsOf("stall=data:20000");
  sim::VirtualDevice& device = PutSmall(std::move(options));
  const auto scanner = OpenSmall();
  ASSERT_EQ(scanner->Start(), SANE_STATUS_GOOD);
  ASSERT_EQ(sane_->set_io_mode(scanner->Handle(), SANE_TRUE), SANE_STATUS_GOOD);
  SANE_Int fd = -1;
  ASSERT_EQ(sane_->get_select_fd(scanner->Handle(), &fd), SANE_STATUS_GOOD);
  std::vector<SANE_Byte> bytes;
  while (Readable(fd, 1000)) ASSERT_EQ(scanner->Read(bytes), SANE_STATUS_GOOD);
  EXPECT_GT(bytes.size(), 0U);
  const std::size_t before = bytes.size();
  EXPECT_EQ(scanner->Read(bytes), SANE_STATUS_GOOD);
  EXPECT_EQ(bytes.size(), before);
  scanner->Cancel();
  EXPECT_TRUE(Readable(fd, 10000)) << "a final status waits";
  EXPECT_EQ(scanner->Read(bytes), SANE_STATUS_CANCELLED);
  device.SetFaults({});
  ExpectGood(scanner->Page());
}

// Its bytes come when they come: the read begins before there is one.
TEST_F(SaneData, AReadThatWaitsGivesAtLeastOneByte) {
  sim::DeviceOptions options = vox::test::SmallDevice();
  options.faults = FaultsOf("delay=data:300");
  PutSmall(std::move(options));
  const auto scanner = OpenSmall();
  ASSERT_EQ(scanner->Start(), SANE_STATUS_GOOD);
  ASSERT_EQ(sane_->set_io_mode(scanner->Handle(), SANE_FALSE), SANE_STATUS_GOOD);
  std::vector<SANE_Byte> bytes;
  ASSERT_EQ(scanner->Read(bytes), SANE_STATUS_GOOD);
  EXPECT_GT(bytes.size(), 0U);
}

TEST_F(SaneData, NextPagesWaitAgainUnlessTheyAreToldNotTo) {
  PutSmall();
  const auto scanner = OpenSmall();
  ASSERT_EQ(scanner->Start(), SANE_STATUS_GOOD);
  ASSERT_EQ(sane_->set_io_mode(scanner->Handle(), SANE_TRUE), SANE_STATUS_GOOD);
  scanner->Cancel();
  ExpectGood(scanner->Page());
}

// ---- cancels ----

SaneModule* g_sane = nullptr;
std::atomic<SANE_Handle> g_handle{nullptr};

void CancelNow(int) {
  if (SANE_Handle const handle = g_handle.load()) g_sane->cancel(handle);
}

class SaneCancel : public SaneData {
 protected:
  void SetUp() override {
    SaneData::SetUp();
    if (IsSkipped()) return;
    g_sane = &*sane_;
    struct sigaction action {};
    action.sa_handler = CancelNow;
    action.sa_flags = SA_RESTART;
    ::sigaction(SIGUSR1, &action, nullptr);
  }
  void TearDown() override {
    g_handle = nullptr;
    ::signal(SIGUSR1, SIG_DFL);
    SaneData::TearDown();
  }
  // Runs `work` while this thread is sent the signal after `when`. Gives what passed from it on.
  template <typename Work>
  static double Interrupted(const Work& work, std::chrono::milliseconds when) {
    const pthread_t self = ::pthread_self();
    Clock::time_point sent;
    std::thread other([&] {
      std::this_thread::sleep_for(when);
      sent = Clock::now();
      ::pthread_kill(self, SIGUSR1);
    });
    work();
    const auto back = Clock::now();
    other.join();
    return std::chrono::duration<double>(back - sent).count();
  }
};

TEST_F(SaneCancel, FromASignalHandlerEndsAReadThatWaits) {
  sim::DeviceOptions options = vox::test::SmallDevice();
  options.faults = FaultsOf("stall=data:20000");
  sim::VirtualDevice& device = PutSmall(std::move(options));
  const auto scanner = OpenSmall();
  for (int round = 0; round < 5; ++round) {
    device.SetFaults(FaultsOf("stall=data:20000"));
    ASSERT_EQ(scanner->Start(), SANE_STATUS_GOOD);
    g_handle = scanner->Handle();
    std::vector<SANE_Byte> bytes;
    SANE_Status status = SANE_STATUS_GOOD;
    const double took = Interrupted(
        [&] {
          while (status == SANE_STATUS_GOOD) status = scanner->Read(bytes);
        },
        300ms);
    g_handle = nullptr;
    EXPECT_EQ(status, SANE_STATUS_CANCELLED);
    EXPECT_LT(took, 5) << "a slow machine's second";
    device.SetFaults({});
    ExpectGood(scanner->Page());
    scanner->Cancel();
  }
}

TEST_F(SaneCancel, FromASignalHandlerEndsAStartThatWaits) {
  sim::VirtualDevice& device = PutSmall();
  const auto scanner = OpenSmall();
  for (const char* stage : {"request", "start", "info", "scan"}) {
    SCOPED_TRACE(stage);
    device.SetFaults(FaultsOf(std::string("stall=") + stage));
    g_handle = scanner->Handle();
    SanePage page;
    const double took = Interrupted([&] { page = scanner->Page(); }, 300ms);
    g_handle = nullptr;
    EXPECT_EQ(page.ended, SANE_STATUS_CANCELLED);
    EXPECT_LT(took, 5) << "a slow machine's second";
    device.SetFaults({});
    ExpectGood(scanner->Page());
    scanner->Cancel();
  }
}

// A busy device is asked again after a pause: a cancel does not wait for its end.
TEST_F(SaneCancel, FromASignalHandlerEndsTheWaitForABusyDevice) {
  sim::VirtualDevice& device = PutSmall();
  const auto scanner = OpenSmall();
  device.SetFaults(FaultsOf("busy"));
  g_handle = scanner->Handle();
  SANE_Status status = SANE_STATUS_GOOD;
  Interrupted([&] { status = scanner->Start(); }, 200ms);
  g_handle = nullptr;
  EXPECT_EQ(status, SANE_STATUS_CANCELLED);
  device.SetFaults({});
  scanner->Cancel();
  ExpectGood(scanner->Page());
}

TEST_F(SaneCancel, AtAHundredMomentsLeavesTheDeviceReady) {
  sim::DeviceOptions options = vox::test::SmallDevice();
  options.faults = FaultsOf("delay=data:5,delay=start:5,delay=info:5");
  PutSmall(std::move(options));
  const auto scanner = OpenSmall();
  const auto begun = Clock::now();
  const SanePage good = scanner->Page();
  ExpectGood(good);
  const double whole = Since(begun);
  scanner->Cancel();
  int cancelled = 0;
  for (int moment = 0; moment < 100; ++moment) {
    SCOPED_TRACE(moment);
    g_handle = scanner->Handle();
    SanePage page;
    Interrupted([&] { page = scanner->Page(977); },
                std::chrono::milliseconds(static_cast<int>(1000 * whole * moment / 100)));
    g_handle = nullptr;
    EXPECT_THAT(page.ended, testing::AnyOf(SANE_STATUS_CANCELLED, SANE_STATUS_EOF));
    cancelled += page.ended == SANE_STATUS_CANCELLED;
    scanner->Cancel();
    if (moment % 4 != 0) continue;
    const SanePage again = scanner->Page();
    ExpectGood(again);
    EXPECT_TRUE(again.bytes == good.bytes);
    scanner->Cancel();
  }
  EXPECT_GT(cancelled, 10);
}

TEST_F(SaneCancel, TheDeviceIsToldAndItsPageIsOver) {
  sim::DeviceOptions options = vox::test::SmallDevice();
  options.faults = FaultsOf("stall=data:20000");
  sim::VirtualDevice& device = PutSmall(std::move(options));
  const auto scanner = OpenSmall();
  ASSERT_EQ(scanner->Start(), SANE_STATUS_GOOD);
  std::vector<SANE_Byte> bytes;
  ASSERT_EQ(scanner->Read(bytes), SANE_STATUS_GOOD);
  scanner->Cancel();
  SANE_Status status = SANE_STATUS_GOOD;
  while (status == SANE_STATUS_GOOD) status = scanner->Read(bytes);
  EXPECT_EQ(status, SANE_STATUS_CANCELLED);
  EXPECT_TRUE(device.Events().WaitFor(sim::EventKind::kCancelCommand, 1, 10s));
}

// Frontends cancel after the last page, always, and after statuses that ended a page.
TEST_F(SaneCancel, WithoutAPageIsHarmless) {
  PutSmall();
  const auto scanner = OpenSmall();
  scanner->Cancel();
  scanner->Cancel();
  ExpectGood(scanner->Page());
  scanner->Cancel();
  scanner->Cancel();
  ExpectGood(scanner->Page());
}

}  // namespace
}  // namespace vox::cli::test
