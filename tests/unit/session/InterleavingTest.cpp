// What two threads can do to one session at the same time. Each test holds the threads at the
// moment that its name says, so the interleaving happens every time.
#include <chrono>

#include <sys/sem.h>

#include "tests/unit/session/SessionTest.h"
#include "vox/drivers/SemaphoreSet.h"

namespace vox::test {
namespace {

constexpr std::chrono::milliseconds kCancelTime{500};  // a cancel is back within it

class InterleavingTest : public SessionTest {
 protected:
  // Aborts, and fails when that takes longer than a cancel may.
  void AbortIsSwift() {
    const auto start = std::chrono::steady_clock::now();
    auto abort = Aside([this] { return device_->Abort(); });
    ASSERT_TRUE(Ends(abort));
    EXPECT_TRUE(abort.get());
    EXPECT_LT(std::chrono::steady_clock::now() - start, kCancelTime);
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
  const auto start = std::chrono::steady_clock::now();
  device_.reset();
  EXPECT_LT(std::chrono::steady_clock::now() - start, kCancelTime);
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

// A worker that calls what only clients may call is turned away, not joined with itself.
TEST_F(InterleavingTest, ClientCallsOnTheReaderAreRefused) {
  bool refused = false;
  device_->AtLine(5, [&refused](FakeTransport& device) {
    refused = !device.EndScan() && !device.StartScan(false) && !device.BeginPage();
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
