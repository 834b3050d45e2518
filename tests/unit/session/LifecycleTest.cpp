// The states of a session: in each, what fails and with which status, what passes, and the way out.
#include "vox/drivers/TwainImageIF.h"

#include <atomic>
#include <cerrno>
#include <cstring>

#include <sys/sem.h>

#include "tests/unit/session/SessionTest.h"
#include "vox/drivers/PageReader.h"

namespace vox::test {
namespace {

class LifecycleTest : public SessionTest {
 protected:
  int ReadOneLine() {
    line_.resize(4096);
    return device_->ReadLine(line_.data());
  }
  void ExpectNoPage() {
    EXPECT_EQ(device_->ScanData.semid, -1);
    EXPECT_EQ(device_->UserData.semid, -1);
    EXPECT_EQ(footprint_.SetsLeft(), 0u);
  }
  Line line_;
};

TEST_F(LifecycleTest, NewObject) {
  EXPECT_STREQ(device_->GetDispName(), "fake");
  EXPECT_EQ(device_->GetYOffset(), 0);
  EXPECT_EQ(device_->GetIfErrorStatus(), 0u);
  EXPECT_EQ(device_->GetNumberOfLinesScanned(), 0);
  EXPECT_FALSE(device_->IsNextPageExist());
  EXPECT_EQ(device_->ScanData.LineArray, nullptr);
  EXPECT_EQ(device_->UserData.LineArray, nullptr);
  EXPECT_EQ(device_->ScanData.CurLineReady, -1);
  EXPECT_EQ(device_->ScanData.StartLineReady, 0);
  EXPECT_FALSE(device_->EjectADF());
  ExpectNoPage();
}

TEST_F(LifecycleTest, IdleReadsNothingAndEndsAtOnce) {
  EXPECT_EQ(ReadOneLine(), 1);
  EXPECT_EQ(device_->GetIfErrorStatus(), 3u);
  EXPECT_TRUE(device_->EndScan());
  EXPECT_TRUE(device_->EndScan());
  EXPECT_TRUE(device_->stopStandBy());
  EXPECT_TRUE(device_->Abort());
  EXPECT_TRUE(device_->Abort());
  EXPECT_EQ(device_->ends, 0);
  EXPECT_TRUE(Start(SmallPage())) << "the way out";
}

TEST_F(LifecycleTest, IdleWorkerLoopsDoNothing) {
  EXPECT_FALSE(device_->ReadDataAll());
  EXPECT_FALSE(device_->DummyRead());
  EXPECT_EQ(device_->reads, 0);
}

TEST_F(LifecycleTest, PreparedReadsNothing) {
  ASSERT_TRUE(device_->Prepare(SmallPage()));
  EXPECT_EQ(ReadOneLine(), 1);
  EXPECT_EQ(device_->GetIfErrorStatus(), 3u);
  EXPECT_TRUE(device_->EndScan());
  EXPECT_TRUE(device_->Prepare(SmallPage())) << "again";
  EXPECT_EQ(device_->GetIfErrorStatus(), 0u) << "cleared";
  EXPECT_TRUE(device_->StartScan(false));
}

TEST_F(LifecycleTest, PrepareRefusesOtherDepths) {
  for (const unsigned bits : {0u, 2u, 4u, 16u, 32u}) {
    EXPECT_FALSE(device_->Prepare(PageShape{bits, 30, 40, 300, 300})) << bits;
    EXPECT_EQ(device_->GetIfErrorStatus(), 0u);
  }
}

TEST_F(LifecycleTest, ScanningGivesLinesAndCountsThem) {
  ASSERT_TRUE(Start(SmallPage()));
  EXPECT_EQ(ReadOneLine(), 0);
  EXPECT_EQ(ReadOneLine(), 0);
  EXPECT_EQ(device_->GetYOffset(), 2);
  EXPECT_EQ(device_->GetNumberOfLinesScanned(), 0) << "counts duplex pages only";
  EXPECT_TRUE(device_->EndScan());
  ExpectNoPage();
}

TEST_F(LifecycleTest, ScanningPageIsEndedByTheNextStart) {
  ASSERT_TRUE(Start(SmallPage()));
  EXPECT_EQ(ReadOneLine(), 0);
  ASSERT_TRUE(Start(SmallPage()));
  EXPECT_GE(device_->ends, 1);  // the second page may have come to its own end already
  EXPECT_EQ(device_->ReadPage(40).size(), 40u);
  EXPECT_TRUE(device_->EndScan());
  EXPECT_EQ(device_->ends, 2);
}

TEST_F(LifecycleTest, ScanningPageIsEndedByTheNextStartOfASimpleTransport) {
  device_->begins_page = false;
  ASSERT_TRUE(Start(SmallPage()));
  ASSERT_TRUE(Start(SmallPage()));
  EXPECT_EQ(device_->ReadPage(40).size(), 40u);
  EXPECT_TRUE(device_->EndScan());
  EXPECT_EQ(device_->ends, 2);
}

// The first page's end fails, as the exchange of the end notice can.
FakeTransport::Action RaisesWithStatus3() {
  return [](FakeTransport& device) {
    if (device.ends == 1) device.SetIfErrorStatus(IF_ERR_STS_DEVICE_COMM_ERR);
    device.m_semaphore.Up();
    return 1;
  };
}

TEST_F(LifecycleTest, ScanningPageGoesOnWhileTheNextIsPrepared) {
  HoldAtLine(10);
  ASSERT_TRUE(Start(SmallPage()));
  const std::vector<Line> expected = device_->PageByTheRules();
  std::vector<Line> page = device_->ReadPage(10);
  const PageShape next{24, 20, 50, 150, 150};
  ASSERT_TRUE(device_->Prepare(next));
  EXPECT_EQ(device_->GetYOffset(), 0);
  EXPECT_EQ(device_->ends, 0);
  moment_.Let();
  Line line(30);
  while (page.size() < 40 && device_->ReadLine(line.data()) == 0) page.push_back(line);
  EXPECT_TRUE(SamePage(page, expected));
  EXPECT_EQ(ReadOneLine(), 1) << "there are 40, not 50";
  ASSERT_TRUE(device_->StartScan(false));
  EXPECT_EQ(device_->GetIfErrorStatus(), 0u) << "the status 2 was of the page before";
  EXPECT_TRUE(SamePage(device_->ReadPage(50), device_->PageByTheRules()));
  EXPECT_TRUE(device_->EndScan());
  EXPECT_EQ(device_->ends, 2);
}

TEST_F(LifecycleTest, ScanningPageGoesOnAfterAPrepareThatRefuses) {
  ASSERT_TRUE(Start(SmallPage()));
  EXPECT_EQ(ReadOneLine(), 0);
  EXPECT_FALSE(device_->Prepare(PageShape{16, 30, 40, 300, 300}));
  EXPECT_EQ(device_->GetYOffset(), 1) << "refused before the count is cleared";
  for (int i = 1; i < 40; ++i) EXPECT_EQ(ReadOneLine(), 0) << i;
  EXPECT_TRUE(device_->EndScan());
}

TEST_F(LifecycleTest, PageThatFailsAfterTheNextWasPreparedIsNotTheNextOnesStatus) {
  HoldAtLine(10);
  device_->AtEnd(RaisesWithStatus3());
  ASSERT_TRUE(Start(SmallPage()));
  ASSERT_TRUE(device_->Prepare(SmallPage()));
  moment_.Let();
  ASSERT_TRUE(Eventually([this] { return device_->GetIfErrorStatus() == 3; }));
  ASSERT_TRUE(device_->StartScan(false));
  EXPECT_EQ(device_->GetIfErrorStatus(), 0u);
  EXPECT_EQ(device_->ReadPage(40).size(), 40u);
}

TEST_F(LifecycleTest, PageThatIsEndedAfterTheNextWasPreparedIsNotTheNextOnesStatus) {
  HoldAtLine(10);
  device_->AtEnd(RaisesWithStatus3());
  ASSERT_TRUE(Start(SmallPage()));
  ASSERT_TRUE(device_->Prepare(SmallPage()));
  EXPECT_TRUE(device_->EndScan());
  EXPECT_EQ(device_->GetIfErrorStatus(), 3u) << "for who looks now";
  ASSERT_TRUE(device_->StartScan(false));
  EXPECT_EQ(device_->GetIfErrorStatus(), 0u);
}

TEST_F(LifecycleTest, StartTakesNoStatusFromThePageThatItEnds) {
  device_->AtEnd(RaisesWithStatus3());
  HoldAtLine(10);
  ASSERT_TRUE(Start(SmallPage()));
  ASSERT_TRUE(device_->StartScan(false));
  EXPECT_EQ(device_->ends, 1);
  EXPECT_EQ(device_->GetIfErrorStatus(), 0u);
}

TEST_F(LifecycleTest, StartKeepsTheStatusFromBeforeItEndedAPage) {
  HoldAtLine(10);
  device_->AtEnd(RaisesWithStatus3());
  ASSERT_TRUE(Start(SmallPage()));
  device_->SetIfErrorStatus(IF_ERR_STS_CHECK_ERROR);
  ASSERT_TRUE(device_->StartScan(false));
  EXPECT_EQ(device_->GetIfErrorStatus(), 7u);
}

TEST_F(LifecycleTest, SecondStartWithoutPrepareBeginsAtLine0) {
  ASSERT_TRUE(Start(SmallPage()));
  EXPECT_EQ(device_->ReadPage(40).size(), 40u);
  EXPECT_TRUE(device_->EndScan());
  ASSERT_TRUE(device_->StartScan(false));
  EXPECT_EQ(device_->GetYOffset(), 0);
  EXPECT_EQ(device_->ReadPage(40).size(), 40u);
  EXPECT_TRUE(device_->EndScan());
}

TEST_F(LifecycleTest, TablesSayHowFarThePageIsUntilItsEnd) {
  ASSERT_TRUE(Start(SmallPage()));
  EXPECT_NE(device_->ScanData.LineArray, nullptr);
  EXPECT_EQ(device_->ScanData.semid, device_->UserData.semid);
  ASSERT_EQ(device_->ReadPage(40).size(), 40u);
  EXPECT_EQ(device_->ScanData.CurLineReady, 39);
  EXPECT_EQ(device_->ScanData.StartLineReady, 39);
  EXPECT_EQ(device_->UserData.CurLineReady, 39);
  EXPECT_TRUE(device_->EndScan());
  for (const __DataContainer* data : {&device_->ScanData, &device_->UserData}) {
    EXPECT_EQ(data->CurLineReady, -1);
    EXPECT_EQ(data->StartLineReady, 0);
  }
  ExpectNoPage();
}

TEST_F(LifecycleTest, PrepareNotesThePreview) {
  ASSERT_TRUE(device_->PrepareScan(RequestFor(SmallPage()), true, true));
  EXPECT_EQ(+device_->ScanParam.bPrescan, 1u);
  EXPECT_EQ(device_->scan_info.dwPreScanFlag, 1u);
  ASSERT_TRUE(device_->PrepareScan(RequestFor(SmallPage()), true, false));
  EXPECT_EQ(+device_->ScanParam.bPrescan, 0u);
}

TEST_F(LifecycleTest, StandbyIntervalIsFiveSeconds) {
  EXPECT_EQ(system_.standby_interval, 5.0);
}

TEST_F(LifecycleTest, EndedReadsNothingAndEndsAgainAtOnce) {
  ASSERT_TRUE(Start(SmallPage()));
  EXPECT_TRUE(device_->EndScan());
  EXPECT_EQ(ReadOneLine(), 1);
  EXPECT_EQ(device_->GetIfErrorStatus(), 3u);
  EXPECT_TRUE(device_->EndScan());
  EXPECT_EQ(device_->ends, 1);
  EXPECT_TRUE(Start(SmallPage())) << "the way out";
}

TEST_F(LifecycleTest, AbortedIsLikeEnded) {
  ASSERT_TRUE(Start(SmallPage()));
  EXPECT_TRUE(device_->Abort());
  ExpectNoPage();
  EXPECT_EQ(ReadOneLine(), 1);
  EXPECT_TRUE(device_->Abort());
  EXPECT_TRUE(device_->EndScan());
  EXPECT_EQ(device_->ends, 1);
  ASSERT_TRUE(Start(SmallPage())) << "the way out";
  EXPECT_EQ(device_->ReadPage(40).size(), 40u);
}

TEST_F(LifecycleTest, DestroyedWhileScanning) {
  HoldAtLine(3);
  ASSERT_TRUE(Start(SmallPage()));
  ASSERT_TRUE(moment_.AwaitReached());
  device_.reset();
}

TEST_F(LifecycleTest, MultipageKeepsTheDeviceAwakeUntilStopStandBy) {
  WithSystem([](SessionSystem& system) { system.standby_interval = 0.001; });
  device_->HasMorePages(1);
  ASSERT_TRUE(Start(SmallPage()));
  EXPECT_EQ(device_->ReadPage(40).size(), 40u);
  EXPECT_TRUE(device_->EndScan());
  EXPECT_TRUE(device_->IsNextPageExist());
  ASSERT_TRUE(Eventually([this] { return device_->standbys > 3; }));
  EXPECT_TRUE(device_->stopStandBy());
  EXPECT_TRUE(device_->stopStandBy()) << "again";
  const int standbys = device_->standbys;
  ASSERT_TRUE(Start(SmallPage())) << "the next page";
  EXPECT_EQ(device_->ReadPage(40).size(), 40u);
  EXPECT_TRUE(device_->EndScan());
  EXPECT_EQ(device_->standbys, standbys);
  EXPECT_FALSE(device_->IsNextPageExist());
}

TEST_F(LifecycleTest, MultipageEndsWithAbort) {
  device_->HasMorePages(1);
  ASSERT_TRUE(Start(SmallPage()));
  EXPECT_TRUE(device_->EndScan());
  EXPECT_TRUE(device_->IsNextPageExist());
  EXPECT_TRUE(device_->Abort()) << "does not wait for the five seconds to pass";
  EXPECT_FALSE(device_->IsNextPageExist());
}

TEST_F(LifecycleTest, SinglePageSendsNoStandby) {
  WithSystem([](SessionSystem& system) { system.standby_interval = 0; });
  ASSERT_TRUE(Start(SmallPage()));
  EXPECT_TRUE(device_->EndScan());
  EXPECT_TRUE(device_->stopStandBy());
  EXPECT_EQ(device_->standbys, 0);
}

TEST_F(LifecycleTest, EndScanWaitsForALateRaise) {
  device_->AtEnd(HoldsThenRaises(moment_));
  ASSERT_TRUE(Start(SmallPage()));
  ASSERT_EQ(device_->ReadPage(40).size(), 40u);
  auto end = Aside([this] { return device_->EndScan(); });
  ASSERT_TRUE(moment_.AwaitReached());
  ASSERT_TRUE(Eventually([this] { return device_->m_semaphore.Waiters() == 1; }));
  moment_.Let();
  ASSERT_TRUE(Ends(end));
  EXPECT_TRUE(end.get());
}

TEST_F(LifecycleTest, EndScanAfterTheRaiseReturnsAtOnceAndTheCountIsTaken) {
  ASSERT_TRUE(Start(SmallPage()));
  ASSERT_TRUE(Eventually([this] { return device_->m_semaphore.Value() == 1; }));
  EXPECT_TRUE(device_->EndScan());
  EXPECT_EQ(device_->m_semaphore.Value(), 0u);
}

TEST_F(LifecycleTest, EveryPageNeedsARaiseOfItsOwn) {
  ASSERT_TRUE(Start(SmallPage()));
  EXPECT_TRUE(device_->EndScan());
  device_->m_semaphore.Up();  // a stray raise does not serve the next page
  device_->AtEnd(HoldsThenRaises(moment_));
  ASSERT_TRUE(Start(SmallPage()));
  auto end = Aside([this] { return device_->EndScan(); });
  ASSERT_TRUE(Eventually([this] { return device_->m_semaphore.Waiters() == 1; }));
  moment_.Let();
  ASSERT_TRUE(Ends(end));
}

TEST_F(LifecycleTest, TransportThatNeverRaisesMakesEndScanWait) {
  device_->AtEnd(NeverRaises());
  ASSERT_TRUE(Start(SmallPage()));
  auto end = Aside([this] { return device_->EndScan(); });
  ASSERT_TRUE(Eventually([this] { return device_->ends == 1; }));
  ASSERT_TRUE(Eventually([this] { return device_->m_semaphore.Waiters() == 1; }));
  EXPECT_EQ(end.wait_for(std::chrono::milliseconds(20)), std::future_status::timeout);
  device_->m_semaphore.Up();
  ASSERT_TRUE(Ends(end));
}

TEST_F(LifecycleTest, AbortFreesAnEndScanThatNobodyRaises) {
  device_->AtEnd(NeverRaises());
  ASSERT_TRUE(Start(SmallPage()));
  auto end = Aside([this] { return device_->EndScan(); });
  ASSERT_TRUE(Eventually([this] { return device_->m_semaphore.Waiters() == 1; }));
  EXPECT_TRUE(device_->Abort());
  ASSERT_TRUE(Ends(end));
}

TEST_F(LifecycleTest, AbortAloneDoesNotNeedTheRaise) {
  device_->AtEnd(NeverRaises());
  ASSERT_TRUE(Start(SmallPage()));
  EXPECT_TRUE(device_->Abort());
}

// Failures of StartScan.

int NoSet(key_t, int, int) {
  errno = ENOSPC;
  return -1;
}
std::atomic<int> threads_allowed{0};
int FewThreads(pthread_t* thread, void* (*body)(void*), void* argument) {
  if (threads_allowed-- > 0) return ::pthread_create(thread, nullptr, body, argument);
  *thread = 12345;  // whatever a failed call leaves behind
  return EAGAIN;
}

TEST_F(LifecycleTest, StartWithoutAKeyIsStatus1) {
  WithSystem([](SessionSystem& system) { system.make_key = &NoKey; });
  EXPECT_FALSE(Start(SmallPage()));
  EXPECT_EQ(device_->GetIfErrorStatus(), 1u);
  EXPECT_EQ(LinesLogged("StartScan: Can't generate key"), 1);
  ExpectNoPage();
}

TEST_F(LifecycleTest, StartWithoutASetIsStatus1) {
  WithSystem([](SessionSystem& system) { system.make_set = &NoSet; });
  EXPECT_FALSE(Start(SmallPage()));
  EXPECT_EQ(device_->GetIfErrorStatus(), 1u);
  EXPECT_EQ(LinesLogged("StartScan: Can't get semid\n"), 1);
  ExpectNoPage();
}

TEST_F(LifecycleTest, StartWithoutThreadsIsStatus1AndLeavesNothing) {
  for (int allowed = 0; allowed < 3; ++allowed) {
    threads_allowed = allowed;
    WithSystem([](SessionSystem& system) { system.start_thread = &FewThreads; });
    EXPECT_FALSE(Start(SmallPage()));
    EXPECT_EQ(device_->GetIfErrorStatus(), 1u);
    EXPECT_EQ(device_->ends, 0);
    EXPECT_EQ(device_->reads, 0);
    ExpectNoPage();
    EXPECT_TRUE(device_->EndScan()) << "no page was started";
  }
  threads_allowed = 3;
  EXPECT_TRUE(Start(SmallPage())) << "the way out";
}

TEST_F(LifecycleTest, StartOfAPageThatNoScannerHasIsStatus2) {
  const auto lines = [](std::uint32_t count) {
    return [count](_SCANINFO& info) { info.Window.yExtent = count; };
  };
  for (const std::uint32_t count : {0xFFFFFFFFu, 0x80000000u, (1u << 24) + 1}) {
    device_->Answers(lines(count));
    EXPECT_FALSE(Start(SmallPage())) << count;
    EXPECT_EQ(device_->GetIfErrorStatus(), 2u);
    ExpectNoPage();
  }
  device_->Answers([](_SCANINFO& info) { info.Window.xExtent = 0xFFFFFFFF; });
  EXPECT_FALSE(Start(SmallPage()));
  EXPECT_EQ(device_->GetIfErrorStatus(), 2u);
  device_->Answers(lines(40));
  EXPECT_TRUE(Start(SmallPage())) << "the way out";
}

TEST_F(LifecycleTest, StartKeepsAnEarlierStatus) {
  WithSystem([](SessionSystem& system) { system.make_key = &NoKey; });
  ASSERT_TRUE(device_->Prepare(SmallPage()));
  device_->SetIfErrorStatus(IF_ERR_STS_NO_DOCUMENT);
  EXPECT_FALSE(device_->StartScan(false));
  EXPECT_EQ(device_->GetIfErrorStatus(), 8u);
}

TEST_F(LifecycleTest, StartFillsInTheTransferTerms) {
  struct {
    std::uint32_t angle, mirror;
    std::uint16_t wMirror;
  } const cases[] = {{0, 0, 0}, {180, 0, 1}, {0, 1, 1}, {180, 1, 0},
                     {0, 2, 0}, {180, 2, 1}, {90, 0, 0}};
  for (const auto& test : cases) {
    device_->Answers([&test](_SCANINFO& info) {
      info.dwAngle = test.angle;
      info.Mirror = test.mirror;
      info.byJbigLineTemplate = 2;
      info.byJbigTpbTemplate = 1;
      info.byEncodeHeaderSize = 8;
    });
    ASSERT_TRUE(device_->Prepare(SmallPage()));
    ASSERT_TRUE(device_->StartScan(true));
    EXPECT_EQ(+device_->ScanParam.wMirror, test.wMirror) << test.angle << " " << test.mirror;
    EXPECT_EQ(device_->GetAngle(), test.angle);
    EXPECT_EQ(+device_->ScanParam.dwLineBytes, 30u);
    EXPECT_EQ(+device_->ScanParam.bPrescan, 1u);
    EXPECT_EQ(+device_->ScanParam.byJbigLineTemplate, 2);
    EXPECT_EQ(+device_->ScanParam.byJbigTpbTemplate, 1);
    EXPECT_EQ(+device_->ScanParam.byEncodeHeaderSize, 8);
    EXPECT_TRUE(device_->EndScan());
  }
}

TEST_F(LifecycleTest, LineBytesAreCutToWholeBytes) {
  ASSERT_TRUE(Start({1, 30, 40, 300, 300}));
  EXPECT_EQ(+device_->ScanParam.dwLineBytes, 3u);
  EXPECT_TRUE(device_->EndScan());
}

// Small things.

TEST_F(LifecycleTest, FirstErrorStays) {
  device_->SetIfErrorStatus(4);
  device_->SetIfErrorStatus(3);
  EXPECT_EQ(device_->GetIfErrorStatus(), 4u);
  EXPECT_EQ(device_->GetIfErrorString(), " device busy error");
  device_->ClearIfErrorStatus();
  EXPECT_EQ(device_->GetIfErrorString(), " no error");
}

TEST_F(LifecycleTest, StatusOutOfRangeIsNeverStored) {
  device_->SetIfErrorStatus(9);
  EXPECT_EQ(device_->GetIfErrorStatus(), 1u);
}

TEST_F(LifecycleTest, AccessorsReadTheirFields) {
  device_->SetXferMech(7);
  EXPECT_EQ(+device_->ScanParam.wXferMech, 7);
  device_->SetPrevResoIndex(1);
  device_->scan_info.Window.xExtent = 11;
  device_->scan_info.Window.yExtent = 12;
  device_->scan_info.DataType = 3;
  device_->scan_info.byEncodeHeaderSize = 8;
  EXPECT_EQ(device_->GetScanningXExtent(), 11u);
  EXPECT_EQ(device_->GetScanningYExtent(), 12u);
  EXPECT_EQ(device_->GetScanningDataType(), 3u);
  EXPECT_EQ(device_->GetScanningEncodeHeaderSize(), 8);
  device_->ResetNumberOfLinesScanned();
  EXPECT_EQ(device_->GetNumberOfLinesScanned(), 0);
}

TEST_F(LifecycleTest, CapabilityAccessors) {
  tagSCANDEVINFO& known = device_->m_DevInfo;
  known = tagSCANDEVINFO{};
  known.dwXResMin = 1, known.dwYResMin = 2, known.dwXResMax = 3, known.dwYResMax = 4;
  known.dwXResMinCmn = 5, known.dwYResMinCmn = 6, known.dwXResMaxCmn = 7, known.dwYResMaxCmn = 8;
  known.dwXResPre[0] = 75, known.dwYResPre[0] = 76;
  known.dwXResPre[1] = 150, known.dwYResPre[1] = 151;
  known.byImageTypes = 7;
  known.bySmallPaperSizeType = 2;
  known.dwRegularLeftMargin = 1000, known.dwRegularTopMargin = 2500;
  known.dwRegularRightMargin = 3, known.dwRegularBottomMargin = 0;
  known.dwSupportPaper = 0x8001;

  unsigned a = 0, b = 0, c = 0, d = 0;
  device_->GetDeviceResolution(&a, &b, &c, &d);
  EXPECT_EQ(std::vector<unsigned>({a, b, c, d}), std::vector<unsigned>({1, 2, 3, 4}));
  device_->GetDeviceResolutionCmn(&a, &b, &c, &d);
  EXPECT_EQ(std::vector<unsigned>({a, b, c, d}), std::vector<unsigned>({5, 6, 7, 8}));
  device_->GetPreviewResolution(&a, &b);
  EXPECT_EQ(std::vector<unsigned>({a, b}), std::vector<unsigned>({75, 76}));
  unsigned char types = 0;
  device_->GetSupportImageType(&types);
  EXPECT_EQ(types, 7);
  EXPECT_TRUE(device_->IsSmallRegularPaperSize());
  float left = 0, top = 0, right = 0, bottom = 0;
  device_->GetRegularPaperSizeMargins(&left, &top, &right, &bottom);
  EXPECT_EQ(left, 0.1f);
  EXPECT_EQ(top, 0.25f);
  EXPECT_EQ(right, 3 / 10000.0f);
  EXPECT_EQ(bottom, 0.0f);
  EXPECT_EQ(device_->GetSupportedPaper(), 0x8001u);
  tagSCANDEVINFO copied{};
  EXPECT_TRUE(device_->GetDevInfo(&copied));
  EXPECT_EQ(std::memcmp(&copied, &known, sizeof copied), 0);
}

TEST_F(LifecycleTest, FileAndNoneAreOneType) {
  EXPECT_EQ(CTwainImageIF::dtFILE, CTwainImageIF::dtNONE);
  EXPECT_EQ(device_->GetDeviceType(), CTwainImageIF::dtNONE);
}

// The greatest scannable height, and the record that it comes from.
TEST(ScannableLines, AreCutTo8AtEachStep) {
  const struct {
    std::uint32_t height, resolution, lines;
  } cases[] = {{116929, 300, 3504}, {116929, 150, 1752}, {140000, 600, 8400},
               {170000, 200, 3400}, {0, 600, 0},         {133, 600, 0},
               {134, 600, 8},       {10000, 0, 0},       {0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF}};
  for (const auto& test : cases) {
    tagSCANDEVINFO source{};
    source.dwPhysicalHeight = test.height;
    EXPECT_EQ(scannable_lines(source, test.resolution), test.lines) << test.height;
  }
}

TEST(PageSource, IsTheRecordOfTheFeederOrTheGlass) {
  tagSCANDEVINFO all[2]{};
  all[0].byPaperSources = 1;
  all[1].byPaperSources = 2;
  EXPECT_EQ(&page_source(all, 2, true), &all[1]);
  EXPECT_EQ(&page_source(all, 2, false), &all[0]);
  EXPECT_EQ(&page_source(all, 1, true), &all[0]) << "one record";
  EXPECT_EQ(&page_source(all, 0, true), &all[0]) << "no record";
  all[0].byPaperSources = 2;
  EXPECT_EQ(&page_source(all, 2, false), &all[0]) << "not found";
  all[1].byPaperSources = 3;
  EXPECT_EQ(&page_source(all, 2, false), &all[1]) << "not 2 is enough";
}

// The order of the virtual operations is part of the interface. In the C++ ABI of the platforms
// that Vox runs on, a pointer to a virtual member holds its offset in the table.
template <typename Member>
std::size_t Slot(Member member) {
  std::size_t offset = 0;
  std::memcpy(&offset, &member, sizeof offset);
  return offset / sizeof(void*);
}

TEST(VirtualOperations, KeepTheirOrder) {
  using IF = CTwainImageIF;
  EXPECT_EQ(Slot(&IF::IsOnLine), 2u);
  EXPECT_EQ(Slot(&IF::GetDevInfo), 3u);
  EXPECT_EQ(Slot(&IF::PrepareScan), 4u);
  EXPECT_EQ(Slot(static_cast<bool (IF::*)(bool)>(&IF::StartScan)), 5u);
  EXPECT_EQ(Slot(&IF::DeviceEndScan), 6u);
  EXPECT_EQ(Slot(&IF::Abort), 7u);
  EXPECT_EQ(Slot(&IF::EjectADF), 8u);
  EXPECT_EQ(Slot(&IF::SendCmdStandby), 9u);
  EXPECT_EQ(Slot(&IF::GetDeviceType), 10u);
  EXPECT_EQ(Slot(&IF::ReadScanData), 11u);
}

}  // namespace
}  // namespace vox::test
