// Pages that are turned by 180 degrees: written to the duplex file, replayed from the last line.
#include <filesystem>

#include "tests/unit/core/Scratch.h"
#include "tests/unit/session/SessionTest.h"
#include "vox/DupImgFile.h"

namespace vox::test {
namespace {

class DuplexTest : public SessionTest {
 protected:
  DuplexTest() : tmpdir_("TMPDIR", scratch_.Path("")) {
    device_ = std::make_unique<FakeTransport>();
  }

  bool StartTurned(const PageShape& shape) {
    device_->Answers([](_SCANINFO& info) { info.dwAngle = 180; });
    return Start(shape);
  }
  std::vector<Line> ScanTurned(const PageShape& shape) {
    EXPECT_TRUE(StartTurned(shape));
    std::vector<Line> page = device_->ReadPage(shape.length);
    EXPECT_TRUE(device_->EndScan());
    return page;
  }
  std::vector<Line> TurnedByTheRules(const std::vector<Line>& device_lines, unsigned depth) {
    return ClientLines(device_->rParam, device_->scan_info, TurnedPage(device_lines, depth));
  }
  // Puts a page of one's own into the duplex file, and replays it without a scan.
  void Fill(std::vector<Line> lines, std::uint32_t data_type) {
    device_->scan_info.DataType = data_type;
    device_->scan_info.Window.yExtent = static_cast<std::uint32_t>(lines.size());
    device_->ScanParam.dwLineBytes = static_cast<std::uint32_t>(lines.at(0).size());
    device_->Sends(std::move(lines));
    ASSERT_EQ(device_->GetImageFile(), 0);
  }
  Line Replayed(std::uint32_t line, unsigned len, unsigned* rlen = nullptr) {
    Line bytes(len, 0xA5);
    unsigned got = 0;
    EXPECT_EQ(device_->ReadLinefromFile(line, bytes.data(), len, &got), 0);
    if (rlen != nullptr) *rlen = got;
    return bytes;
  }

