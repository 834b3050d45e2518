// The line pipeline as a client sees it: whole pages against plain single-threaded code, its edges,
// and what becomes of a page when a stage fails.
#include "vox/drivers/LinePipeline.h"

#include <cerrno>
#include <csignal>
#include <new>

#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/time.h>

#include "tests/unit/session/SessionTest.h"
#include "vox/drivers/LineLead.h"
#include "vox/drivers/SemaphoreSet.h"

namespace vox::test {
namespace {

class PipelineTest : public SessionTest {
 protected:
  // Scans the whole page and ends it.
  std::vector<Line> Scan(const PageShape& shape) {
    EXPECT_TRUE(Start(shape));
    std::vector<Line> page = device_->ReadPage(shape.length);
    EXPECT_TRUE(device_->EndScan());
    return page;
  }
  // Scans a page that ends early, for whatever reason, and gives the status.
  std::uint32_t ScanThatFails(const PageShape& shape) {
    EXPECT_TRUE(Start(shape));
    EXPECT_LT(device_->ReadPage(shape.length).size(), shape.length);
    Line line(device_->rParam.dwLineSize);
    EXPECT_EQ(device_->ReadLine(line.data()), 1);
    EXPECT_TRUE(device_->EndScan());
    return device_->GetIfErrorStatus();
  }
};

struct ShapeCase {
  const char* name;
  unsigned bits;
  std::uint32_t width, length;
  float resolution_x, resolution_y;
  std::uint32_t margin;       // device pixels
  std::uint16_t plane_order;  // of colour
};

// The device ranges from 200 to 600 dpi.
const ShapeCase kShapes[] = {
    {"BilevelInRange", 1, 70, 50, 300, 300, 0, 0},
    {"BilevelMarginOfBits", 1, 61, 20, 300, 300, 11, 0},
    {"BilevelMarginOfBytes", 1, 64, 20, 300, 300, 16, 0},
    {"BilevelBelowRange", 1, 45, 60, 100, 100, 0, 0},
    {"BilevelAboveRange", 1, 90, 121, 1200, 1200, 5, 0},
    {"BilevelOnlyYClamped", 1, 40, 60, 300, 150, 0, 0},
    {"BilevelOnlyXClamped", 1, 40, 60, 100, 300, 0, 0},
    {"GreyOnlyXClampedBelow", 8, 33, 47, 100, 300, 5, 0},
    {"GreyOnlyXClampedAbove", 8, 130, 47, 900, 300, 5, 0},
    {"GreyOnlyYClampedBelow", 8, 33, 47, 300, 100, 0, 0},
    {"GreyOnlyYClampedAbove", 8, 33, 90, 300, 900, 0, 0},
    {"ColourOnlyXClamped", 24, 21, 33, 100, 300, 0, 2},
    {"GreyInRange", 8, 33, 47, 300, 300, 0, 0},
    {"GreyWithMargin", 8, 33, 47, 300, 300, 7, 0},
    {"GreyBelowRange", 8, 33, 47, 150, 150, 0, 0},
    {"GreyAboveRange", 8, 130, 90, 900, 900, 3, 0},
    {"GreyShrunkAcrossEnlargedDown", 8, 50, 90, 100, 1200, 0, 0},
    {"GreyEnlargedAcrossShrunkDown", 8, 90, 50, 1200, 100, 0, 0},
    {"ColourInRange", 24, 21, 33, 300, 300, 0, 0},
    {"ColourWithMargin", 24, 21, 33, 300, 300, 4, 0},
    {"ColourOrder1", 24, 21, 33, 300, 300, 4, 1},
    {"ColourOrder2", 24, 21, 33, 300, 300, 0, 2},
    {"ColourOrder3", 24, 21, 33, 300, 300, 0, 3},
    {"ColourOrder4", 24, 21, 33, 300, 300, 0, 4},
    {"ColourOrder5BelowRange", 24, 21, 33, 75, 75, 0, 5},
    {"ColourOrder6IsNone", 24, 21, 33, 300, 300, 0, 6},
    {"ColourAboveRange", 24, 64, 70, 1000, 1000, 0, 0},
};

class PageByTheRulesTest : public PipelineTest, public testing::WithParamInterface<ShapeCase> {};

TEST_P(PageByTheRulesTest, EveryLineIsWhatPlainCodeMakes) {
  const ShapeCase& test = GetParam();
  device_->Ranges(200, 600).Answers([&test](_SCANINFO& info) {
    info.dwLeftCutMargin = test.margin;
    info.Window.xExtent += test.margin + 16;  // the device adds its margins
  });
  const PageShape shape{test.bits, test.width, test.length, test.resolution_x, test.resolution_y};
  tagTWSCANPARAM request = RequestFor(shape);
  request.wPlaneOrder = test.plane_order;
  ASSERT_TRUE(device_->Prepare(request));
  ASSERT_TRUE(device_->StartScan(false));
  EXPECT_TRUE(SamePage(device_->ReadPage(test.length), device_->PageByTheRules()));
  EXPECT_TRUE(device_->EndScan());
  EXPECT_EQ(device_->GetIfErrorStatus(), 0u);
}

INSTANTIATE_TEST_SUITE_P(Shapes, PageByTheRulesTest, testing::ValuesIn(kShapes),
                         [](const auto& test) { return test.param.name; });

TEST_F(PipelineTest, BilevelBelowTheRangeIsPackedAtThreshold170) {
  device_->Ranges(200, 600);
  const PageShape shape{1, 20, 10, 100, 100};
  const std::vector<Line> page = Scan(shape);
  EXPECT_EQ(device_->GetScanningDataType(), 2u);
  ASSERT_EQ(page.size(), 10u);
  EXPECT_EQ(page[0].size(), 3u);
  EXPECT_TRUE(SamePage(page, device_->PageByTheRules()));
}

TEST_F(PipelineTest, EnlargedBy2ClientLine1IsDeviceLine0) {
  device_->Ranges(75, 150);
  const PageShape shape{8, 40, 200, 150, 300};
  ASSERT_TRUE(device_->Prepare(shape));
  device_->Answers([](_SCANINFO& info) { info.Window.yExtent = 100; });
  ASSERT_TRUE(device_->StartScan(false));
  const std::vector<Line> page = device_->ReadPage(200);
  ASSERT_EQ(page.size(), 200u);
  EXPECT_EQ(page[1], device_->DeviceLines()[0]);
  EXPECT_EQ(page[2], device_->DeviceLines()[0]);
  EXPECT_NE(page[3], device_->DeviceLines()[1]);  // the first blend
  EXPECT_TRUE(SamePage(page, device_->PageByTheRules()));
  device_->EndScan();
}

TEST_F(PipelineTest, Width9PacksInto2BytesWith7ZeroBits) {
  device_->Ranges(200, 600).Answers([](_SCANINFO& info) { info.DitherPattern = 1; });
  const std::vector<Line> page = Scan({1, 9, 12, 100, 100});
  ASSERT_EQ(page.size(), 12u);
  for (const Line& line : page) {
    ASSERT_EQ(line.size(), 2u);
    EXPECT_EQ(line[1] & 0x7F, 0);
  }
}

TEST_F(PipelineTest, TableOfRequestsThatAskForMoreLinesThanTheDeviceSends) {
  device_->Answers([](_SCANINFO& info) { info.Window.yExtent = 37; });
  const std::vector<Line> page = Scan(SmallPage());
  ASSERT_EQ(page.size(), 40u);
  EXPECT_EQ(page[36], device_->DeviceLines()[36]);
  for (std::size_t j = 37; j < 40; ++j) EXPECT_EQ(page[j], Line(30, 0xFF)) << j;
}

// With X alone out of range the device is asked for the lines of the frame, and the client's are
// passed on one for one.
TEST_F(PipelineTest, XAloneClampedOverAShortFrameEndsInWhiteLines) {
  device_->Ranges(200, 600);
  tagTWSCANPARAM request = RequestFor({8, 30, 40, 100, 300});
  request.fBottom = 37.0f / 300;
  ASSERT_TRUE(device_->Prepare(request));
  ASSERT_TRUE(device_->StartScan(false));
  EXPECT_EQ(device_->GetScanningXExtent(), 60u);
  EXPECT_EQ(device_->GetScanningYExtent(), 37u);
  const std::vector<Line> page = device_->ReadPage(40);
  EXPECT_TRUE(device_->EndScan());
  EXPECT_TRUE(SamePage(page, device_->PageByTheRules()));
  ASSERT_EQ(page.size(), 40u);
  EXPECT_NE(page[36], Line(30, 0xFF));
  for (std::size_t j = 37; j < 40; ++j) EXPECT_EQ(page[j], Line(30, 0xFF)) << j;
}

TEST_F(PipelineTest, YAloneClampedKeepsTheClientsLineCount) {
  device_->Ranges(200, 600);
  const std::vector<Line> page = Scan({8, 30, 40, 300, 100});
  EXPECT_EQ(device_->GetScanningYExtent(), 40u);
  EXPECT_TRUE(SamePage(page, device_->PageByTheRules()));
}

TEST_F(PipelineTest, OneClientLine) {
  PageShape shape = SmallPage();
  shape.length = 1;
  const std::vector<Line> page = Scan(shape);
  EXPECT_TRUE(SamePage(page, device_->PageByTheRules()));
}

TEST_F(PipelineTest, AllDeviceLinesShrunkToOne) {
  device_->Ranges(300, 600).Answers([](_SCANINFO& info) { info.Window.yExtent = 500; });
  const std::vector<Line> page = Scan({8, 30, 1, 300, 150});
  ASSERT_EQ(page.size(), 1u);
  // With one client line every device line weighs the same.
  for (std::size_t k = 0; k < 30; ++k) {
    double sum = 0;
    for (const Line& line : device_->DeviceLines()) sum += line[k];
    EXPECT_NEAR(page[0][k], sum / 500, 1.0) << k;
  }
}

TEST_F(PipelineTest, OneDeviceLineEnlargedTo5) {
  device_->Ranges(75, 150).Answers([](_SCANINFO& info) { info.Window.yExtent = 1; });
  const std::vector<Line> page = Scan({8, 30, 5, 150, 300});
  EXPECT_EQ(page, std::vector<Line>(5, device_->DeviceLines()[0]));
}

TEST_F(PipelineTest, NoDeviceLinesMakeAWhitePage) {
  device_->Answers([](_SCANINFO& info) { info.Window.yExtent = 0; });
  EXPECT_EQ(Scan(SmallPage()), std::vector<Line>(40, Line(30, 0xFF)));
}

TEST_F(PipelineTest, DeviceThatReportedNoResolutionsGivesAWhitePage) {
  device_->Ranges(0, 0);
  EXPECT_EQ(Scan(SmallPage()), std::vector<Line>(40, Line(30, 0xFF)));
}

TEST_F(PipelineTest, NoClientLines) {
  PageShape shape = SmallPage();
  shape.length = 0;
  ASSERT_TRUE(Start(shape));
  Line line(100);
  EXPECT_EQ(device_->ReadLine(line.data()), 1);
  EXPECT_EQ(device_->GetIfErrorStatus(), 2u);
  EXPECT_TRUE(device_->EndScan());
}

TEST_F(PipelineTest, FrameWiderThanTheDeviceLineEndsInZeros) {
  device_->Answers([](_SCANINFO& info) { info.Window.xExtent = 10; });
  const std::vector<Line> page = Scan(SmallPage());
  ASSERT_EQ(page.size(), 40u);
  for (const Line& line : page) {
    for (std::size_t k = 10; k < 30; ++k) EXPECT_EQ(line[k], 0);
  }
}

TEST_F(PipelineTest, OneReadLineTooManyIsStatus2) {
  ASSERT_TRUE(Start(SmallPage()));
  ASSERT_EQ(device_->ReadPage(40).size(), 40u);
  Line line(30);
  EXPECT_EQ(device_->ReadLine(line.data()), 1);
  EXPECT_EQ(device_->GetIfErrorStatus(), 2u);
  EXPECT_EQ(device_->GetYOffset(), 40);
  EXPECT_TRUE(device_->EndScan());
}

TEST_F(PipelineTest, TwoThreadsThatWaitForTheLastLineBothReturn) {
  PageShape shape = SmallPage();
  shape.length = 1;
  HoldAtLine(0);
  ASSERT_TRUE(Start(shape));
  const int semid = device_->ScanData.semid;
  const auto read = [this] {
    Line line(30);
    return device_->ReadLine(line.data());
  };
  auto one = Aside(read);
  auto two = Aside(read);
  EXPECT_TRUE(Eventually([semid] { return ::semctl(semid, kSemClientLine, GETNCNT) == 2; }));
  moment_.Let();
  EXPECT_TRUE(Ends(one));
  EXPECT_TRUE(Ends(two));
  EXPECT_EQ(device_->GetIfErrorStatus(), 2u) << "there was one line only";
  EXPECT_TRUE(device_->EndScan());
  EXPECT_EQ(one.get() + two.get(), 1);
}

// 40,000 lines are more than a semaphore counts to.
TEST_F(PipelineTest, MoreLinesThanASemaphoreCountsWithALateClient) {
  const PageShape shape{1, 8, 40000, 300, 300};
  ASSERT_TRUE(Start(shape));
  ASSERT_TRUE(Eventually([this] { return device_->reads == static_cast<int>(kLeadLines); }));
  const std::vector<Line> page = device_->ReadPage(shape.length);
  EXPECT_TRUE(SamePage(page, device_->PageByTheRules()));
  EXPECT_TRUE(device_->EndScan());
}

TEST_F(PipelineTest, MoreLinesThanASemaphoreCountsInOneClientLine) {
  device_->Ranges(300, 600).Answers([](_SCANINFO& info) { info.Window.yExtent = 70000; });
  const std::vector<Line> page = Scan({8, 3, 1, 300, 150});
  ASSERT_EQ(page.size(), 1u);
  EXPECT_EQ(device_->reads, 70000);
}

TEST_F(PipelineTest, OneDeviceLineMakesMoreClientLinesThanASemaphoreCounts) {
  device_->Ranges(75, 150).Answers([](_SCANINFO& info) { info.Window.yExtent = 2; });
  const PageShape shape{8, 3, 70000, 150, 300};
  ASSERT_TRUE(Start(shape));
  ASSERT_TRUE(Eventually(
      [this] { return device_->UserData.CurLineReady == static_cast<int>(kLeadLines) - 1; }));
  EXPECT_EQ(device_->ReadPage(shape.length).size(), 70000u);
  EXPECT_TRUE(device_->EndScan());
}

// 64 MiB hold 22 lines of 3 MB.
TEST_F(PipelineTest, ReaderStaysWithin64MiBOfTheClient) {
  const PageShape shape{24, 1000000, 40, 300, 300};
  ASSERT_TRUE(Start(shape));
  ASSERT_TRUE(Eventually([this] { return device_->UserData.CurLineReady == 21; }));
  EXPECT_EQ(device_->reads, 22);
  EXPECT_EQ(device_->ReadPage(5).size(), 5u);
  ASSERT_TRUE(Eventually([this] { return device_->UserData.CurLineReady == 26; }));
  EXPECT_EQ(device_->reads, 27);
  EXPECT_TRUE(device_->EndScan());
}

TEST_F(PipelineTest, SurplusDeviceLinesCountAsAhead) {
  device_->Answers([](_SCANINFO& info) { info.Window.yExtent = 100000; });
  ASSERT_TRUE(Start(SmallPage()));
  ASSERT_EQ(device_->ReadPage(40).size(), 40u);
  ASSERT_TRUE(Eventually([this] { return device_->reads == static_cast<int>(kLeadLines) + 39; }));
  EXPECT_TRUE(device_->EndScan());
  EXPECT_EQ(device_->reads, static_cast<int>(kLeadLines) + 39);
}

TEST_F(PipelineTest, ReadErrorAboveTheScannableHeightIsWhite) {
  device_->Scans(1000).AtLine(24, Fails(1)).AtLine(39, Fails(-1));  // 24 lines at 300 dpi
  const std::vector<Line> page = Scan(SmallPage());
  ASSERT_EQ(page.size(), 40u);
  EXPECT_EQ(page[23], device_->DeviceLines()[23]);
  EXPECT_EQ(page[24], Line(30, 0xFF));
  EXPECT_EQ(page[25], device_->DeviceLines()[25]);
  EXPECT_EQ(page[39], Line(30, 0xFF));
  EXPECT_EQ(device_->GetIfErrorStatus(), 0u);
}

TEST_F(PipelineTest, ReadErrorAboveTheScannableHeightIsWhiteForBilevelToo) {
  const PageShape shape{1, 32, 40, 300, 300};
  device_->Scans(1000).AtLine(32, Fails(1));
  const std::vector<Line> page = Scan(shape);
  ASSERT_EQ(page.size(), 40u);
  EXPECT_EQ(page[32], Line(4, 0xFF));
}

// 24 lines of the glass and 32 of the feeder at 300 dpi; what they have in common does not count.
TEST_F(PipelineTest, ReadErrorIsHeldAgainstTheHeightOfThePagesSource) {
  device_->Scans(2000);
  device_->m_DevInfoAll[1] = device_->m_DevInfoAll[0];
  device_->m_DevInfoAll[0].byPaperSources = 1;
  device_->m_DevInfoAll[0].dwPhysicalHeight = 1000;
  device_->m_DevInfoAll[1].byPaperSources = 2;
  device_->m_DevInfoAll[1].dwPhysicalHeight = 1250;
  device_->m_DevInfoAllCount = 2;
  device_->AtLine(28, Fails(1));
  EXPECT_EQ(Scan(SmallPage()).size(), 40u) << "from the glass";
  device_->Answers([](_SCANINFO& info) { info.ADF = 1; });
  EXPECT_EQ(ScanThatFails(SmallPage()), 3u) << "from the feeder";
  device_->m_DevInfoAllCount = 1;
  EXPECT_EQ(Scan(SmallPage()).size(), 40u) << "one record is for both";
}

TEST_F(PipelineTest, ReadErrorBelowTheScannableHeightFailsThePage) {
  device_->Scans(1000).AtLine(23, Fails(1));
  EXPECT_EQ(ScanThatFails(SmallPage()), 3u);
  EXPECT_EQ(device_->ends, 1);
  EXPECT_EQ(device_->aborts, 0);  // the base's, not the transport's
  EXPECT_FALSE(device_->IsNextPageExist());
}

TEST_F(PipelineTest, ReadErrorKeepsAnEarlierStatus) {
  device_->AtLine(5, [](FakeTransport& device) {
    device.SetIfErrorStatus(IF_ERR_STS_CHECK_ERROR);
    return -1;
  });
  EXPECT_EQ(ScanThatFails(SmallPage()), 7u);
}

TEST_F(PipelineTest, ReaderExceptionIsStatus2AndAVirtualAbort) {
  testing::internal::CaptureStderr();
  device_->AtLine(3, [](FakeTransport&) -> int { throw std::bad_alloc(); });
  EXPECT_EQ(ScanThatFails(SmallPage()), 2u);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "data_thread: exception\n");
  EXPECT_EQ(device_->aborts, 1);
  EXPECT_EQ(device_->ends, 1);
}

TEST_F(PipelineTest, ReaderExceptionEndsTheWholeJob) {
  testing::internal::CaptureStderr();
  device_->HasMorePages(1).AtLine(3, Throws());
  EXPECT_EQ(ScanThatFails(SmallPage()), 2u);
  testing::internal::GetCapturedStderr();
  EXPECT_FALSE(device_->IsNextPageExist());
}

// DummyRead in place of the reader's own loop, which the test then ends with a failure.
class DummyReadTest : public PipelineTest {
 protected:
  DummyReadTest() {
    device_->Scans(1000);  // 24 lines at 300 dpi
    device_->AtLine(0, [this](FakeTransport& device) {
      read_all_ = device.DummyRead();
      moment_.Reach({device.m_wakePage.Get()});
      return -1;
    });
  }
  std::atomic<bool> read_all_{false};
};

TEST_F(DummyReadTest, SendsThePageFromTheTransport) {
  ASSERT_TRUE(Start(SmallPage()));
  const std::vector<Line> page = device_->ReadPage(40);
  ASSERT_TRUE(moment_.AwaitReached());
  EXPECT_TRUE(read_all_);
  EXPECT_EQ(device_->reads, 41);
  ASSERT_EQ(page.size(), 40u);
  for (std::uint32_t k = 0; k < 30; ++k) EXPECT_EQ(page[39][k], PatternByte(40, k)) << k;
  EXPECT_TRUE(device_->EndScan());
}

TEST_F(DummyReadTest, ReadErrorIsNeverWhite) {
  device_->AtLine(36, Fails(1));
  ASSERT_TRUE(Start(SmallPage()));
  ASSERT_TRUE(moment_.AwaitReached());
  EXPECT_FALSE(read_all_);
  EXPECT_EQ(device_->reads, 37);
  EXPECT_TRUE(device_->EndScan());
}

TEST_F(DummyReadTest, PostThatFailsEndsItWithALogLine) {
  device_->AtLine(6, [](FakeTransport& device) {
    ::semctl(device.ScanData.semid, 0, IPC_RMID);
    return 0;
  });
  ASSERT_TRUE(Start(SmallPage()));
  ASSERT_TRUE(moment_.AwaitReached());
  EXPECT_FALSE(read_all_);
  EXPECT_GE(LinesLogged("Sem post fail!\n"), 1);
  EXPECT_TRUE(device_->EndScan());
}

TEST_F(PipelineTest, ExceptionAtThePagesEndRaisesInItsPlace) {
  testing::internal::CaptureStderr();
  device_->AtEnd(Throws());
  ASSERT_TRUE(Start(SmallPage()));
  device_->ReadPage(40);
  EXPECT_TRUE(device_->EndScan());
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "data_thread: exception\n");
  EXPECT_EQ(device_->ends, 1);
  EXPECT_EQ(device_->m_semaphore.Value(), 0u);
}

