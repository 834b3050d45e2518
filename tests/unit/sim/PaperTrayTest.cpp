// Which paper lies where, by what was asked for.
#include "sim/PaperTray.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace vox::sim {
namespace {

class PaperTrayTest : public testing::Test {
 protected:
  PaperTrayTest() {
    const char* wanted = std::getenv("TMPDIR");
    folder_ = std::string(wanted != nullptr ? wanted : "/tmp") + "/vox-paper-XXXXXX";
    EXPECT_NE(::mkdtemp(folder_.data()), nullptr);
  }
  ~PaperTrayTest() override { std::filesystem::remove_all(folder_); }

  // A file of `pages` pages; page i is i + 1 pixels wide.
  std::string PutFile(const std::string& leaf, int pages) {
    const std::string path = folder_ + "/" + leaf;
    std::ofstream out(path);
    for (int i = 1; i <= pages; ++i)
      out << "P5 " << i << " 1 255\n" << std::string(static_cast<std::size_t>(i), 'x');
    return path;
  }
  // The number of a page by its width at 300 dpi, in which such files are taken to be.
  static std::uint32_t NumberOf(const PagePtr& page) {
    return page ? (page->Size().width * 300 + 5000) / 10000 : 0;
  }
  // Fronts and backs in the feeder, 0 for a blank back.
  std::vector<std::uint32_t> Sides() const {
    std::vector<std::uint32_t> sides;
    for (const Sheet& sheet : device_.sheets) {
      sides.push_back(NumberOf(sheet.front));
      sides.push_back(NumberOf(sheet.back));
    }
    return sides;
  }

  std::string folder_;
  PaperWish wish_;
  DeviceOptions device_;
};

TEST_F(PaperTrayTest, WithoutAWishTheDeviceShowsItsOwnChart) {
  EXPECT_EQ(LayPaper(wish_, device_).text, "");
  EXPECT_FALSE(device_.glass);
  EXPECT_FALSE(device_.feeder);
  EXPECT_FALSE(device_.empty_glass);
}

TEST_F(PaperTrayTest, OnePageLiesOnTheGlass) {
  wish_.files = {PutFile("a.pgm", 1)};
  EXPECT_EQ(LayPaper(wish_, device_).text, "");
  EXPECT_EQ(NumberOf(device_.glass), 1U);
  EXPECT_THAT(device_.sheets, testing::IsEmpty());
}

TEST_F(PaperTrayTest, SeveralPagesAreSheetsOfAFeeder) {
  wish_.files = {PutFile("a.pgm", 2), PutFile("b.pgm", 1)};
  EXPECT_EQ(LayPaper(wish_, device_).text, "");
  EXPECT_TRUE(device_.feeder);
  EXPECT_THAT(Sides(), testing::ElementsAre(1, 0, 2, 0, 1, 0));
}

TEST_F(PaperTrayTest, BothSidesTakeThePagesInTurn) {
  wish_.files = {PutFile("a.pgm", 3)};
  wish_.both_sides = true;
  EXPECT_EQ(LayPaper(wish_, device_).text, "");
  EXPECT_THAT(Sides(), testing::ElementsAre(1, 2, 3, 1));
}

TEST_F(PaperTrayTest, ANumberOfSheetsTakesThePagesOverAndOver) {
  wish_.files = {PutFile("a.pgm", 2)};
  wish_.sheets = 3;
  EXPECT_EQ(LayPaper(wish_, device_).text, "");
  EXPECT_THAT(Sides(), testing::ElementsAre(1, 0, 2, 0, 1, 0));
}

TEST_F(PaperTrayTest, SheetsWithoutPagesAreCharts) {
  wish_.sheets = 2;
  EXPECT_EQ(LayPaper(wish_, device_).text, "");
  ASSERT_EQ(device_.sheets.size(), 2U);
  EXPECT_EQ(device_.sheets[0].front->Size().width, device_.flatbed->physical_width);
}

TEST_F(PaperTrayTest, NoSheetsLeaveTheGlassEmptyToo) {
  wish_.sheets = 0;
  EXPECT_EQ(LayPaper(wish_, device_).text, "");
  EXPECT_TRUE(device_.feeder);
  EXPECT_TRUE(device_.empty_glass);
  EXPECT_THAT(device_.sheets, testing::IsEmpty());
}

TEST_F(PaperTrayTest, AFileThatIsNoPageIsNamed) {
  wish_.files = {folder_ + "/missing.png"};
  EXPECT_THAT(LayPaper(wish_, device_).text, testing::HasSubstr("missing.png"));
}

}  // namespace
}  // namespace vox::sim
