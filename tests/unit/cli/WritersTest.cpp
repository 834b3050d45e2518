// What every writer puts on the disk, read back with the format's own library.
#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>

#include <sys/resource.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/unit/cli/ReadBack.h"
#include "tools/vox/Failure.h"
#include "tools/vox/writers/MakeWriter.h"
#include "tools/vox/writers/TurnedWriter.h"

namespace vox::cli::test {
namespace {

using testing::DoubleNear;
using testing::ElementsAre;
using testing::IsEmpty;

class WritersTest : public testing::Test {
 protected:
  std::unique_ptr<ImageWriter> Open(ImageFormat format, bool turned = false) {
    path_ = folder_.File(std::string("page.") + FormatName(format));
    return MakeWriter(path_, format, turned, -1);
  }
  static void WritePage(ImageWriter& writer, const PageFormat& page, std::uint32_t lines) {
    writer.BeginPage(page);
    for (std::uint32_t y = 0; y < lines; ++y) writer.WriteLine(TestLine(page.width, page.bits, y));
    if (lines == page.height) writer.EndPage();
  }
  static void WritePage(ImageWriter& writer, const PageFormat& page) {
    WritePage(writer, page, page.height);
  }
  std::vector<Picture> Read(ImageFormat format) const { return ReadAny(FormatName(format), path_); }

  static void ExpectPage(const Picture& picture, const PageFormat& page) {
    EXPECT_EQ(picture.width, page.width);
    EXPECT_EQ(picture.bits, page.bits);
    ASSERT_EQ(picture.lines.size(), page.height);
    for (std::uint32_t y = 0; y < page.height; ++y)
      ASSERT_EQ(picture.lines[y], TestLine(page.width, page.bits, y)) << "line " << y;
  }

