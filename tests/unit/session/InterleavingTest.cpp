// What two threads can do to one session at the same time. Each test holds the threads at the
// moment that its name says, so the interleaving happens every time.
#include <atomic>
#include <cerrno>
#include <chrono>

#include <sys/sem.h>

#include "tests/support/Beats.h"
#include "tests/unit/session/SessionTest.h"
#include "vox/drivers/SemaphoreSet.h"

namespace vox::test {
namespace {

constexpr std::chrono::milliseconds kCancelTime{500};  // a cancel is back within it
constexpr double kAnHour = 3600;                       // what a cancel must not wait for

class InterleavingTest : public SessionTest {
 protected:
  InterleavingTest() {
    WithSystem([](SessionSystem& system) { system.standby_interval = kAnHour; });
  }
  // Aborts, and fails when that takes longer than a cancel may.
  void AbortIsSwift() {
    const Beats beats;
    auto abort = Aside([this] { return device_->Abort(); });
    ASSERT_TRUE(Ends(abort));
    EXPECT_TRUE(abort.get());
    EXPECT_LT(beats.Elapsed(), kCancelTime);
    EXPECT_EQ(footprint_.SetsLeft(), 0u);
  }
  void PageComesThrough() {
    moment_.Let();
    second_.Let();
    ASSERT_TRUE(Start(SmallPage()));
    EXPECT_TRUE(SamePage(device_->ReadPage(40), device_->PageByTheRules()));
    EXPECT_TRUE(device_->EndScan());
    EXPECT_EQ(device_->m_semaphore.Value(), 0u);
  }
  FakeTransport::Action HoldsAtStart() {
    return
        [this](FakeTransport& device) { return moment_.Reach({device.m_wakeAbort.Get()}) ? 0 : 1; };
  }
  int ReadOneLine() {
    Line line(30);
    return device_->ReadLine(line.data());
  }
};

Moment* at_thread = nullptr;  // held before the page's third thread is created
int threads_started = 0;

int HeldThread(pthread_t* thread, void* (*body)(void*), void* argument) {
  if (++threads_started == 3) at_thread->Reach();
  return ::pthread_create(thread, nullptr, body, argument);
}

TEST_F(InterleavingTest, AbortWhileThreadsWaitAtTheGate) {
  at_thread = &moment_;
  threads_started = 0;
  WithSystem([](SessionSystem& system) { system.start_thread = &HeldThread; });
  ASSERT_TRUE(device_->Prepare(SmallPage()));
  auto start = Aside([this] { return device_->StartScan(false); });
  ASSERT_TRUE(moment_.AwaitReached());
  auto abort = Aside([this] { return device_->Abort(); });
  ASSERT_TRUE(Eventually([this] { return device_->PageStop() == PAGE_ABORT; }));
  moment_.Let();
  ASSERT_TRUE(Ends(abort));
  ASSERT_TRUE(Ends(start));
  EXPECT_EQ(device_->ends, 1) << "a page that started is ended";
  EXPECT_EQ(ReadOneLine(), 1);
  PageComesThrough();
}

TEST_F(InterleavingTest, AbortBetweenBeginPageAndTheExchanges) {
  device_->AtStart([](FakeTransport& device) {
    device.SignalAbort();  // as another thread's Abort begins
    return 0;
  });
  ASSERT_TRUE(device_->Prepare(SmallPage()));
  EXPECT_FALSE(device_->StartScan(false));
  EXPECT_EQ(device_->ends, 0);
  EXPECT_EQ(footprint_.SetsMade(), 0u);
  device_->AtStart(nullptr);
  PageComesThrough();
}

FakeTransport* aborted_at_its_set = nullptr;
int SetAfterAnAbort(key_t key, int semaphores, int flags) {
  aborted_at_its_set->SignalAbort();
  return ::semget(key, semaphores, flags);
}

// The Abort has removed what set there was; the one that is made next must not be forgotten.
TEST_F(InterleavingTest, AbortWhileTheSetIsMade) {
  ASSERT_TRUE(device_->Prepare(SmallPage()));
  aborted_at_its_set = device_.get();
  const SessionSystem before = CurrentSessionSystem();
  WithSystem([](SessionSystem& system) { system.make_set = &SetAfterAnAbort; });
  EXPECT_FALSE(device_->StartScan(false));
  SetSessionSystem(before);
  EXPECT_EQ(device_->ScanData.semid, -1);
  EXPECT_EQ(device_->ends, 0);
  PageComesThrough();
}

TEST_F(InterleavingTest, AbortDuringTheExchangesOfStartScan) {
  device_->AtStart(HoldsAtStart());
  ASSERT_TRUE(device_->Prepare(SmallPage()));
  auto start = Aside([this] { return device_->StartScan(false); });
  ASSERT_TRUE(moment_.AwaitReached());
  AbortIsSwift();
  ASSERT_TRUE(Ends(start));
  EXPECT_FALSE(start.get());
}

TEST_F(InterleavingTest, EndScanDuringTheExchangesOfStartScanIsNoEnd) {
  device_->AtStart(HoldsAtStart());
  ASSERT_TRUE(device_->Prepare(SmallPage()));
  auto start = Aside([this] { return device_->StartScan(false); });
  ASSERT_TRUE(moment_.AwaitReached());
  EXPECT_TRUE(device_->EndScan());
  moment_.Let();
  ASSERT_TRUE(Ends(start));
  EXPECT_TRUE(start.get());
  EXPECT_EQ(device_->ReadPage(40).size(), 40u);
}

TEST_F(InterleavingTest, StartScanBetweenTheTwoHalvesOfAnAbort) {
  device_->AtAbort([this](FakeTransport&) {
    moment_.Reach();
    return 0;
  });
  auto abort = Aside([this] { return device_->Abort(); });
  ASSERT_TRUE(moment_.AwaitReached());
  device_->HasMorePages(1);  // a keep-alive that nobody else would end
  ASSERT_TRUE(Start(SmallPage()));
  moment_.Let();
  ASSERT_TRUE(Ends(abort));
  EXPECT_EQ(device_->PageStop(), PAGE_ABORT);
  EXPECT_EQ(device_->ends, 1);
}

TEST_F(InterleavingTest, AbortDuringReadLine) {
  HoldAtLine(0);
  ASSERT_TRUE(Start(SmallPage()));
  auto read = Aside([this] { return ReadOneLine(); });
  ASSERT_TRUE(moment_.AwaitReached());
  AbortIsSwift();
  ASSERT_TRUE(Ends(read));
  EXPECT_EQ(read.get(), 1);
  EXPECT_EQ(device_->GetIfErrorStatus(), 3u);
}

TEST_F(InterleavingTest, AbortDuringABlockedReadScanData) {
  HoldAtLine(20);
  ASSERT_TRUE(Start(SmallPage()));
  EXPECT_EQ(device_->ReadPage(20).size(), 20u);
  ASSERT_TRUE(moment_.AwaitReached());
  AbortIsSwift();
  EXPECT_EQ(device_->ends, 1);
  PageComesThrough();
}

TEST_F(InterleavingTest, AbortBetweenTheLastPostAndThePagesEnd) {
  device_->AtEnd(HoldsThenRaises(moment_));
  ASSERT_TRUE(Start(SmallPage()));
  EXPECT_EQ(device_->ReadPage(40).size(), 40u);
  ASSERT_TRUE(moment_.AwaitReached());
  AbortIsSwift();
  EXPECT_EQ(device_->ends, 1);
}

TEST_F(InterleavingTest, AbortWhileEndScanWaitsForThePagesEnd) {
  device_->AtEnd(HoldsThenRaises(moment_));
  ASSERT_TRUE(Start(SmallPage()));
  auto end = Aside([this] { return device_->EndScan(); });
  ASSERT_TRUE(Eventually([this] { return device_->m_semaphore.Waiters() == 1; }));
  AbortIsSwift();
  ASSERT_TRUE(Ends(end));
  EXPECT_TRUE(end.get());
  EXPECT_EQ(device_->m_semaphore.Value(), 0u);
}

TEST_F(InterleavingTest, AbortWhileTheReaderWaitsForTheClient) {
  ASSERT_TRUE(Start({8, 8, 40000, 300, 300}));
  ASSERT_TRUE(Eventually([this] { return device_->reads == 16384; }));
  AbortIsSwift();
}

TEST_F(InterleavingTest, AbortMeetsAbort) {
  HoldAtLine(5);
  device_->AtAbort([this](FakeTransport&) {
    second_.Reach();
    return 0;
  });
  ASSERT_TRUE(Start(SmallPage()));
  ASSERT_TRUE(moment_.AwaitReached());
  auto one = Aside([this] { return device_->Abort(); });
  auto two = Aside([this] { return device_->Abort(); });
  ASSERT_TRUE(Eventually([this] { return device_->aborts == 2; }));
  second_.Let();
  ASSERT_TRUE(Ends(one));
  ASSERT_TRUE(Ends(two));
  EXPECT_TRUE(one.get());
  EXPECT_TRUE(two.get());
  EXPECT_EQ(device_->ends, 1);
}

TEST_F(InterleavingTest, EndScanMeetsEndScan) {
  device_->AtEnd(HoldsThenRaises(moment_));
  ASSERT_TRUE(Start(SmallPage()));
  auto one = Aside([this] { return device_->EndScan(); });
  auto two = Aside([this] { return device_->EndScan(); });
  ASSERT_TRUE(moment_.AwaitReached());
  moment_.Let();
  ASSERT_TRUE(Ends(one));
  ASSERT_TRUE(Ends(two));
  EXPECT_EQ(device_->m_semaphore.Value(), 0u);
}

TEST_F(InterleavingTest, EndScanMeetsAFailingReader) {
  device_->HasMorePages(1)
      .AtLine(10,
              [this](FakeTransport&) {
                moment_.Reach();  // fails of its own accord, whoever ends the page meanwhile
                return -1;
              })
      .AtEnd(HoldsThenRaises(second_));
  ASSERT_TRUE(Start(SmallPage()));
  ASSERT_TRUE(moment_.AwaitReached());
  moment_.Let();
  ASSERT_TRUE(second_.AwaitReached());
  auto end = Aside([this] { return device_->EndScan(); });
  ASSERT_TRUE(Eventually([this] { return device_->m_semaphore.Waiters() == 1; }));
  second_.Let();
  ASSERT_TRUE(Ends(end));
  EXPECT_FALSE(device_->IsNextPageExist()) << "settled when EndScan is back";
  device_->AtLine(10, nullptr);
  PageComesThrough();
}

TEST_F(InterleavingTest, EndScanThatCutsAPageKeepsTheOtherPagesOfTheJob) {
  HoldAtLine(10);
  device_->HasMorePages(1);
  ASSERT_TRUE(Start(SmallPage()));
  EXPECT_EQ(device_->ReadPage(10).size(), 10u);
  ASSERT_TRUE(moment_.AwaitReached());
  EXPECT_TRUE(device_->EndScan());
  EXPECT_TRUE(device_->IsNextPageExist());
  EXPECT_EQ(device_->GetIfErrorStatus(), 0u);
  EXPECT_EQ(device_->PageStop(), PAGE_END);
  PageComesThrough();
}

Moment* at_post = nullptr;  // held before the first post of held_number
std::atomic<int> held_number{-1};

int HeldPost(int semid, sembuf* operation, std::size_t count) {
  int number = operation->sem_num;
  if (operation->sem_op > 0 && held_number.compare_exchange_strong(number, -1)) at_post->Reach();
  return ::semop(semid, operation, count);
}

class OvertakenPostTest : public InterleavingTest, public testing::WithParamInterface<int> {};

// The thread has just seen that no stop is wanted when the page is ended.
TEST_P(OvertakenPostTest, IsNoFailureToLog) {
  at_post = &moment_;
  held_number = GetParam();
  WithSystem([](SessionSystem& system) { system.operate = &HeldPost; });
  ASSERT_TRUE(Start(SmallPage()));
  ASSERT_TRUE(moment_.AwaitReached());
  auto end = Aside([this] { return device_->EndScan(); });
  ASSERT_TRUE(Eventually([this] { return footprint_.SetsLeft() == 0; }));
  moment_.Let();
  ASSERT_TRUE(Ends(end));
  EXPECT_EQ(LinesLogged("Sem post fail!\n"), 0);
  EXPECT_EQ(device_->GetIfErrorStatus(), 0u);
  PageComesThrough();
}

INSTANTIATE_TEST_SUITE_P(Semaphores, OvertakenPostTest,
                         testing::Values(kSemRawLine, kSemScaledLine, kSemClientLine));

TEST_F(InterleavingTest, EndScanBeforeTheDevicesSurplusLinesKeepsTheOtherPages) {
  device_->HasMorePages(1).Answers([](_SCANINFO& info) { info.Window.yExtent = 60; });
  device_->AtLine(45, Holds(moment_));
  ASSERT_TRUE(Start(SmallPage()));
  EXPECT_EQ(device_->ReadPage(40).size(), 40u);
  EXPECT_TRUE(device_->EndScan());
  EXPECT_TRUE(device_->IsNextPageExist());
}

TEST_F(InterleavingTest, StartScanRightAfterEndScanOfAMultipageJob) {
  device_->HasMorePages(5);
  for (int page = 0; page < 6; ++page) PageComesThrough();
  EXPECT_EQ(device_->ends, 6);
  EXPECT_EQ(footprint_.SetsLeft(), 0u);
}

TEST_F(InterleavingTest, DestructionDuringTheKeepAlive) {
  device_->HasMorePages(1);
  ASSERT_TRUE(Start(SmallPage()));
  EXPECT_TRUE(device_->EndScan());
  const Beats beats;
  device_.reset();
  EXPECT_LT(beats.Elapsed(), kCancelTime);
}

TEST_F(InterleavingTest, AbortDuringAStandbyCommand) {
  WithSystem([](SessionSystem& system) { system.standby_interval = 0.001; });
  device_->HasMorePages(1).AtStandby(
      [this](FakeTransport& device) { return moment_.Reach({device.m_wakeAbort.Get()}) ? 0 : 1; });
  ASSERT_TRUE(Start(SmallPage()));
  EXPECT_TRUE(device_->EndScan());
  ASSERT_TRUE(moment_.AwaitReached());
  AbortIsSwift();
  EXPECT_EQ(device_->standbys, 1);
}

TEST_F(InterleavingTest, ExceptionInAStandbyCommandEndsTheSession) {
  WithSystem([](SessionSystem& system) { system.standby_interval = 0.001; });
  testing::internal::CaptureStderr();
  device_->HasMorePages(1).AtStandby(Throws());
  ASSERT_TRUE(Start(SmallPage()));
  EXPECT_TRUE(device_->EndScan());
  ASSERT_TRUE(Eventually([this] { return device_->aborts == 1; }));
  EXPECT_TRUE(device_->stopStandBy());
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "data_thread: exception\n");
  EXPECT_EQ(device_->GetIfErrorStatus(), 2u);
  EXPECT_FALSE(device_->IsNextPageExist());
  EXPECT_EQ(device_->ends, 1);
}

TEST_F(InterleavingTest, StopStandByInMidPageOnlyForbidsTheKeepAlive) {
  WithSystem([](SessionSystem& system) { system.standby_interval = 0; });
  HoldAtLine(20);
  device_->HasMorePages(1);
  ASSERT_TRUE(Start(SmallPage()));
  ASSERT_TRUE(moment_.AwaitReached());
  EXPECT_TRUE(device_->stopStandBy());
  moment_.Let();
  EXPECT_EQ(device_->ReadPage(40).size(), 40u) << "the page is not cut";
  EXPECT_TRUE(device_->EndScan());
  EXPECT_TRUE(device_->IsNextPageExist());
  EXPECT_TRUE(device_->stopStandBy());
  EXPECT_EQ(device_->standbys, 0);
}

TEST_F(InterleavingTest, StopStandByWhileTheReaderWaitsForTheClientDoesNotHang) {
  ASSERT_TRUE(Start({8, 8, 40000, 300, 300}));
  ASSERT_TRUE(Eventually([this] { return device_->reads == 16384; }));
  auto stop = Aside([this] { return device_->stopStandBy(); });
  ASSERT_TRUE(Ends(stop));
  EXPECT_EQ(device_->ReadPage(40000).size(), 40000u);
}

TEST_F(InterleavingTest, ReadLineThatOverlapsTheNextPageFails) {
  HoldAtLine(0);
  ASSERT_TRUE(Start(SmallPage()));
  const int semid = device_->ScanData.semid;
  auto read = Aside([this] { return ReadOneLine(); });
  ASSERT_TRUE(Eventually([semid] { return ::semctl(semid, kSemClientLine, GETNCNT) == 1; }));
  ASSERT_TRUE(device_->StartScan(false)) << "ends the page before";
  ASSERT_TRUE(Ends(read));
  EXPECT_EQ(read.get(), 1);
  EXPECT_EQ(device_->GetYOffset(), 0) << "no line of the new page is gone";
  moment_.Let();
  EXPECT_TRUE(SamePage(device_->ReadPage(40), device_->PageByTheRules()));
}

Moment* at_wake = nullptr;  // held when a wait for a client line has failed

int HeldWake(int semid, sembuf* operation, std::size_t count) {
  const int result = ::semop(semid, operation, count);
  const int error = errno;
  if (result != 0 && operation->sem_op < 0 && operation->sem_num == kSemClientLine) {
    at_wake->Reach();
  }
  errno = error;
  return result;
}

// A ReadLine whose page was ended comes back when the next one runs already.
class LateReadLineTest : public InterleavingTest {
 protected:
  void SetUp() override {
    at_wake = &second_;
    WithSystem([](SessionSystem& system) { system.operate = &HeldWake; });
    HoldAtLine(0);
    ASSERT_TRUE(Start(SmallPage()));
    ASSERT_TRUE(moment_.AwaitReached());
    read_ = Aside([this] { return ReadOneLine(); });
    const int semid = device_->ScanData.semid;
    ASSERT_TRUE(Eventually([semid] { return ::semctl(semid, kSemClientLine, GETNCNT) == 1; }));
  }
  void ComesBackWithStatus(std::uint32_t status) {
    EXPECT_TRUE(second_.AwaitReached());
    second_.Let();
    ASSERT_TRUE(Ends(read_));
    EXPECT_EQ(read_.get(), 1);
    EXPECT_EQ(device_->GetIfErrorStatus(), status);
  }
  std::future<int> read_;
};

TEST_F(LateReadLineTest, OfThePageBeforeAPrepareScanSetsNoStatus) {
  EXPECT_TRUE(device_->EndScan());
  ASSERT_TRUE(device_->Prepare(SmallPage()));
  ComesBackWithStatus(0);
  PageComesThrough();
}

TEST_F(LateReadLineTest, OfThePageThatStartScanEndedSetsNoStatus) {
  ASSERT_TRUE(device_->StartScan(false));
  ComesBackWithStatus(0);
  PageComesThrough();
}

TEST_F(LateReadLineTest, OfThePageThatEndScanEndedIsStatus3) {
  EXPECT_TRUE(device_->EndScan());
  ComesBackWithStatus(3);
}

// A worker that calls what only clients may call is turned away, not joined with itself.
TEST_F(InterleavingTest, ClientCallsOnTheReaderAreRefused) {
  bool refused = false;
  device_->AtLine(5, [&refused](FakeTransport& device) {
    refused = !device.EndScan() && !device.StartScan(false) && !device.BeginPage() &&
              !device.PrepareScan(RequestFor(SmallPage()), true, false);
    device.stopStandBy();
    return -1;
  });
  ASSERT_TRUE(Start(SmallPage()));
  EXPECT_LT(device_->ReadPage(40).size(), 40u);
  EXPECT_TRUE(device_->EndScan());
  EXPECT_TRUE(refused);
  EXPECT_EQ(device_->GetIfErrorStatus(), 1u);
}

TEST_F(InterleavingTest, AbortOnTheReaderDoesNotJoinIt) {
  device_->AtLine(5, [](FakeTransport& device) { return device.Abort() ? -1 : 0; });
  ASSERT_TRUE(Start(SmallPage()));
  EXPECT_LT(device_->ReadPage(40).size(), 40u);
  EXPECT_TRUE(device_->EndScan());
  EXPECT_EQ(device_->ends, 1);
  device_->AtLine(5, nullptr);
  PageComesThrough();
}

TEST_F(InterleavingTest, ExceptionAndAbortThatThrowsAsWell) {
  testing::internal::CaptureStderr();
  device_->AtLine(5, Throws()).AtAbort(Throws()).AtEnd(Throws());
  ASSERT_TRUE(Start(SmallPage()));
  EXPECT_LT(device_->ReadPage(40).size(), 40u);
  EXPECT_TRUE(device_->EndScan());
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "data_thread: exception\ndata_thread: exception\ndata_thread: exception\n");
  EXPECT_EQ(device_->GetIfErrorStatus(), 2u);
  device_->AtAbort(nullptr);
}

}  // namespace
}  // namespace vox::test