TEST_F(PipelineTest, ExceptionAfterTheRaiseDoesNotRaiseTwice) {
  testing::internal::CaptureStderr();
  device_->AtEnd([](FakeTransport& device) -> int {
    device.m_semaphore.Up();
    throw std::bad_alloc();
  });
  ASSERT_TRUE(Start(SmallPage()));
  EXPECT_TRUE(device_->EndScan());
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "data_thread: exception\n");
  EXPECT_EQ(device_->m_semaphore.Value(), 0u);
}

std::atomic<std::size_t> size_that_fails{0};
std::atomic<int> lines_before{0};      // of that size, which do not fail
thread_local bool has_memory = false;  // the reader, once it has its first line

void* MemoryThatFails(std::size_t size) {
  const bool fails = size == size_that_fails && !has_memory && lines_before-- <= 0;
  return fails ? nullptr : std::malloc(size);
}

struct StageOutOfMemory {
  const char* thread;
  std::size_t size;  // of the line that it asks for first
  int lines_before;  // that the reader asks for before it
};

class OutOfMemoryTest : public PipelineTest,
                        public testing::WithParamInterface<StageOutOfMemory> {};

TEST_P(OutOfMemoryTest, IsStatus2AndNobodyHangs) {
  WithSystem([](SessionSystem& system) { system.line_memory = &MemoryThatFails; });
  size_that_fails = GetParam().size;
  lines_before = GetParam().lines_before;
  device_->AtLine(0, [](FakeTransport&) {
    has_memory = true;
    return 0;
  });
  testing::internal::CaptureStderr();
  device_->Ranges(75, 150);
  EXPECT_EQ(ScanThatFails({1, 60, 80, 300, 300}), 2u);  // 30 grey pixels at the device's 150 dpi
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            std::string(GetParam().thread) + ": exception\n");
  EXPECT_EQ(device_->ends, 1);
}