  TestFolder folder_;
  std::string path_;
};

constexpr std::array kAllFormats{ImageFormat::kPng, ImageFormat::kTiff, ImageFormat::kPnm,
                                 ImageFormat::kPdf};
constexpr std::array kManyPages{ImageFormat::kTiff, ImageFormat::kPdf};

TEST_F(WritersTest, EveryFormatGivesBackEveryDepthAndOddWidth) {
  for (const ImageFormat format : kAllFormats) {
    for (const unsigned bits : {1U, 8U, 24U}) {
      for (const std::uint32_t width : {1U, 7U, 8U, 9U, 63U, 64U, 65U}) {
        SCOPED_TRACE(std::string(FormatName(format)) + " " + std::to_string(bits) +
                     " bits, width " + std::to_string(width));
        const PageFormat page{width, 13, bits, 300, 300};
        const auto writer = Open(format);
        WritePage(*writer, page);
        writer->Finish();
        const auto pictures = Read(format);
        ASSERT_EQ(pictures.size(), 1U);
        ExpectPage(pictures[0], page);
      }
    }
  }
}

TEST_F(WritersTest, ResolutionIsStoredWhereTheFormatHoldsOne) {
  for (const ImageFormat format : {ImageFormat::kPng, ImageFormat::kTiff, ImageFormat::kPdf}) {
    SCOPED_TRACE(FormatName(format));
    const auto writer = Open(format);
    WritePage(*writer, {600, 300, 8, 600, 150});
    writer->Finish();
    const auto pictures = Read(format);
    EXPECT_THAT(pictures.at(0).x_dpi, DoubleNear(600, 0.02));
    EXPECT_THAT(pictures.at(0).y_dpi, DoubleNear(150, 0.02));
  }
}

TEST_F(WritersTest, OneFileTakesPagesOfDifferentKinds) {
  const std::array<PageFormat, 3> pages{
      {{20, 5, 1, 300, 300}, {9, 7, 24, 75, 75}, {3, 2, 8, 600, 600}}};
  for (const ImageFormat format : kManyPages) {
    SCOPED_TRACE(FormatName(format));
    const auto writer = Open(format);
    ASSERT_TRUE(writer->HoldsManyPages());
    for (const PageFormat& page : pages) WritePage(*writer, page);
    writer->Finish();
    const auto pictures = Read(format);
    ASSERT_EQ(pictures.size(), pages.size());
    for (std::size_t i = 0; i < pages.size(); ++i) ExpectPage(pictures[i], pages[i]);
  }
}

TEST_F(WritersTest, APageThatWasDroppedIsNotInTheFile) {
  const PageFormat page{200, 50, 8, 300, 300};
  for (const ImageFormat format : kManyPages) {
    for (const std::uint32_t lines : {0U, 1U, 49U}) {
      SCOPED_TRACE(std::string(FormatName(format)) +
                   ", lines of the bad page: " + std::to_string(lines));
      const auto writer = Open(format);
      WritePage(*writer, page);
      WritePage(*writer, page, lines);
      writer->DropPage();
      writer->Finish();
      const auto pictures = Read(format);
      ASSERT_EQ(pictures.size(), 1U);
      ExpectPage(pictures[0], page);
    }
  }
}

TEST_F(WritersTest, OneGoodPageIsTheSameFileWhetherABadOneFollowedOrNot) {
  const PageFormat page{200, 50, 1, 300, 300};
  auto writer = Open(ImageFormat::kTiff);
  WritePage(*writer, page);
  writer->Finish();
  const Bytes plain = ReadFile(path_);
  writer = Open(ImageFormat::kTiff);
  WritePage(*writer, page);
  WritePage(*writer, page, 20);
  writer->DropPage();
  writer->Finish();
  EXPECT_EQ(ReadFile(path_), plain);
}

TEST_F(WritersTest, NothingAppearsBeforeFinish) {
  for (const ImageFormat format : kAllFormats) {
    SCOPED_TRACE(FormatName(format));
    const auto writer = Open(format);
    WritePage(*writer, {16, 4, 8, 300, 300});
    EXPECT_THROW(ReadFile(path_), std::runtime_error);
    writer->Finish();
    EXPECT_FALSE(ReadFile(path_).empty());
  }
}

TEST_F(WritersTest, AWriterThatGoesWithoutFinishLeavesNothing) {
  for (const ImageFormat format : kAllFormats) {
    for (const std::uint32_t lines : {0U, 2U, 4U}) {
      WritePage(*Open(format), {16, 4, 1, 300, 300}, lines);
      EXPECT_THAT(folder_.Leaves(), IsEmpty()) << FormatName(format) << ", " << lines << " lines";
    }
  }
}

TEST_F(WritersTest, FinishWithoutAWholePageLeavesNothing) {
  for (const ImageFormat format : kAllFormats) {
    {
      const auto writer = Open(format);
      WritePage(*writer, {16, 4, 1, 300, 300}, 3);
      writer->DropPage();
      writer->Finish();
    }
    EXPECT_THAT(folder_.Leaves(), IsEmpty()) << FormatName(format);
  }
}

TEST_F(WritersTest, ASecondPageForASinglePageFileIsRefused) {
  for (const ImageFormat format : {ImageFormat::kPng, ImageFormat::kPnm}) {
    const auto writer = Open(format);
    EXPECT_FALSE(writer->HoldsManyPages());
    WritePage(*writer, {8, 1, 8, 300, 300});
    EXPECT_THROW(writer->BeginPage({8, 1, 8, 300, 300}), Failure);
  }
}

TEST_F(WritersTest, AFullDiskIsOneClearLine) {
  for (const ImageFormat format : kAllFormats) {
    SCOPED_TRACE(FormatName(format));
    try {
      const auto writer = MakeWriter("/dev/full", format, false, -1);
      WritePage(*writer, {2000, 300, 24, 300, 300});
      writer->Finish();
      FAIL() << "no failure";
    } catch (const Failure& failure) {
      EXPECT_EQ(failure.Status(), ExitStatus::kIoError);
      EXPECT_STREQ(failure.what(),
                   "cannot write /dev/full: No space left on device; free some space or name "
                   "another place");
    }
  }
}

// With room for the file, and none for what waits on its way there.
[[noreturn]] void ExitFromAFullSpool(ImageFormat format, bool turned) {
  std::signal(SIGXFSZ, SIG_IGN);
  const rlimit room{1000, 1000};
  ::setrlimit(RLIMIT_FSIZE, &room);
  try {
    const auto writer = MakeWriter("/dev/null", format, turned, -1);
    writer->BeginPage({2000, 300, 24, 300, 300});
    for (std::uint32_t y = 0; y < 300; ++y) writer->WriteLine(TestLine(2000, 24, y));
    writer->EndPage();
    writer->Finish();
  } catch (const Failure& failure) {
    std::fputs(failure.what(), stderr);
    std::_Exit(static_cast<int>(failure.Status()));
  }
  std::_Exit(0);
}

TEST(WritersDeathTest, AFullSpoolIsNotTakenForTheFile) {
  const char words[] = "cannot write a temporary file in .*: File too large; set TMPDIR";
  EXPECT_EXIT(ExitFromAFullSpool(ImageFormat::kPdf, false), testing::ExitedWithCode(9), words);
  EXPECT_EXIT(ExitFromAFullSpool(ImageFormat::kTiff, false), testing::ExitedWithCode(9), words);
  EXPECT_EXIT(ExitFromAFullSpool(ImageFormat::kPnm, true), testing::ExitedWithCode(9), words);
}

TEST_F(WritersTest, TurnedPagesAreTurnedByHalfACircle) {
  for (const ImageFormat format : kAllFormats) {
    for (const unsigned bits : {1U, 8U, 24U}) {
      SCOPED_TRACE(std::string(FormatName(format)) + " " + std::to_string(bits));
      const PageFormat page{21, 6, bits, 300, 300};
      const auto writer = Open(format, true);
      WritePage(*writer, page);
      writer->Finish();
      const Picture picture = Read(format).at(0);
      ASSERT_EQ(picture.lines.size(), page.height);
      for (std::uint32_t y = 0; y < page.height; ++y) {
        Bytes line = TestLine(page.width, bits, page.height - 1 - y);
        TurnLine(line, page.width, bits);
        EXPECT_EQ(picture.lines[y], line) << "line " << y;
      }
    }
  }
}

TEST_F(WritersTest, APageLargerThanTheSpoolsBlockIsTurnedWhole) {
  const PageFormat page{1000, 2500, 8, 300, 300};
  const auto writer = Open(ImageFormat::kPnm, true);
  WritePage(*writer, page);
  writer->Finish();
  const Picture picture = Read(ImageFormat::kPnm).at(0);
  ASSERT_EQ(picture.lines.size(), page.height);
  for (std::uint32_t y = 0; y < page.height; ++y) {
    Bytes line = TestLine(page.width, 8, page.height - 1 - y);
    TurnLine(line, page.width, 8);
    ASSERT_EQ(picture.lines[y], line) << "line " << y;
  }
}

TEST(TurnLineTest, PixelsChangeEndsAndPaddingIsCleared) {
  Bytes bits{0b10110000, 0b01000000 | 0x3F};  // 10 pixels, dirt behind them
  TurnLine(bits, 10, 1);
  EXPECT_THAT(bits, ElementsAre(0b10000011, 0b01000000));
  Bytes whole{0x01, 0x80};
  TurnLine(whole, 16, 1);
  EXPECT_THAT(whole, ElementsAre(0x01, 0x80));
  Bytes grey{1, 2, 3};
  TurnLine(grey, 3, 8);
  EXPECT_THAT(grey, ElementsAre(3, 2, 1));
  Bytes colour{1, 2, 3, 4, 5, 6};
  TurnLine(colour, 2, 24);
  EXPECT_THAT(colour, ElementsAre(4, 5, 6, 1, 2, 3));
}

// A reader that shares no code with the writers: what poppler makes of the PDF.
TEST_F(WritersTest, PopplerSeesTheSamePixels) {
  if (std::system("command -v pdfimages >/dev/null") != 0) GTEST_SKIP() << "no poppler-utils here";
  for (const unsigned bits : {1U, 8U, 24U}) {
    const PageFormat page{61, 9, bits, 300, 300};
    const auto writer = Open(ImageFormat::kPdf);
    WritePage(*writer, page);
    writer->Finish();
    const std::string out = folder_.File("out");
    ASSERT_EQ(std::system(("pdfimages -png " + path_ + " " + out).c_str()), 0);
    ExpectPage(ReadPng(out + "-000.png"), page);
  }
}

struct FileName {
  const char* name;
  std::optional<ImageFormat> format;
};

TEST(FormatTest, AFilesEndingTellsItsFormat) {
  const FileName names[] = {
      {"a.png", ImageFormat::kPng},
      {"a.PNG", ImageFormat::kPng},
      {"a.tif", ImageFormat::kTiff},
      {"a.tiff", ImageFormat::kTiff},
      {"a.pbm", ImageFormat::kPnm},
      {"a.pgm", ImageFormat::kPnm},
      {"a.ppm", ImageFormat::kPnm},
      {"a.pnm", ImageFormat::kPnm},
      {"x.y/a.pdf", ImageFormat::kPdf},
      {"page-%03d.png", ImageFormat::kPng},
      {"a", std::nullopt},
      {"a.jpg", std::nullopt},
      {"dir.png/a", std::nullopt},
      {"a.", std::nullopt},
  };
  for (const FileName& row : names) EXPECT_EQ(FormatOfFile(row.name), row.format) << row.name;
}

}  // namespace
}  // namespace vox::cli::test
