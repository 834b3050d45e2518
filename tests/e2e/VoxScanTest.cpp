// The vox program from its command line to the files that it leaves, over the whole road: virtual
// device, protocol, job server, library, writers.
#include <array>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <nlohmann/json.hpp>

#include "tests/e2e/VoxFixture.h"

namespace vox::cli::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

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
  EXPECT_GT(mean("--brightness 50"), plain + 5);
  EXPECT_LT(std::abs(mean("--contrast -50") - 127.5), std::abs(plain - 127.5) - 5) << "flatter";
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
  const std::string page = PutPage(8);
  ASSERT_EQ(
      Scan("--mode lineart --halftone --virtual-page " + page + PageFrame() + "-o scan.png").status,
      0);
  const Picture picture = ReadPng(vox_.File("scan.png"));
  ASSERT_EQ(picture.bits, 1U);
  // As much light comes back from every stripe of the page as before.
  constexpr std::uint32_t kStripe = 48;
  for (std::uint32_t top = 0; top < kPageHeight; top += kStripe) {
    double grey = 0, white = 0;
    for (std::uint32_t y = top; y < top + kStripe; ++y) {
      for (const std::uint8_t level : PageLine(8, 0, y)) grey += level / 255.0;
      for (const std::uint8_t byte : picture.lines[y]) white += __builtin_popcount(byte);
    }
    EXPECT_NEAR(white / grey, 1, 0.05) << "from line " << top;
  }
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

TEST_F(VoxScan, FiftySheetsMakeFiftyPagesInOrder) {
  const std::string pages = "--virtual-page " + PutPage(8, 1) + " --virtual-page " + PutPage(8, 2);
  ASSERT_EQ(
      Scan(pages + " --virtual-feeder 50 --mode gray" + PageFrame() + "--batch all.tif").status, 0);
  const auto pictures = ReadTiff(vox_.File("all.tif"));
  ASSERT_EQ(pictures.size(), 50U);
  for (unsigned i = 0; i < 50; ++i) ExpectPage(pictures[i], 8, 1 + i % 2);
}

TEST_F(VoxScan, ATerminalShowsABarThatGoesAwayAgain) {
  if (std::system("command -v script >/dev/null") != 0) GTEST_SKIP() << "no script(1) here";
  const std::string scan = VOX_PROGRAM " scan --virtual --resolution 75 -o a.png";
  ASSERT_EQ(std::system(("cd " + vox_.Folder().Path() + " && TMPDIR=$PWD script -qec '" + scan +
                         "' said </dev/null >/dev/null")
                            .c_str()),
            0);
  const std::string said = Said();
  const auto begun = said.find("\rPage 1 [----"), full = said.find("#] 100 %");
  const auto gone = said.rfind("\r\033[K"), report = said.find("a.png: page 1");
  EXPECT_LT(begun, full) << said;
  EXPECT_LT(full, gone) << said;
  EXPECT_LT(gone, report) << said;
  EXPECT_NE(report, std::string::npos) << said;
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