INSTANTIATE_TEST_SUITE_P(Stages, OutOfMemoryTest,
                         testing::Values(StageOutOfMemory{"data_thread", 60, 0},
                                         StageOutOfMemory{"imageprocX_thread", 60, 1},
                                         StageOutOfMemory{"imageprocY_thread", 8, 0}),
                         [](const auto& test) { return std::string(test.param.thread); });

TEST_F(PipelineTest, UnknownDataTypeEndsAtOnceWithItsPageEnd) {
  device_->Answers([](_SCANINFO& info) { info.DataType = 1; });
  EXPECT_EQ(ScanThatFails(SmallPage()), 3u);
  EXPECT_EQ(device_->reads, 0);
  EXPECT_EQ(device_->ends, 1);
}

TEST_F(PipelineTest, SetRemovedByAStrangerFailsThePage) {
  HoldAtLine(5);
  ASSERT_TRUE(Start(SmallPage()));
  ASSERT_TRUE(moment_.AwaitReached());
  ASSERT_EQ(::semctl(device_->ScanData.semid, 0, IPC_RMID), 0);
  Line line(30);
  EXPECT_EQ(device_->ReadLine(line.data()), 1);
  EXPECT_EQ(device_->GetIfErrorStatus(), 3u);
  moment_.Let();
  EXPECT_TRUE(Eventually([this] { return device_->ends == 1; }));
  EXPECT_TRUE(device_->EndScan());
}

