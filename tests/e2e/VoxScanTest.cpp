// The vox program from its command line to the files that it leaves, over the whole road: virtual
// device, protocol, job server, library, writers.
#include <array>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include <sys/stat.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "tests/e2e/VoxProgram.h"
#include "tools/vox/writers/MakeWriter.h"

namespace vox::cli::test {
namespace {

using testing::AnyOf;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::IsSupersetOf;
using testing::Not;
using testing::StartsWith;

constexpr std::uint32_t kDpi = 300;
constexpr std::uint32_t kPageWidth = 320, kPageHeight = 240;  // of the pages that tests lay down

class VoxScan : public testing::Test {
 protected:
  // Every test ends with nothing but the files that it has named.
  void TearDown() override {
    for (const std::string& leaf : vox_.Folder().Leaves())
      EXPECT_THAT(leaf, Not(AnyOf(StartsWith("."), StartsWith("vox-")))) << "left behind";
  }

  // Lays down page `seed` as a file: every pixel depends on its place and on the seed.
  std::string PutPage(unsigned bits, unsigned seed = 0) {
    const std::string leaf = "page" + std::to_string(bits) + "-" + std::to_string(seed) + ".tif";
    const auto writer = MakeWriter(vox_.File(leaf), ImageFormat::kTiff, false, -1);
    writer->BeginPage({kPageWidth, kPageHeight, bits, kDpi, kDpi});
    for (std::uint32_t y = 0; y < kPageHeight; ++y) writer->WriteLine(PageLine(bits, seed, y));
    writer->EndPage();
    writer->Finish();
    return leaf;
  }
  static Bytes PageLine(unsigned bits, unsigned seed, std::uint32_t y) {
    return TestLine(kPageWidth, bits, y + 7 * seed);
  }
  // A frame of the pages' size, in inches.
  static std::string PageFrame() { return " --frame 0,0,1.06666667,0.8in "; }

  static void ExpectPage(const Picture& picture, unsigned bits, unsigned seed) {
    ASSERT_EQ(picture.width, kPageWidth);
    ASSERT_EQ(picture.lines.size(), kPageHeight);
    ASSERT_EQ(picture.bits, bits);
    for (std::uint32_t y = 0; y < kPageHeight; ++y)
      ASSERT_EQ(picture.lines[y], PageLine(bits, seed, y)) << "line " << y;
  }

  Outcome Scan(const std::string& arguments) { return vox_.Run("scan --virtual " + arguments); }
  void ExpectFailure(const std::string& arguments, int status, const std::string& words) {
    const Outcome outcome = Scan(arguments);
    EXPECT_EQ(outcome.status, status) << arguments << "\n" << outcome.err;
    EXPECT_THAT(outcome.err, StartsWith("vox: "));
    EXPECT_THAT(outcome.err, HasSubstr(words)) << arguments;
    EXPECT_EQ(outcome.err.find('\n'), outcome.err.size() - 1) << "one line:\n" << outcome.err;
    EXPECT_THAT(outcome.out, IsEmpty());
  }

  std::string Numbered(std::string leaf, unsigned page) const {
    leaf += std::to_string(page);
    return vox_.File(leaf.append(".png"));
  }

  std::string Said() const {
    const Bytes bytes = ReadFile(vox_.File("said"));
    return {bytes.begin(), bytes.end()};
  }