  Scratch scratch_;
  Variable tmpdir_;
};

TEST_F(DuplexTest, TurnedPagesAreWhatPlainCodeMakes) {
  for (const unsigned bits : {1u, 8u, 24u}) {
    const std::vector<Line> page = ScanTurned({bits, 40, 50, 300, 300});
    EXPECT_TRUE(SamePage(page, TurnedByTheRules(device_->DeviceLines(), bits))) << bits;
    EXPECT_EQ(device_->GetIfErrorStatus(), 0u);
    EXPECT_EQ(device_->GetNumberOfLinesScanned(), 49) << "the index of the last line";
  }
}

TEST_F(DuplexTest, TurnedPagesAreRescaledToo) {
  device_->Ranges(200, 600);
  const std::vector<Line> page = ScanTurned({1, 40, 50, 100, 100});
  EXPECT_TRUE(SamePage(page, TurnedByTheRules(device_->DeviceLines(), 8)));
}

TEST_F(DuplexTest, DeviceIsKeptAwakeOnceAfterTheFileIsFilled) {
  ScanTurned(SmallPage());
  EXPECT_EQ(device_->standbys, 1);
}

TEST_F(DuplexTest, PreviewIsNotTurned) {
  device_->Answers([](_SCANINFO& info) { info.dwAngle = 180; });
  ASSERT_TRUE(device_->Prepare(SmallPage()));
  ASSERT_TRUE(device_->StartScan(true));
  EXPECT_TRUE(SamePage(device_->ReadPage(40), device_->PageByTheRules()));
  EXPECT_TRUE(device_->EndScan());
  EXPECT_EQ(device_->standbys, 0);
}

TEST_F(DuplexTest, OneTwoAndThreeLines) {
  const std::vector<Line> lines = {{1, 2}, {3, 4}, {5, 6}};
  for (std::size_t count = 1; count <= 3; ++count) {
    Fill({lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(count)}, 2);
    for (std::size_t i = 0; i < count; ++i) {
      const Line& from = lines[count - 1 - i];
      EXPECT_EQ(Replayed(static_cast<std::uint32_t>(i), 2), Line({from[1], from[0]})) << count;
    }
  }
}

TEST_F(DuplexTest, MirrorsBitsAndGrey) {
  Fill({{0x01, 0x80}, {0x12, 0x34}}, 0);
  EXPECT_EQ(Replayed(0, 2), Line({0x2C, 0x48}));
  EXPECT_EQ(Replayed(1, 2), Line({0x01, 0x80}));
  Fill({{1, 2, 3}}, 2);
  EXPECT_EQ(Replayed(0, 3), Line({3, 2, 1}));
}

TEST_F(DuplexTest, MirrorsColourPixelsWhole) {
  Fill({{1, 2, 3, 4, 5, 6}}, 3);
  EXPECT_EQ(Replayed(0, 6), Line({4, 5, 6, 1, 2, 3}));
  Fill({{1, 2, 3, 4, 5, 6, 7, 8, 9}}, 3);
  EXPECT_EQ(Replayed(0, 9), Line({7, 8, 9, 4, 5, 6, 1, 2, 3}));
}

TEST_F(DuplexTest, OtherDataTypesFail) {
  Fill({{1, 2, 3}}, 2);
  device_->scan_info.DataType = 1;
  Line line(3);
  unsigned got = 7;
  EXPECT_NE(device_->ReadLinefromFile(0, line.data(), 3, &got), 0);
  EXPECT_EQ(got, 0u);
}

TEST_F(DuplexTest, ReplayBeyondTheFileIsWhite) {
  Fill({{1, 2, 3}}, 2);
  Replayed(0, 3);
  unsigned got = 7;
  EXPECT_EQ(Replayed(1, 3, &got), Line(3, 0xFF));
  EXPECT_EQ(got, 0u);
}

TEST_F(DuplexTest, LongerAndShorterReadsThanTheFilesLines) {
  Fill({{1, 2, 3}, {4, 5, 6}}, 2);
  unsigned got = 0;
  EXPECT_EQ(Replayed(0, 5, &got), Line({6, 5, 4, 0xFF, 0xFF}));
  EXPECT_EQ(got, 3u);
  EXPECT_EQ(Replayed(1, 2, &got), Line({2, 1}));
  EXPECT_EQ(got, 2u);
}

TEST_F(DuplexTest, ReplayWithoutAFileFails) {
  Line line(3);
  unsigned got = 7;
  EXPECT_NE(device_->ReadLinefromFile(0, line.data(), 3, &got), 0);
}

TEST_F(DuplexTest, NegativeReadResultIsGivenBackInItsLow16Bits) {
  device_->Prepare(SmallPage());
  device_->ScanParam.dwLineBytes = 30;
  device_->AtLine(7, Fails(-3));
  EXPECT_EQ(device_->GetImageFile(), 0xFFFD);
  EXPECT_EQ(device_->GetNumberOfLinesScanned(), 6);
}

TEST_F(DuplexTest, PositiveReadResultWithinThePageKeepsWhatCame) {
  device_->AtLine(10, Fails(1));
  ASSERT_TRUE(StartTurned(SmallPage()));
  const std::vector<Line> page = device_->ReadPage(40);
  EXPECT_TRUE(device_->EndScan());
  ASSERT_EQ(page.size(), 40u);
  std::vector<Line> lines = device_->DeviceLines();
  lines.resize(10);
  const std::vector<Line> turned = TurnedPage(lines, 8);
  for (std::size_t j = 0; j < 10; ++j) EXPECT_EQ(page[j], turned[j]) << j;
  for (std::size_t j = 10; j < 40; ++j) EXPECT_EQ(page[j], Line(30, 0xFF)) << j;
}

TEST_F(DuplexTest, PositiveReadResultPastThePageIsAWhiteLine) {
  device_->Prepare(SmallPage());
  device_->ScanParam.dwLineBytes = 30;
  device_->scan_info.Window.yExtent = 42;
  device_->AtLine(40, Fails(1));
  EXPECT_EQ(device_->GetImageFile(), 0);
  EXPECT_EQ(Replayed(0, 30).size(), 30u);
  EXPECT_EQ(Replayed(1, 30), Line(30, 0xFF));
}

TEST_F(DuplexTest, FileThatCannotBeMadeFailsThePage) {
  std::filesystem::remove_all(scratch_.Path(""));
  ASSERT_TRUE(StartTurned(SmallPage()));
  EXPECT_EQ(device_->ReadPage(40).size(), 0u);
  EXPECT_EQ(device_->GetIfErrorStatus(), 3u);
  EXPECT_TRUE(device_->EndScan());
  EXPECT_EQ(device_->reads, 0);
}

void* NoLineMemory(std::size_t) {
  return nullptr;
}

TEST_F(DuplexTest, NoMemoryForALineIsStatus2AndNothingIsThrown) {
  ASSERT_TRUE(device_->Prepare(SmallPage()));
  device_->ScanParam.dwLineBytes = 30;
  WithSystem([](SessionSystem& system) { system.line_memory = &NoLineMemory; });
  EXPECT_EQ(device_->GetImageFile(), 1);
  EXPECT_EQ(device_->GetIfErrorStatus(), 2u);
  EXPECT_EQ(device_->reads, 0);
}

TEST_F(DuplexTest, NoMemoryOnTheReaderIsItsException) {
  testing::internal::CaptureStderr();
  WithSystem([](SessionSystem& system) { system.line_memory = &NoLineMemory; });
  ASSERT_TRUE(StartTurned(SmallPage()));
  EXPECT_EQ(device_->ReadPage(40).size(), 0u);
  EXPECT_TRUE(device_->EndScan());
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "data_thread: exception\n");
  EXPECT_EQ(device_->GetIfErrorStatus(), 2u);
  EXPECT_EQ(device_->aborts, 1);
  EXPECT_EQ(device_->ends, 1);
}

TEST_F(DuplexTest, FailingDeviceFailsThePage) {
  device_->AtLine(10, Fails(-1));
  ASSERT_TRUE(StartTurned(SmallPage()));
  EXPECT_EQ(device_->ReadPage(40).size(), 0u);
  EXPECT_TRUE(device_->EndScan());
  EXPECT_EQ(device_->ends, 1);
  EXPECT_EQ(device_->standbys, 0);
}

TEST_F(DuplexTest, EndScanWhileTheFileIsFilled) {
  HoldAtLine(10);
  device_->HasMorePages(1);
  ASSERT_TRUE(StartTurned(SmallPage()));
  ASSERT_TRUE(moment_.AwaitReached());
  EXPECT_TRUE(device_->EndScan());
  EXPECT_TRUE(device_->IsNextPageExist()) << "a page that is cut short has not failed";
  EXPECT_EQ(device_->standbys, 0);
}

TEST_F(DuplexTest, AbortWhileTheFileIsFilled) {
  HoldAtLine(10);
  ASSERT_TRUE(StartTurned(SmallPage()));
  ASSERT_TRUE(moment_.AwaitReached());
  EXPECT_TRUE(device_->Abort());
  EXPECT_EQ(device_->ends, 1);
}

TEST_F(DuplexTest, AnotherObjectDoesNotTakeTheFileAway) {
  device_->AtStandby([](FakeTransport&) {  // between filling and replaying
    FakeTransport other;
    return 0;
  });
  const std::vector<Line> page = ScanTurned(SmallPage());
  EXPECT_TRUE(SamePage(page, TurnedByTheRules(device_->DeviceLines(), 8)));
}

TEST_F(DuplexTest, FileIsGoneWithTheObject) {
  ScanTurned(SmallPage());
  device_.reset();
  for (const auto& entry : std::filesystem::recursive_directory_iterator(scratch_.Path(""))) {
    EXPECT_NE(entry.path().filename(), "DUPIMG.tmp");
  }
}

double clock_now = 0;
double clock_step = 0;
double SteppingClock() {
  return clock_now += clock_step;
}

TEST_F(DuplexTest, ReplaySendsNoStandbyHoweverLongItTakes) {
  clock_now = 1000;
  clock_step = 7;
  WithSystem([](SessionSystem& system) { system.wall_clock = &SteppingClock; });
  ScanTurned(SmallPage());
  EXPECT_EQ(device_->standbys, 1) << "the one after the file was filled";
}

TEST_F(DuplexTest, ReplaySendsStandbyWhenTheClockIsSetBack) {
  clock_now = 1000;
  clock_step = -2;
  WithSystem([](SessionSystem& system) { system.wall_clock = &SteppingClock; });
  ScanTurned({8, 30, 9, 300, 300});
  // Noted, then 2, 4 and 6 seconds back: the third line sends, and notes the time again.
  EXPECT_EQ(device_->standbys, 1 + 3);
}

}  // namespace
}  // namespace vox::test