struct FailingPost {
  const char* thread;
  int number;  // of the semaphore that only this thread posts
  int logged;  // lines at least; the set's removal may make the post of another thread fail too
};

std::atomic<int> post_that_fails{-1};

int OnePostFails(int semid, sembuf* operation, std::size_t count) {
  int number = operation->sem_num;
  if (operation->sem_op > 0 && post_that_fails.compare_exchange_strong(number, -1)) {
    errno = EIDRM;
    return -1;
  }
  return ::semop(semid, operation, count);
}

class FailingPostTest : public PipelineTest, public testing::WithParamInterface<FailingPost> {};

TEST_P(FailingPostTest, EndsThePage) {
  post_that_fails = GetParam().number;
  WithSystem([](SessionSystem& system) { system.operate = &OnePostFails; });
  EXPECT_EQ(ScanThatFails(SmallPage()), 3u);
  EXPECT_EQ(post_that_fails, -1);
  EXPECT_GE(LinesLogged("Sem post fail!\n"), GetParam().logged);
  EXPECT_EQ(device_->ends, 1);
}

INSTANTIATE_TEST_SUITE_P(Threads, FailingPostTest,
                         testing::Values(FailingPost{"reader", kSemRawLine, 1},
                                         FailingPost{"horizontal", kSemScaledLine, 1},
                                         FailingPost{"vertical", kSemClientLine, 0}),
                         [](const auto& test) { return std::string(test.param.thread); });