  VoxProgram vox_;
};

const char* ModeOf(unsigned bits) {
  return bits == 1 ? "lineart" : bits == 8 ? "gray" : "color";
}

TEST_F(VoxScan, EveryFormatAndModeGivesThePageBackPixelForPixel) {
  for (const unsigned bits : {1U, 8U, 24U}) {
    const std::string page = PutPage(bits);
    for (const char* format : {"png", "tiff", "pnm", "pdf"}) {
      SCOPED_TRACE(std::string(format) + " " + ModeOf(bits));
      const std::string file = std::string("scan.") + format;
      const Outcome outcome = Scan("--virtual-page " + page + PageFrame() + "--mode " +
                                   ModeOf(bits) + " --resolution 300 -o " + file);
      ASSERT_EQ(outcome.status, 0) << outcome.err;
      EXPECT_EQ(outcome.err, "");
      EXPECT_EQ(outcome.out, file + ": page 1, 320 x 240 pixels, " + ModeOf(bits) + ", 300 dpi\n");
      const auto pictures = ReadAny(format, vox_.File(file));
      ASSERT_EQ(pictures.size(), 1U);
      ExpectPage(pictures[0], bits, 0);
      const double stored = std::string(format) == "pnm" ? 0 : 300;
      EXPECT_NEAR(pictures[0].x_dpi, stored, 0.1);
    }
  }
}

TEST_F(VoxScan, TheWholeBedIsScannedWhenNothingIsSaid) {
  const Outcome outcome = Scan("-o scan.png --resolution 75");
  ASSERT_EQ(outcome.status, 0) << outcome.err;
  const Picture picture = ReadPng(vox_.File("scan.png"));
  EXPECT_EQ(picture.width, 638U);
  EXPECT_EQ(picture.height, 878U);
  EXPECT_EQ(picture.bits, 24U);
}

struct Area {
  const char* options;
  std::uint32_t left, top, width, height;  // pixels of the page
};

TEST_F(VoxScan, FramesAreInMillimetresOrInches) {
  const std::string page = PutPage(8);
  const Area areas[] = {
      {"--frame 0.1,0.2,0.6,0.5in", 30, 60, 150, 90},
      {"--frame 2.54,5.08,15.24,12.7", 30, 60, 150, 90},
      {"--frame 2.54,5.08,15.24,12.7mm", 30, 60, 150, 90},
  };
  for (const Area& area : areas) {
    ASSERT_EQ(
        Scan(std::string("--mode gray -o scan.pnm --virtual-page ") + page + " " + area.options)
            .status,
        0);
    const Picture picture = ReadPnm(ReadFile(vox_.File("scan.pnm"))).at(0);
    ASSERT_EQ(picture.width, area.width) << area.options;
    ASSERT_EQ(picture.height, area.height) << area.options;
    for (std::uint32_t y = 0; y < area.height; ++y) {
      const Bytes whole = PageLine(8, 0, area.top + y);
      ASSERT_EQ(picture.lines[y],
                Bytes(whole.begin() + area.left, whole.begin() + area.left + area.width))
          << area.options << ", line " << y;
    }
  }
}

TEST_F(VoxScan, PapersAreCutAtTheBedWithANote) {
  Outcome outcome = Scan("--paper a6 --mode gray --resolution 75 -o scan.png");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(ReadPng(vox_.File("scan.png")).width, 310U);
  EXPECT_EQ(ReadPng(vox_.File("scan.png")).height, 437U);
  outcome = Scan("--paper A3 --mode gray --resolution 75 -o scan.png");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(outcome.err, HasSubstr("vox: note: the area reaches beyond the bed"));
  EXPECT_EQ(ReadPng(vox_.File("scan.png")).width, 638U);
}

TEST_F(VoxScan, ResolutionsBesideTheDevicesRangeAreMade) {
  for (const char* mode : {"lineart", "gray", "color"}) {
    for (const unsigned dpi : {50U, 1200U}) {
      const Outcome outcome = Scan(std::string("--frame 0,0,1.2,0.5in -o scan.png --mode ") + mode +
                                   " --resolution " + std::to_string(dpi));
      ASSERT_EQ(outcome.status, 0) << outcome.err;
      const Picture picture = ReadPng(vox_.File("scan.png"));
      EXPECT_NEAR(picture.width, 1.2 * dpi, 5) << mode;
      EXPECT_EQ(picture.height, dpi / 2) << mode;
      EXPECT_NEAR(picture.x_dpi, dpi, 0.1) << mode;
    }
  }
}

TEST_F(VoxScan, APreviewIsCoarse) {
  ASSERT_EQ(Scan("--preview -o scan.png").status, 0);
  EXPECT_NEAR(ReadPng(vox_.File("scan.png")).x_dpi, 75, 0.1);
}

TEST_F(VoxScan, ResolutionsMayDifferAcrossAndDown) {
  ASSERT_EQ(Scan("--frame 0,0,1,1in --resolution 300x150 --mode gray -o scan.tif").status, 0);
  const Picture picture = ReadTiff(vox_.File("scan.tif")).at(0);
  EXPECT_EQ(picture.width, 300U);
  EXPECT_EQ(picture.height, 150U);
  EXPECT_EQ(picture.y_dpi, 150);
}

TEST_F(VoxScan, BrightnessReachesTheDevice) {
  const auto mean = [&](const std::string& options) {
    EXPECT_EQ(Scan("--frame 0,0,2,2in --mode gray --resolution 75 -o scan.pnm " + options).status,
              0);
    double sum = 0;
    const Picture picture = ReadPnm(ReadFile(vox_.File("scan.pnm"))).at(0);
    for (const Bytes& line : picture.lines)
      for (const std::uint8_t grey : line) sum += grey;
    return sum / (picture.width * picture.height);
  };
  const double plain = mean("");
  EXPECT_LT(mean("--brightness -50"), plain - 5);
  EXPECT_NE(mean("--contrast -50"), plain);
}

TEST_F(VoxScan, AThresholdOfOnesOwnDecidesWhatIsWhite) {
  const std::string page = PutPage(8);
  for (const int threshold : {1, 90, 255}) {
    ASSERT_EQ(Scan("--mode lineart --virtual-page " + page + PageFrame() + "-o scan.png " +
                   "--threshold " + std::to_string(threshold))
                  .status,
              0);
    const Picture picture = ReadPng(vox_.File("scan.png"));
    ASSERT_EQ(picture.bits, 1U);
    for (std::uint32_t y = 0; y < kPageHeight; ++y) {
      const Bytes grey = PageLine(8, 0, y);
      for (std::uint32_t x = 0; x < kPageWidth; ++x)
        ASSERT_EQ((picture.lines[y][x / 8] >> (7 - x % 8) & 1) != 0, grey[x] >= threshold)
            << threshold << " at " << x << "," << y;
    }
  }
}

TEST_F(VoxScan, AHalftoneIsBlackAndWhite) {
  ASSERT_EQ(Scan("--mode lineart --halftone --frame 0,0,1,1in -o scan.png").status, 0);
  EXPECT_EQ(ReadPng(vox_.File("scan.png")).bits, 1U);
}

TEST_F(VoxScan, ATurnedPageIsTheOtherReversed) {
  const std::string page = PutPage(24);
  ASSERT_EQ(Scan("--virtual-page " + page + PageFrame() + "--rotate 180 -o scan.png").status, 0);
  const Picture picture = ReadPng(vox_.File("scan.png"));
  ASSERT_EQ(picture.lines.size(), kPageHeight);
  for (std::uint32_t y = 0; y < kPageHeight; ++y) {
    const Bytes line = PageLine(24, 0, kPageHeight - 1 - y);
    for (std::uint32_t x = 0; x < kPageWidth; ++x)
      for (unsigned c = 0; c < 3; ++c)
        ASSERT_EQ(picture.lines[y][x * 3 + c], line[(kPageWidth - 1 - x) * 3 + c]);
  }
}

TEST_F(VoxScan, StandardOutputTakesEveryFormat) {
  const std::string page = PutPage(8);
  for (const char* format : {"png", "tiff", "pnm", "pdf"}) {
    for (const char* output : {"", "-o -"}) {
      const Outcome outcome = Scan("--virtual-page " + page + PageFrame() + "--mode gray " +
                                   output + " --format " + format);
      ASSERT_EQ(outcome.status, 0) << outcome.err;
      EXPECT_EQ(outcome.err, "");
      const std::string path = vox_.File(std::string("copy.") + format);
      std::ofstream(path) << outcome.out;
      ExpectPage(ReadAny(format, path).at(0), 8, 0);
    }
  }
}

TEST_F(VoxScan, ABatchMakesAFileAPage) {
  const std::string pages = "--virtual-page " + PutPage(8, 1) + " --virtual-page " + PutPage(8, 2) +
                            " --virtual-page " + PutPage(8, 3);
  const Outcome outcome = Scan(pages + PageFrame() + "--mode gray --batch p-%03d.png");
  ASSERT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_THAT(outcome.out, HasSubstr("p-001.png: page 1"));
  EXPECT_THAT(outcome.out, HasSubstr("p-003.png: page 3"));
  for (unsigned page = 1; page <= 3; ++page) ExpectPage(ReadPng(Numbered("p-00", page)), 8, page);
  EXPECT_FALSE(std::filesystem::exists(vox_.File("p-004.png")));
}

TEST_F(VoxScan, ABatchFillsOneDocument) {
  for (const unsigned bits : {1U, 24U}) {
    const std::string pages =
        "--virtual-page " + PutPage(bits, 1) + " --virtual-page " + PutPage(bits, 2);
    for (const char* format : {"tiff", "pdf"}) {
      const std::string file = std::string("all.") + format;
      const Outcome outcome =
          Scan(pages + PageFrame() + "--mode " + ModeOf(bits) + " --batch " + file);
      ASSERT_EQ(outcome.status, 0) << outcome.err;
      const auto pictures = ReadAny(format, vox_.File(file));
      ASSERT_EQ(pictures.size(), 2U);
      for (unsigned i = 0; i < 2; ++i) ExpectPage(pictures[i], bits, i + 1);
    }
  }
}

TEST_F(VoxScan, ABatchGoesDownAPipe) {
  const Outcome outcome = Scan("--virtual-feeder 3 --mode gray --frame 0,0,1,1in --batch -");
  ASSERT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_EQ(ReadPnm(Bytes(outcome.out.begin(), outcome.out.end())).size(), 3U);
}

TEST_F(VoxScan, BothSidesComeUprightAndInOrder) {
  std::string pages;
  for (unsigned seed = 1; seed <= 4; ++seed) pages += " --virtual-page " + PutPage(8, seed);
  const Outcome outcome = Scan(pages + PageFrame() + "--mode gray --duplex --batch p%d.png");
  ASSERT_EQ(outcome.status, 0) << outcome.err;
  for (unsigned page = 1; page <= 4; ++page) {
    SCOPED_TRACE(page);
    ExpectPage(ReadPng(Numbered("p", page)), 8, page);
  }
}

TEST_F(VoxScan, OnePageIsTakenFromAFeederAndTheRestIsToldOf) {
  const std::string pages = "--virtual-page " + PutPage(8, 1) + " --virtual-page " + PutPage(8, 2);
  const Outcome outcome = Scan(pages + PageFrame() + "--mode gray -o one.png");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.err, "vox: note: more pages wait on the device; --batch takes them all\n");
  ExpectPage(ReadPng(vox_.File("one.png")), 8, 1);
}

TEST_F(VoxScan, JsonIsOneObjectAPage) {
  for (const char* batch : {"p%d.png", "all.pdf"}) {
    const Outcome outcome =
        Scan(std::string("--virtual-feeder 2 --mode gray --resolution 75 --json --batch ") + batch);
    ASSERT_EQ(outcome.status, 0) << outcome.err;
    std::istringstream lines(outcome.out);
    std::string line;
    unsigned page = 0;
    while (std::getline(lines, line)) {
      const auto json = nlohmann::json::parse(line);
      EXPECT_EQ(json["page"], ++page);
      EXPECT_EQ(json["width"], 638);
      EXPECT_EQ(json["mode"], "gray");
      EXPECT_TRUE(std::filesystem::exists(vox_.File(json["file"])));
    }
    EXPECT_EQ(page, 2U);
  }
}

TEST_F(VoxScan, InfoTellsWhatTheDeviceCanDo) {
  const Outcome words = vox_.Run("--virtual info");
  EXPECT_EQ(words.status, 0) << words.err;
  EXPECT_THAT(words.out, HasSubstr("Modes         lineart, gray, color\n"));
  EXPECT_THAT(words.out, HasSubstr("Flatbed       215.9 x 297.2 mm\n"));
  const auto json = nlohmann::json::parse(vox_.Run("info --virtual --json").out);
  EXPECT_EQ(json["virtual"], true);
  EXPECT_EQ(json["resolution"]["max"]["x"], 600);
  EXPECT_EQ(json["duplex"], 1);
}

TEST_F(VoxScan, MistakesInOptionsAreSixtyFour) {
  ExpectFailure("-o a.png --mode sepia", 64, "--mode sepia");
  ExpectFailure("-o a.xyz", 64, "a.xyz");
  ExpectFailure("-o a.png --virtual-fault nonsense", 64, "nonsense");
  EXPECT_EQ(vox_.Run("").status, 64);
  EXPECT_EQ(vox_.Run("scan -o a.png").status, 64);
  EXPECT_EQ(vox_.Run("--help").status, 0);
}

TEST_F(VoxScan, WhatTheDeviceCannotDoIsFour) {
  ExpectFailure("-o a.png --frame 500,0,600,100", 4, "beside the bed");
  EXPECT_EQ(vox_.Run("scan net:no-such-host.invalid -o a.png").status, 4);
}

struct Fault {
  const char* words;
  int status;
  const char* line;
};

TEST_F(VoxScan, ADeviceInTroubleIsOneLineAndNoFile) {
  const Fault faults[] = {
      {"busy", 3, "it is busy"},
      {"no-document", 7, "no document"},
      {"scan-reply=81", 9, "it refused"},
      {"block=width:1", 9, "does not answer, or the connection broke"},
      {"block=hostile", 9, "does not answer"},
      {"block=cut-data:1", 9, "does not answer"},
      {"close-after=10000", 9, "does not answer"},
      {"close-after=10000,reset", 9, "does not answer"},
      {"info-cut=100", 9, "does not answer"},
  };
  for (const Fault& fault : faults) {
    SCOPED_TRACE(fault.words);
    ExpectFailure(
        std::string("--mode lineart --resolution 200 -o a.png --virtual-fault ") + fault.words,
        fault.status, fault.line);
    EXPECT_THAT(vox_.Folder().Leaves(), IsEmpty());
  }
}

TEST_F(VoxScan, AnEmptyFeederAndGlassAreSeven) {
  ExpectFailure("--virtual-feeder 0 -o a.png", 7, "put one in the feeder");
}

TEST_F(VoxScan, PagesBeforeABadOneAreKept) {
  const std::string options =
      "--virtual-feeder 3 --mode gray --resolution 100 --virtual-fault close-after=1000,page=3 ";
  EXPECT_EQ(Scan(options + "--batch p%d.png").status, 9);
  EXPECT_EQ(ReadPng(vox_.File("p1.png")).width, 850U);
  EXPECT_THAT(vox_.Folder().Leaves(), ElementsAre("p1.png", "p2.png"));
  const Outcome outcome = Scan(options + "--batch all.pdf");
  EXPECT_EQ(outcome.status, 9);
  EXPECT_THAT(outcome.err, HasSubstr("cannot scan page 3 on the virtual device"));
  EXPECT_THAT(outcome.err, HasSubstr("the 2 page(s) before are in all.pdf"));
  EXPECT_EQ(ReadPdf(vox_.File("all.pdf")).size(), 2U);
}

TEST_F(VoxScan, AFileThatCannotBeWrittenIsSaidBeforeTheScan) {
  ExpectFailure("-o no/such/folder/a.png", 9, "create the folder first");
  ExpectFailure("-o /", 64, "tells no format");
  ExpectFailure("--virtual-fault silent=scan -o /proc/a.png", 9, "cannot write /proc/a.png");
}

TEST_F(VoxScan, AFullDiskIsOneLine) {
  for (const char* format : {"png", "tiff", "pnm", "pdf"})
    ExpectFailure(std::string("-o /dev/full --resolution 100 --format ") + format, 9,
                  "No space left on device");
}

TEST_F(VoxScan, AnOldFileSurvivesAFailure) {
  std::ofstream(vox_.File("a.png")) << "old";
  ExpectFailure("-o a.png --mode lineart --virtual-fault block=cut-data", 9, "cannot scan");
  EXPECT_EQ(ReadFile(vox_.File("a.png")), (Bytes{'o', 'l', 'd'}));
}

TEST_F(VoxScan, CtrlCInAStalledPageEndsAtOnceWithoutAFile) {
  for (const int signal : {SIGINT, SIGTERM}) {
    for (const char* output : {"-o a.png", "-o a.tif", "--batch a.pdf", "--rotate 180 -o a.pnm"}) {
      vox_.Start(std::string("scan --virtual --virtual-fault stall=data:20000 --mode gray ") +
                 output);
      ASSERT_TRUE(vox_.WaitForLeaf(".a."));
      const auto when = std::chrono::steady_clock::now();
      vox_.Signal(signal);
      const Outcome outcome = vox_.Wait();
      EXPECT_EQ(outcome.status, 2) << outcome.err;
      EXPECT_EQ(outcome.err, "vox: cancelled; the job on the device was stopped\n");
      EXPECT_LT(std::chrono::steady_clock::now() - when, std::chrono::seconds(2));
      EXPECT_THAT(vox_.Folder().Leaves(), IsEmpty());
    }
  }
}

TEST_F(VoxScan, CtrlCInABatchKeepsTheFilesThatWereFinished) {
  vox_.Start(
      "scan --virtual --virtual-feeder 2 --mode gray --resolution 100 --batch p%d.png "
      "--virtual-fault stall=data:1000,page=2");
  ASSERT_TRUE(vox_.WaitForLeaf("p1.png"));
  ASSERT_TRUE(vox_.WaitForLeaf(".p2.png"));
  vox_.Signal(SIGINT);
  EXPECT_EQ(vox_.Wait().status, 2);
  EXPECT_THAT(vox_.Folder().Leaves(), ElementsAre("p1.png"));
}

TEST_F(VoxScan, CtrlCAtAnyMomentLeavesAllOrNothing) {
  int cancelled = 0;
  for (int moment = 0; moment < 40; ++moment) {
    vox_.Start("scan --virtual --resolution 100 --mode gray --virtual-feeder 3 --batch p%d.png");
    std::this_thread::sleep_for(std::chrono::milliseconds(moment * 4));  // a place to hit, no wait
    vox_.Signal(SIGINT);
    const Outcome outcome = vox_.Wait();
    // Before the program has looked at signals at all, the system ends it.
    EXPECT_THAT(outcome.status, AnyOf(0, 2, -1)) << outcome.err;
    cancelled += outcome.status == 2;
    const std::vector<std::string> files = vox_.Folder().Leaves();
    if (outcome.status == 0) {
      EXPECT_THAT(files, ElementsAre("p1.png", "p2.png", "p3.png"));
    }
    for (const std::string& file : files) {
      EXPECT_EQ(ReadPng(vox_.File(file)).height, 1170U) << file << ", moment " << moment;
      std::filesystem::remove(vox_.File(file));
    }
  }
  EXPECT_GT(cancelled, 0);
}

TEST_F(VoxScan, ADeviceThatNeverAnswersIsNine) {
  ExpectFailure("-o a.png --virtual-fault silent=always", 9, "does not answer");
}

// A network of its own, in which voxsim has the protocol's own ports; no job server runs there, so
// that vox has to start one.
TEST_F(VoxScan, ADeviceOnTheNetworkIsNamedByItsAddress) {
  if (std::system("unshare -rn ip link set lo up 2>/dev/null") != 0)
    GTEST_SKIP() << "no network namespace can be made here";
  std::ofstream(vox_.File("script")) << R"(
    set -e
    ip link set lo up
    mkdir -p root/var/tmp
    export VOX_ROOT=$PWD/root TMPDIR=$PWD/root PATH=$JOBD:$PATH
    mkfifo ready
    "$SIM/voxsim" --snmp-port 161 --command-port 3892 >ready &
    read -r line <ready
    "$VOX" info net:localhost --json >info
    "$VOX" scan net:127.0.0.1 -o a.png --mode gray --resolution 100
    "$VOX" scan net:127.0.0.1 --resolution 100 --mode lineart >b.pbm
    kill $!
  )";
  const std::string folders = "VOX=" VOX_PROGRAM " SIM=" VOX_SIM_FOLDER " JOBD=" VOX_JOBD_FOLDER;
  ASSERT_EQ(std::system(("cd " + vox_.Folder().Path() + " && " + folders +
                         " unshare -rn bash script >said 2>&1")
                            .c_str()),
            0)
      << Said();
  EXPECT_EQ(nlohmann::json::parse(ReadFile(vox_.File("info")))["ip"], "127.0.0.1");
  EXPECT_EQ(ReadPng(vox_.File("a.png")).height, 1170U);
  EXPECT_EQ(ReadPnm(ReadFile(vox_.File("b.pbm"))).at(0).bits, 1U);
  EXPECT_EQ(Said(), "a.png: page 1, 850 x 1170 pixels, gray, 100 dpi\n");
}

TEST_F(VoxScan, AnyNumberRunAtOnce) {
  std::array<VoxProgram, 4> programs;
  for (VoxProgram& program : programs)
    program.Start("scan --virtual --mode gray --resolution 100 -o a.png");
  for (VoxProgram& program : programs) {
    const Outcome outcome = program.Wait();
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_THAT(program.Folder().Leaves(), ElementsAre("a.png"));
  }
}

}  // namespace
}  // namespace vox::cli::test
