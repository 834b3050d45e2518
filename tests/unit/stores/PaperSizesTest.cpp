// The table of paper sizes: looking up; and the table that ships.
#include "vox/PaperSizes.h"

#include <iterator>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/unit/stores/ResourceFolder.h"
#include "vox/platform/SystemLog.h"

namespace vox {
namespace {

class PaperTable : public ::testing::Test {
 protected:
  PaperTable() {
    before_ = SetSystemLogSink([this](const std::string& line) { log_.push_back(line); });
  }
  ~PaperTable() override { SetSystemLogSink(before_); }

  PaperSizes& Load(const std::string& content) {
    folder_.Put("PaperSizes", "<dict>" + content + "</dict>");
    return PaperSizes::instance();
  }
  PaperSizes& LoadThree() {
    return Load(
        "<key>defaultForMetric</key><string>m</string><key>defaultForUS</key><string>u</string>"
        "<key>sizes</key><array><string>no paper</string>"
        "<dict><key>twainId</key><integer>1</integer><key>paperId</key><string>m</string>"
        "<key>pushScanId</key><integer>11</integer><key>colour</key><string>blue</string></dict>"
        "<dict><key>twainId</key><integer>2</integer><key>paperId</key><string>u</string>"
        "<key>pushScanId</key><integer>12</integer></dict>"
        "<dict><key>twainId</key><integer>2</integer><key>pushScanId</key><string>12</string></"
        "dict>"
        "</array>");
  }

