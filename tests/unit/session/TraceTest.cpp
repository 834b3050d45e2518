// What a page traces, to the letter: the texts that people search a trace for.
#include <csignal>
#include <filesystem>
#include <functional>
#include <utility>

#include <gmock/gmock.h>
#include <sys/resource.h>

#include "tests/support/TraceLog.h"
#include "tests/unit/core/Scratch.h"
#include "tests/unit/session/SessionTest.h"

namespace vox::test {
namespace {

using ::testing::AllOf;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsSupersetOf;
using ::testing::MatchesRegex;
using ::testing::Not;
using ::testing::StartsWith;

class TraceTest : public SessionTest {
 protected:
  TraceTest() : tmpdir_("TMPDIR", scratch_.Path("")) {
    device_ = std::make_unique<FakeTransport>();
  }
  // The traces of StartScan alone: those that bear its name.
  std::vector<std::string> OfStartScan() const {
    std::vector<std::string> lines;
    for (const std::string& line : traces_.Lines()) {
      if (line.rfind("StartScan ", 0) == 0) lines.push_back(line);
    }
    return lines;
  }

  Scratch scratch_;
  Variable tmpdir_;
  TraceLog traces_;
};

TEST_F(TraceTest, PrepareScan) {
  device_->Ranges(200, 600);
  tagTWSCANPARAM request = RequestFor({8, 60, 80, 150, 150});
  request.dwDuplex = 1;
  const std::size_t before = traces_.Lines().size();
  ASSERT_TRUE(device_->PrepareScan(request, true, false));
  std::vector<std::string> lines = traces_.Lines();
  lines.erase(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(before));
  EXPECT_THAT(lines, ElementsAre(MatchesRegex("PrepareScan [0-9]+\n"),
                                 MatchesRegex("PrepareScan [0-9]+: rParam.dwDuplex= 1\n"),
                                 "!!! User XRes = 150, Dev Xres = 200\n", "!!! xExtent = 80\n",
                                 "!!! yExtent = 107\n", "!!! dwScanUnitMode = 302\n"));
}

TEST_F(TraceTest, EachAccessorSaysItsName) {
  unsigned a = 0, b = 0, c = 0, d = 0;
  unsigned char types = 0;
  float left = 0, top = 0, right = 0, bottom = 0;
  tagSCANDEVINFO info{};
  FakeTransport& device = *device_;
  const std::pair<const char*, std::function<void()>> calls[] = {
      {"GetScanParam", [&] { device.GetScanParam(); }},
      {"GetDeviceResolution", [&] { device.GetDeviceResolution(&a, &b, &c, &d); }},
      {"GetDeviceResolutionCmn", [&] { device.GetDeviceResolutionCmn(&a, &b, &c, &d); }},
      {"GetPreviewResolution", [&] { device.GetPreviewResolution(&a, &b); }},
      {"GetSupportImageType", [&] { device.GetSupportImageType(&types); }},
      {"IsSmallRegularPaperSize", [&] { device.IsSmallRegularPaperSize(); }},
      {"GetRegularPaperSizeMargins",
       [&] { device.GetRegularPaperSizeMargins(&left, &top, &right, &bottom); }},
      {"GetSupportedPaper", [&] { device.GetSupportedPaper(); }},
      {"GetDevInfo", [&] { device.GetDevInfo(&info); }}};
  for (const auto& [name, call] : calls) {
    const std::size_t before = traces_.Lines().size();
    call();
    ASSERT_GT(traces_.Lines().size(), before) << name;
    EXPECT_THAT(traces_.Lines()[before], MatchesRegex(std::string(name) + " [0-9]+\n"));
  }
}

TEST_F(TraceTest, StartScanSaysItsSevenTerms) {
  device_->Answers([](_SCANINFO& info) {
    info.dwAngle = 180;
    info.dwLeftCutMargin = 4;
    info.dwRightCutMargin = 5;
  });
  device_->SetXferMech(2);
  ASSERT_TRUE(device_->Prepare(SmallPage()));
  ASSERT_TRUE(device_->StartScan(true));
  EXPECT_TRUE(device_->EndScan());
  EXPECT_THAT(OfStartScan(),
              ElementsAre("StartScan bPrescan    = 1\n", "StartScan dwAngle     = 180\n",
                          "StartScan wMirror     = 1\n", "StartScan wXferMech   = 2\n",
                          "StartScan dwLineBytes\t   = 30\n", "StartScan dwLeftCutMargin = 4\n",
                          "StartScan dwRightCutMargin = 5\n"));
}

TEST_F(TraceTest, StartScanThatFailsHasSaidItsTerms) {
  WithSystem(
      [](SessionSystem& system) { system.make_key = [](const char*, int) { return key_t{-1}; }; });
  EXPECT_FALSE(Start(SmallPage()));
  EXPECT_EQ(OfStartScan().size(), 7u);
}

TEST_F(TraceTest, LinesThatAreDrawnBlank) {
  device_->Scans(1000).AtLine(30, Fails(1));  // 24 lines at 300 dpi
  ASSERT_TRUE(Start(SmallPage()));
  EXPECT_EQ(device_->ReadPage(40).size(), 40u);
  EXPECT_TRUE(device_->EndScan());
  EXPECT_THAT(traces_.Lines(), IsSupersetOf({MatchesRegex("!!! ReadDataAll [0-9]+\n"),
                                             MatchesRegex("!!! ReadDataAll Len= 30\n"),
                                             MatchesRegex("!!! ReadDataAll:[0-9]+: Error\n"),
                                             MatchesRegex("!!! ReadDataAll Draw blank\n")}));
  EXPECT_THAT(traces_.Lines(), Not(Contains(StartsWith("data_thread"))));
}

TEST_F(TraceTest, LinesThatFail) {
  device_->AtLine(5, Fails(1));
  ASSERT_TRUE(Start(SmallPage()));
  device_->ReadPage(40);
  EXPECT_TRUE(device_->EndScan());
  EXPECT_THAT(traces_.Lines(), AllOf(Contains(MatchesRegex("!!! ReadDataAll:[0-9]+: Error\n")),
                                     Contains(MatchesRegex("data_thread:[0-9]+:\n"))));
  EXPECT_THAT(traces_.Lines(), Not(Contains("!!! ReadDataAll Draw blank\n")));
}

TEST_F(TraceTest, DummyReadSaysItsLength) {
  device_->AtLine(0, [](FakeTransport& device) {
    device.DummyRead();
    return -1;
  });
  ASSERT_TRUE(Start(SmallPage()));
  device_->ReadPage(40);
  EXPECT_TRUE(device_->EndScan());
  EXPECT_THAT(traces_.Lines(), Contains("!!! DummyRead Len= 30\n"));
}

TEST_F(TraceTest, KeepAliveOfAMultipageSession) {
  device_->HasMorePages(1);
  ASSERT_TRUE(Start(SmallPage()));
  EXPECT_EQ(device_->ReadPage(40).size(), 40u);
  EXPECT_TRUE(device_->EndScan());
  EXPECT_TRUE(Eventually([this] {
    return testing::Value(traces_.Lines(), Contains(MatchesRegex("data_thread:[0-9]+:\n")));
  }));
}

TEST_F(TraceTest, TurnedPage) {
  device_->Answers([](_SCANINFO& info) { info.dwAngle = 180; });
  ASSERT_TRUE(Start(SmallPage()));
  EXPECT_EQ(device_->ReadPage(40).size(), 40u);
  EXPECT_TRUE(device_->EndScan());
  const std::vector<std::string> lines = traces_.Lines();
  EXPECT_THAT(lines,
              Contains(MatchesRegex("CDupImgFile::CDupImgFile: filePath = .*/DUPIMG.tmp\n")));
  EXPECT_THAT(lines, Contains("!!! GetImageFile dwLineBytes = 30\n"));
  EXPECT_THAT(lines, Contains("!!! GetImageFile dwImageLength = 40\n"));
  EXPECT_THAT(lines, Contains("<<Close Image  File>>\n"));
  EXPECT_THAT(lines, Contains("<<Close Image File:OK>>\n"));
  EXPECT_THAT(lines, Contains(MatchesRegex("ReadDataAll:[0-9]+: SendCmdStandby\n")));
  EXPECT_THAT(lines, Contains(MatchesRegex("<<Open File = .*/DUPIMG.tmp>>\n")));
  EXPECT_THAT(lines, Contains("     LineBytes = 30\n"));
  EXPECT_THAT(lines, Contains("     NoOfLines = 40\n"));
}

TEST_F(TraceTest, TurnedPageWhoseDeviceFails) {
  device_->AtLine(3, Fails(-7)).Answers([](_SCANINFO& info) { info.dwAngle = 180; });
  ASSERT_TRUE(Start(SmallPage()));
  EXPECT_EQ(device_->ReadPage(40).size(), 0u);
  EXPECT_TRUE(device_->EndScan());
  EXPECT_THAT(traces_.Lines(), Contains("     ReadScanLine:Ret = -7\n"));
}

TEST_F(TraceTest, TurnedPageWithoutAFile) {
  std::filesystem::remove_all(scratch_.Path(""));
  device_->Answers([](_SCANINFO& info) { info.dwAngle = 180; });
  ASSERT_TRUE(Start(SmallPage()));
  EXPECT_EQ(device_->ReadPage(40).size(), 0u);
  EXPECT_TRUE(device_->EndScan());
  EXPECT_THAT(traces_.Lines(), Contains("!!! GetImageFile m_pImgFile->Create:error\n"));
}

// No file may grow beyond `bytes` while it lives.
class SmallFiles {
 public:
  explicit SmallFiles(rlim_t bytes) : handler_(::signal(SIGXFSZ, SIG_IGN)) {
    ::getrlimit(RLIMIT_FSIZE, &before_);
    rlimit small = before_;
    small.rlim_cur = bytes;
    ::setrlimit(RLIMIT_FSIZE, &small);
  }
  ~SmallFiles() {
    ::setrlimit(RLIMIT_FSIZE, &before_);
    ::signal(SIGXFSZ, handler_);
  }
  SmallFiles(const SmallFiles&) = delete;
  SmallFiles& operator=(const SmallFiles&) = delete;

