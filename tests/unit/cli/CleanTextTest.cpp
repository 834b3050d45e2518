// What text from outside becomes before a terminal sees it.
#include "tools/vox/CleanText.h"

#include <string>

#include <gtest/gtest.h>

#include "tools/vox/Json.h"
#include "tools/vox/Output.h"

namespace vox::cli::test {
namespace {

using namespace std::string_literals;

struct CleanRow {
  std::string text, clean;
};

const CleanRow kRows[] = {
    {"", ""},
    {"Office 2 (east) ~", "Office 2 (east) ~"},
    {"B\xC3\xBCro \xE2\x82\xAC \xF0\x9F\x96\xA8", "B\xC3\xBCro \xE2\x82\xAC \xF0\x9F\x96\xA8"},
    {"\xD7\x9E\xD7\xA9 \xD9\x85\xDA\xA9 a\xE2\x80\x8D\xE2\x80\x8C",
     "\xD7\x9E\xD7\xA9 \xD9\x85\xDA\xA9 a\xE2\x80\x8D\xE2\x80\x8C"},  // joiners belong to words
    {"\xC2\xA0\xE2\x80\x90\xE2\x80\xAF\xE2\x81\xA5",
     "\xC2\xA0\xE2\x80\x90\xE2\x80\xAF\xE2\x81\xA5"},
    {"a\033[31m\r\n\tb\x7F", "a?[31m???b?"},
    {"a\0b"s, "a?b"},
    {"\xC2\x80\xC2\x84\xC2\x85\xC2\x9B\x32J\xC2\x9F", "????2J?"},  // C1
    {"\xD8\x9C", "?"},                                             // U+061C
    {"\xE2\x80\x8E\xE2\x80\x8F", "??"},                            // U+200E, U+200F
    {"\xE2\x80\xA8\xE2\x80\xA9", "??"},                            // U+2028, U+2029
    {"a\xE2\x80\xAA\xE2\x80\xAB\xE2\x80\xAC\xE2\x80\xAD\xE2\x80\xAEgnp.exe", "a?????gnp.exe"},
    {"\xE2\x81\xA6\xE2\x81\xA7\xE2\x81\xA8\xE2\x81\xA9", "????"},  // U+2066 to U+2069
    {"\xC0\x9B[2J", "?[2J"},                                       // overlong
    {"\xE0\x80\x9B\xF0\x80\x80\x9B", "??"},                        //
    {"a\xED\xA0\x80z\xED\xB0\x80", "a?z?"},                        // surrogates
    {"\xF4\x90\x80\x80", "?"},
    {"a\xE2\x82", "a?"},
    {"\xE2\x82z\xC3", "?z?"},
    {"B\xFCro \x9B\x9B", "B?ro ??"},
};

TEST(CleanTextTest, WhatSteersIsReplacedAndWordsPass) {
  for (const CleanRow& row : kRows) {
    EXPECT_EQ(CleanText(row.text), row.clean) << testing::PrintToString(row.text);
    EXPECT_EQ(CleanText(row.clean), row.clean) << "clean text stays";
  }
}

TEST(CleanTextTest, LinesKeepTheirEndsAlone) {
  EXPECT_EQ(CleanLines("a\nb\r\n\xC2\x85\033\n"), "a\nb?\n??\n");
}

TEST(CleanTextTest, JsonKeepsEveryCharacterEscaped) {
  for (const CleanRow& row : kRows) {
    const std::string line = JsonLine({{"name", row.text}});
    EXPECT_EQ(CleanLines(line), line) << "safe as it stands";
    const std::string name = Json::parse(line)["name"];
    EXPECT_EQ(JsonLine({{"name", name}}), line) << "comes back";
  }
  EXPECT_EQ(JsonLine({{"a", "\xC2\x9B\x7F\xE2\x80\xAE\xC3\xA4\033"}}),
            "{\"a\":\"\\u009b\\u007f\\u202e\xC3\xA4\\u001b\"}\n");
  EXPECT_EQ(JsonLine({{"a", "\xC0"}}), "{\"a\":\"\xEF\xBF\xBD\"}\n");
}

TEST(PrintTest, StandardOutputAndErrorAreCleanWhateverIsPrinted) {
  testing::internal::CaptureStdout();
  PrintOut("a\033\xC2\x9B\nb\n");
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "a??\nb\n");
  testing::internal::CaptureStderr();
  PrintError("no \033[2J\n\xE2\x80\xAE");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "vox: no ?[2J??\n");
}

}  // namespace
}  // namespace vox::cli::test
