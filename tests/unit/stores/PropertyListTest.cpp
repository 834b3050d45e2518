// Property lists as bytes, both ways.
#include "vox/platform/PropertyList.h"

#include <cmath>
#include <limits>

#include <gtest/gtest.h>
#include <locale.h>

namespace vox {
namespace {

using std::string_literals::operator""s;
using std::string_view_literals::operator""sv;

std::optional<PropertyValue> Again(const PropertyValue& value) {
  const auto xml = PropertyListXml(value);
  return xml ? ParsePropertyList(*xml) : std::nullopt;
}

std::optional<PropertyValue> InList(const std::string& element) {
  return ParsePropertyList("<plist version=\"1.0\">" + element + "</plist>");
}

// A binary list of up to 14 small objects, the first of which is the root.
std::string Binary(const std::vector<std::string>& objects) {
  std::string list = "bplist00";
  std::string table;
  for (const std::string& object : objects) {
    table += static_cast<char>(list.size());
    list += object;
  }
  const char at = static_cast<char>(list.size());
  list += table + "\0\0\0\0\0\0\1\1"s;
  list += "\0\0\0\0\0\0\0"s + static_cast<char>(objects.size());
  list += "\0\0\0\0\0\0\0\0"s;
  return list + "\0\0\0\0\0\0\0"s + at;
}

TEST(PropertyList, EveryValueComesBackFromXml) {
  using Limits = std::numeric_limits<std::int64_t>;
  const Date earliest{
      std::chrono::seconds(std::int64_t{978307200} + std::numeric_limits<std::int32_t>::min())};
  const Date latest{
      std::chrono::seconds(std::int64_t{978307200} + std::numeric_limits<std::int32_t>::max())};
  const PropertyValue values[] = {
      "",
      "plain",
      " blanks around \t\n",
      "<&>\"'",
      "\xC3\xA4\xE2\x82\xAC\xF0\x9F\x96\xA8",
      "]]>",
      0,
      -1,
      5,
      Limits::max(),
      Limits::min(),
      std::numeric_limits<std::uint64_t>::max(),
      std::uint64_t{1} << 63,
      0.0,
      0.8,
      0.1,
      1e300,
      -1e-300,
      5e-324,
      1.0 / 3,
      std::nan(""),
      std::numeric_limits<double>::infinity(),
      -std::numeric_limits<double>::infinity(),
      true,
      false,
      Data{},
      Data{0},
      Data(1000, 0xFF),
      Date{},
      Date{std::chrono::seconds(1)},
      earliest,
      latest,
      Array{},
      Array{1, "two", Array{3.0}},
      Dictionary{},
      Dictionary{{"", 1}, {"a b", 2}, {"<&>", Dictionary{{"x", Array{}}}}},
  };
  for (const PropertyValue& value : values) {
    const auto again = Again(value);
    ASSERT_TRUE(again) << *PropertyListXml(value);
    EXPECT_EQ(*again, value) << *PropertyListXml(value) << *PropertyListXml(*again);
  }
}

TEST(PropertyList, BinaryIsReadLikeXml) {
  const PropertyValue expected = Dictionary{{"ip", "10.0.0.1"}, {"n", -2}, {"on", true}};
  const std::string bytes = Binary({"\xD3\x01\x02\x03\x04\x05\x06"s, "\x52ip", "\x51n", "\x52on",
                                    "\x58"
                                    "10.0.0.1",
                                    "\x13\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFE", "\x09"});
  EXPECT_EQ(ParsePropertyList(bytes), expected);
}

TEST(PropertyList, BinaryTextOfSixteenBitUnits) {
  EXPECT_EQ(ParsePropertyList(Binary({"\x62\x00\xE4\x20\xAC"s})),
            PropertyValue("\xC3\xA4\xE2\x82\xAC"));
}

TEST(PropertyList, ReferenceIntoAnArchiveReadsAsItsXmlForm) {
  EXPECT_EQ(ParsePropertyList(Binary({"\x80\x05"s})), PropertyValue(Dictionary{{"CF$UID", 5}}));
}

struct Bad {
  const char* why;
  std::string_view bytes;
};

TEST(PropertyList, BadBytesAreNoList) {
  const Bad rows[] = {
      {"empty", ""},
      {"text", "hello"},
      {"another language", "<html></html>"},
      {"no value", "<plist></plist>"},
      {"cut after a key", "<plist><dict><key>a</key>"},
      {"cut inside a tag", "<plist><dict><key"},
      {"value without key", "<plist><dict><true/></dict></plist>"},
      {"unknown entity", "<plist><string>&bogus;</string></plist>"},
      {"definitions of its own",
       "<!DOCTYPE plist [<!ENTITY a \"aaaa\">]><plist><string>&a;</string></plist>"},
      {"magic alone", "bplist00"},
      {"zeros", "\0\0\0\0"sv},
  };
  for (const Bad& row : rows) EXPECT_FALSE(ParsePropertyList(row.bytes)) << row.why;
}

TEST(PropertyList, NullOfBinaryListsIsNoValue) {
  EXPECT_FALSE(ParsePropertyList(Binary({"\x00"s})));
  EXPECT_FALSE(ParsePropertyList(Binary({"\xA1\x01"s, "\x00"s})));
}

TEST(PropertyList, EveryCutOfAGoodListIsHarmless) {
  const PropertyValue value = Dictionary{{"a", Array{1, "x", Data{1, 2, 3}}}, {"b", -1.5}};
  const std::string xml = *PropertyListXml(value);
  const std::string binary = Binary({"\xD1\x01\x02"s,
                                     "\x51"
                                     "a",
                                     "\xA2\x03\x03"s, "\x10\x05"s});
  ASSERT_TRUE(ParsePropertyList(binary));
  const std::size_t end = xml.rfind("</plist>");  // what follows the value may be missing
  for (std::size_t size = 0; size < end; ++size) ParsePropertyList(xml.substr(0, size));
  for (std::size_t size = 0; size < binary.size(); ++size) {
    EXPECT_FALSE(ParsePropertyList(binary.substr(0, size))) << size;
  }
}

TEST(PropertyList, TextIsMadeFitForXml) {
  struct Row {
    std::string text, fit;
  };
  const std::string mark = "\xEF\xBF\xBD";
  const Row rows[] = {
      {"a\0b"s, "a" + mark + "b"},
      {"\x01\x1F\t\n\r", mark + mark + "\t\n\r"},
      {"\x7F", "\x7F"},
      {"\x80", mark},
      {"\xC0\x80", mark + mark},                                              // longer than needed
      {"\xE0\x80\x80", mark + mark + mark},                                   // longer than needed
      {"\xF0\x8F\xBF\xBF", mark + mark + mark + mark},                        // longer than needed
      {"\xED\xA0\x80", mark + mark + mark},                                   // half of a pair
      {"\xEF\xBF\xBE\xEF\xBF\xBF", mark + mark + mark + mark + mark + mark},  // not in XML
      {"\xF4\x8F\xBF\xBF", "\xF4\x8F\xBF\xBF"},                               // the last character
      {"\xF4\x90\x80\x80", mark + mark + mark + mark},                        // beyond it
      {"\xE2\x82", mark + mark},                                              // cut
      {"\xFFok", mark + "ok"},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(FitForXml(row.text), row.fit);
    EXPECT_EQ(Again(row.text), PropertyValue(row.fit));
    EXPECT_EQ(Again(Dictionary{{row.text, 1}}), PropertyValue(Dictionary{{row.fit, 1}}));
  }
}

TEST(PropertyList, InvalidTextOfAFileIsReadFit) {
  EXPECT_EQ(InList("<string>a\xFF"
                   "b</string>"),
            PropertyValue("a\xEF\xBF\xBD"
                          "b"));
  // libplist does not read what a binary list holds behind a NUL.
  EXPECT_EQ(ParsePropertyList(Binary({"\x53"
                                      "a\0b"s})),
            PropertyValue("a"));
}

TEST(PropertyList, DatesOutsideOfWhatFilesHoldTakeTheNearest) {
  const Date far{std::chrono::seconds(std::numeric_limits<std::int64_t>::max())};
  const Date nearest{
      std::chrono::seconds(std::int64_t{978307200} + std::numeric_limits<std::int32_t>::max())};
  EXPECT_EQ(Again(far), PropertyValue(nearest));
}

PropertyValue Nested(int depth) {
  PropertyValue value = Array{};
  for (int i = 1; i < depth; ++i)
    value = i % 2 != 0 ? PropertyValue(Array{value}) : Dictionary{{"k", value}};
  return value;
}

TEST(PropertyList, NestsAsDeepAsTheLimitBothWays) {
  EXPECT_EQ(Again(Nested(kPropertyListDepth)), Nested(kPropertyListDepth));
  EXPECT_FALSE(PropertyListXml(Nested(kPropertyListDepth + 1)));
}

TEST(PropertyList, HoldsAsManyValuesAsTheLimitBothWays) {
  const PropertyValue most = Array(kPropertyListNodes - 1, true);
  EXPECT_EQ(Again(most), most);
  EXPECT_FALSE(PropertyListXml(Array(kPropertyListNodes, true)));
}

TEST(PropertyList, SharedPartsCountWhereverTheyStand) {
  PropertyValue many = Data(1 << 20, 0);
  for (int i = 0; i < 40; ++i) many = Array{many, many};
  EXPECT_FALSE(PropertyListXml(many));
  EXPECT_FALSE(PropertyListXml(Array(64, Data(1 << 20, 0))));
}

// Some locales write fractions with a comma; files do not. Where none is installed, this still
// sees that the thread's own locale is left as it was.
TEST(PropertyList, FractionsKeepTheirPointInEveryLocale) {
  locale_t own = ::newlocale(LC_ALL_MASK, "de_DE.UTF-8", nullptr);
  if (own == nullptr) own = ::newlocale(LC_ALL_MASK, "C.UTF-8", nullptr);
  ASSERT_NE(own, nullptr);
  const locale_t before = ::uselocale(own);
  const auto xml = PropertyListXml(0.5);
  const auto again = ParsePropertyList(*xml);
  const locale_t after = ::uselocale(before);
  ::freelocale(own);
  EXPECT_EQ(after, own);
  EXPECT_NE(xml->find("<real>0.5</real>"), std::string::npos) << *xml;
  EXPECT_EQ(again, PropertyValue(0.5));
}

}  // namespace
}  // namespace vox