 private:
  void (*handler_)(int);
  rlimit before_{};
};

// A line is larger than what a stream holds back.
TEST_F(TraceTest, TurnedLineThatCannotBeWrittenFailsThePage) {
  ASSERT_TRUE(device_->Prepare(PageShape{8, 100000, 3, 300, 300}));
  device_->ScanParam.dwLineBytes = 100000;
  const SmallFiles files(150000);
  EXPECT_EQ(device_->GetImageFile(), 1);
  EXPECT_EQ(device_->GetNumberOfLinesScanned(), 0) << "the index of the line that was written";
  EXPECT_EQ(device_->reads, 2);
  EXPECT_THAT(traces_.Lines(), Contains("     ReadScanLine:File write errro\n"));
  EXPECT_EQ(LinesLogged("CDupImgFile::WriteLine:NG\n"), 1);
}

TEST_F(TraceTest, OtherDataTypeOfATurnedLine) {
  ASSERT_TRUE(device_->Prepare(SmallPage()));
  device_->ScanParam.dwLineBytes = 30;
  ASSERT_EQ(device_->GetImageFile(), 0);
  device_->scan_info.DataType = 1;
  Line line(30);
  unsigned got = 0;
  EXPECT_EQ(device_->ReadLinefromFile(0, line.data(), 30, &got), 1);
  EXPECT_THAT(traces_.Lines(), Contains("ReadLinefromFile Invalid Datatype\n"));
}

}  // namespace
}  // namespace vox::test