  ResourceFolder folder_;
  PaperSizes::Fresh fresh_;
  std::vector<std::string> log_;
  SystemLogSink before_;
};

TEST_F(PaperTable, LooksUpByEachKeyAndGivesTheFirst) {
  auto& table = LoadThree();
  const auto& papers = table.enumerator();
  ASSERT_EQ(papers.size(), 3u);
  EXPECT_EQ(table.paperByTwainId(1), papers[0]);
  EXPECT_EQ(table.paperByTwainId(2), papers[1]);
  EXPECT_EQ(table.paperByPaperId("u"), papers[1]);
  EXPECT_EQ(table.paperByPushScanId(11), papers[0]);
  EXPECT_EQ(table.paperByKeyWithValue("colour", "blue"), papers[0]) << "other keys are kept";
}

TEST_F(PaperTable, ValuesAreEqualInTypeToo) {
  auto& table = LoadThree();
  EXPECT_EQ(table.paperByPushScanId("12"), table.enumerator()[2]);
  EXPECT_EQ(table.paperByTwainId("1"), nullptr);
  EXPECT_EQ(table.paperByTwainId(1.0), nullptr);
}

TEST_F(PaperTable, NothingIsFoundByNothing) {
  auto& table = LoadThree();
  EXPECT_EQ(table.paperByTwainId(9), nullptr);
  EXPECT_EQ(table.paperByPaperId(std::nullopt), nullptr) << "nor the paper without that key";
  EXPECT_EQ(table.paperByKeyWithValue("no such key", 1), nullptr);
  EXPECT_EQ(table.paperIdByTwainId(9), std::nullopt);
  EXPECT_EQ(table.paperIdByTwainId(std::nullopt), std::nullopt);
}

TEST_F(PaperTable, GivesThePaperIdOfATwainId) {
  EXPECT_EQ(LoadThree().paperIdByTwainId(1), PropertyValue("m"));
}

TEST_F(PaperTable, OnlyCentimetersAreMetric) {
  auto& table = LoadThree();
  EXPECT_EQ(table.defaultForMeasurementUnits("Centimeters"), table.enumerator()[0]);
  for (const char* units : {"Inches", "centimeters", "Centimeter", ""}) {
    EXPECT_EQ(table.defaultForMeasurementUnits(units), table.enumerator()[1]) << units;
  }
  EXPECT_EQ(table.defaultForMeasurementUnits(std::nullopt), table.enumerator()[1]);
  EXPECT_TRUE(log_.empty());
}

TEST_F(PaperTable, MissingDefaultIsLogged) {
  auto& table = Load("<key>defaultForUS</key><string>x</string><key>sizes</key><array/>");
  EXPECT_EQ(table.defaultForMeasurementUnits("Centimeters"), nullptr);
  EXPECT_EQ(table.defaultForMeasurementUnits("Inches"), nullptr);
  EXPECT_EQ(table.defaultForMeasurementUnits(std::nullopt), nullptr);
  const std::string text =
      "-[PaperSizes defaultForMeasurementUnits:]: there is no default paper for ";
  EXPECT_EQ(log_,
            (std::vector<std::string>{text + "Centimeters", text + "Inches", text + "(null)"}));
}

TEST_F(PaperTable, MissingOrUnreadableResourceIsAnEmptyTable) {
  for (const char* bytes : {"", "garbage", "<plist><array/></plist>", "<plist><dict/></plist>",
                            "<plist><dict><key>sizes</key><true/></dict></plist>"}) {
    if (*bytes != '\0') folder_.PutBytes("PaperSizes", bytes);
    const PaperSizes::Fresh fresh;
    EXPECT_TRUE(PaperSizes::instance().enumerator().empty()) << bytes;
    EXPECT_EQ(PaperSizes::instance().paperByTwainId(1), nullptr);
  }
}

// The table that ships.
class ShippedPapers : public ::testing::Test {
 protected:
  Variable unset_{"VOX_RESOURCES"};
  PaperSizes::Fresh fresh_;
  PaperSizes& table_ = PaperSizes::instance();
};

TEST_F(ShippedPapers, HasEverySheetOfTwain) {
  constexpr int kUnused = 8;  // the one number below TWSS_MAXSIZE (54) that names no sheet
  for (int id = 1; id < 54; ++id)
    EXPECT_EQ(table_.paperByTwainId(id) != nullptr, id != kUnused) << id;
}

// By TWAIN's number, from 1 (TWSS_A4) to 53 (TWSS_BUSINESSCARD).
TEST_F(ShippedPapers, TwainNumbersMeanTheirSheets) {
  const char* const sheets[] = {
      "A4",      "B5",        "Letter", "Legal",     "A5",          "B4-ISO", "B6-ISO", "",
      "Ledger",  "Executive", "A3",     "B3-ISO",    "A6",          "C4",     "C5",     "C6",
      "4A0",     "2A0",       "A0",     "A1",        "A2",          "A7",     "A8",     "A9",
      "A10",     "B0-ISO",    "B1-ISO", "B2-ISO",    "B5-ISO",      "B7-ISO", "B8-ISO", "B9-ISO",
      "B10-ISO", "B0",        "B1",     "B2",        "B3",          "B4",     "B6",     "B7",
      "B8",      "B9",        "B10",    "C0",        "C1",          "C2",     "C3",     "C7",
      "C8",      "C9",        "C10",    "Statement", "BusinessCard"};
  ASSERT_EQ(std::size(sheets), 53u);
  for (std::size_t i = 0; i < std::size(sheets); ++i) {
    const std::string sheet = sheets[i];
    if (sheet.empty()) continue;
    EXPECT_EQ(table_.paperIdByTwainId(static_cast<int>(i + 1)), PropertyValue(sheet)) << i + 1;
  }
}

TEST_F(ShippedPapers, AmericanSheetsAreInches) {
  const struct {
    const char* paper;
    double width, height;
  } rows[] = {{"Letter", 8.5, 11},
              {"Legal", 8.5, 14},
              {"Ledger", 11, 17},
              {"Executive", 7.25, 10.5},
              {"Statement", 5.5, 8.5}};
  for (const auto& row : rows) {
    const auto paper = table_.paperByPaperId(row.paper);
    ASSERT_NE(paper, nullptr) << row.paper;
    EXPECT_NEAR(*paper->Number("width"), row.width * 25.4, 1e-9) << row.paper;
    EXPECT_NEAR(*paper->Number("height"), row.height * 25.4, 1e-9) << row.paper;
  }
}

TEST_F(ShippedPapers, IdsAreUniqueAndOfOneType) {
  std::set<std::int64_t> twain, push;
  std::set<std::string> names;
  for (const auto& paper : table_.enumerator()) {
    ASSERT_TRUE(paper->Integer("twainId") && paper->Integer("pushScanId") &&
                paper->String("paperId"));
    const std::string name = *paper->String("paperId");
    EXPECT_TRUE(twain.insert(*paper->Integer("twainId")).second) << name;
    EXPECT_TRUE(push.insert(*paper->Integer("pushScanId")).second) << name;
    EXPECT_TRUE(names.insert(name).second) << name;
  }
}

TEST_F(ShippedPapers, SizesAreUprightMillimetres) {
  for (const auto& paper : table_.enumerator()) {
    SCOPED_TRACE(*paper->String("paperId"));
    EXPECT_TRUE(paper->String("name"));
    ASSERT_TRUE(paper->Number("width") && paper->Number("height"));
    EXPECT_GT(*paper->Number("width"), 25);
    EXPECT_GT(*paper->Number("height"), *paper->Number("width"));
  }
  EXPECT_EQ(table_.paperByPaperId("B4")->Number("width"), 257) << "the JIS sheet";
  EXPECT_EQ(table_.paperByPaperId("B4-ISO")->Number("width"), 250);
  EXPECT_EQ(table_.paperByPaperId("Executive")->Number("width"), 184.15);
}

// ISO 216, ISO 269, JIS P 0138: halving a sheet gives the next one, rounded down.
TEST_F(ShippedPapers, SeriesHalve) {
  const struct {
    std::string letter, end;
    double width, height;  // of the sheet 0
  } series[] = {
      {"A", "", 841, 1189}, {"C", "", 917, 1297}, {"B", "-ISO", 1000, 1414}, {"B", "", 1030, 1456}};
  for (const auto& [letter, end, width, height] : series) {
    const auto first = table_.paperByPaperId(letter + "0" + end);
    ASSERT_NE(first, nullptr) << letter << end;
    EXPECT_EQ(first->Number("width"), width);
    EXPECT_EQ(first->Number("height"), height);
    for (int n = 0; n < 10; ++n) {
      SCOPED_TRACE(letter + std::to_string(n + 1) + end);
      const auto whole = table_.paperByPaperId(letter + std::to_string(n) + end);
      const auto half = table_.paperByPaperId(letter + std::to_string(n + 1) + end);
      ASSERT_TRUE(whole && half);
      EXPECT_EQ(half->Number("height"), whole->Number("width"));
      EXPECT_NEAR(*half->Number("width"), *whole->Number("height") / 2, 0.51);
    }
  }
}

TEST_F(ShippedPapers, DefaultsAreA4AndLetter) {
  EXPECT_EQ(table_.defaultForMeasurementUnits("Centimeters"), table_.paperByPaperId("A4"));
  EXPECT_EQ(table_.defaultForMeasurementUnits("Inches"), table_.paperByPaperId("Letter"));
  EXPECT_EQ(table_.paperIdByTwainId(1), PropertyValue("A4"));
  EXPECT_EQ(table_.paperIdByTwainId(3), PropertyValue("Letter"));
}

}  // namespace
}  // namespace vox