TEST_F(PipelineTest, FullSemaphoreIsWaitedOut) {
  HoldAtLine(0);
  ASSERT_TRUE(Start(SmallPage()));
  ASSERT_TRUE(moment_.AwaitReached());
  const int semid = device_->ScanData.semid;
  constexpr int kGreatest = 32767;
  ASSERT_EQ(::semctl(semid, kSemClientLine, SETVAL, kGreatest), 0);
  moment_.Let();
  ASSERT_TRUE(Eventually([this] { return device_->UserData.CurLineReady == 0; }));
  // The vertical thread tries to post line 0 until somebody takes one.
  ASSERT_EQ(::semctl(semid, kSemClientLine, SETVAL, 0), 0);
  EXPECT_EQ(device_->ReadPage(40).size(), 40u);
  EXPECT_TRUE(device_->EndScan());
}

TEST_F(PipelineTest, FullSemaphoreDoesNotHoldUpAStop) {
  HoldAtLine(0);
  ASSERT_TRUE(Start(SmallPage()));
  ASSERT_TRUE(moment_.AwaitReached());
  ASSERT_EQ(::semctl(device_->ScanData.semid, kSemClientLine, SETVAL, 32767), 0);
  moment_.Let();
  ASSERT_TRUE(Eventually([this] { return device_->UserData.CurLineReady == 0; }));
  EXPECT_TRUE(device_->EndScan());
}

TEST_F(PipelineTest, StormOfSignalsIsNoFailure) {
  struct sigaction action {};
  struct sigaction before {};
  action.sa_handler = &IgnoreSignal;  // without SA_RESTART: every wait is interrupted
  ASSERT_EQ(::sigaction(SIGALRM, &action, &before), 0);
  const itimerval often{{0, 50}, {0, 50}};
  ASSERT_EQ(::setitimer(ITIMER_REAL, &often, nullptr), 0);
  const std::vector<Line> page = Scan({8, 30, 4000, 300, 300});
  const itimerval never{};
  ::setitimer(ITIMER_REAL, &never, nullptr);
  ::sigaction(SIGALRM, &before, nullptr);
  EXPECT_TRUE(SamePage(page, device_->PageByTheRules()));
  EXPECT_EQ(device_->GetIfErrorStatus(), 0u);
}

TEST_F(PipelineTest, RecordsRewrittenMidPageDoNotTouchIt) {
  HoldAtLine(10);
  ASSERT_TRUE(Start(SmallPage()));
  ASSERT_TRUE(moment_.AwaitReached());
  const std::vector<Line> expected = device_->PageByTheRules();
  device_->scan_info = _SCANINFO{};
  device_->rParam.dwImageLength = 3;
  device_->GetScanParam();
  moment_.Let();
  EXPECT_TRUE(SamePage(device_->ReadPage(40), expected));
  EXPECT_TRUE(device_->EndScan());
}

TEST_F(PipelineTest, TwoScannersAtOnce) {
  FakeTransport other;
  ASSERT_TRUE(other.Prepare(SmallPage()));
  ASSERT_TRUE(other.StartScan(false));
  auto second = Aside([&other] { return other.ReadPage(40); });
  const std::vector<Line> first = Scan(SmallPage());
  EXPECT_TRUE(SamePage(first, device_->PageByTheRules()));
  ASSERT_TRUE(Ends(second));
  EXPECT_TRUE(SamePage(second.get(), other.PageByTheRules()));
  EXPECT_TRUE(other.EndScan());
}

}  // namespace
}  // namespace vox::test
