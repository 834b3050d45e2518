// UTF-8 a character at a time, whole and damaged.
#include "vox/platform/Utf8.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

namespace vox {
namespace {

std::string Encoded(char32_t code) {
  const auto tail = [&](int shift) { return static_cast<char>(0x80 | ((code >> shift) & 0x3F)); };
  if (code < 0x80) return {static_cast<char>(code)};
  if (code < 0x800) return {static_cast<char>(0xC0 | (code >> 6)), tail(0)};
  if (code < 0x10000) return {static_cast<char>(0xE0 | (code >> 12)), tail(6), tail(0)};
  return {static_cast<char>(0xF0 | (code >> 18)), tail(12), tail(6), tail(0)};
}

TEST(Utf8, EveryCharacterIsReadAndNoSurrogate) {
  for (char32_t code = 0; code <= 0x110100; ++code) {
    const std::string text = Encoded(code) + "x";
    const Utf8Step step = FirstCharacter(text);
    const bool valid = code <= 0x10FFFF && (code < 0xD800 || code > 0xDFFF);
    ASSERT_EQ(step.size, text.size() - 1) << std::hex << std::uint32_t{code};
    ASSERT_EQ(step.valid, valid) << std::hex << std::uint32_t{code};
    if (valid) {
      ASSERT_EQ(step.code, code);
    }
  }
}

struct BadRow {
  std::string text;
  std::size_t size;
};

TEST(Utf8, WhatIsNoCharacterIsOneSequence) {
  const BadRow rows[] = {
      {"\x80", 1},                  // begins nothing
      {"\xBF\xBF", 1},              //
      {"\xC0\xAF/", 2},             // overlong
      {"\xC1\xBFx", 2},             //
      {"\xE0\x80\x80", 3},          //
      {"\xE0\x9F\xBF", 3},          //
      {"\xF0\x8F\xBF\xBF", 4},      //
      {"\xED\xA0\x80", 3},          // surrogates
      {"\xED\xBF\xBF", 3},          //
      {"\xF4\x90\x80\x80", 4},      // above U+10FFFF
      {"\xF7\xBF\xBF\xBF\xBF", 4},  //
      {"\xF8\x88\x80\x80\x80", 1},  // forms of old
      {"\xFE", 1},                  //
      {"\xFF\xFF", 1},              //
      {"\xC3", 1},                  // cut off
      {"\xE2\x82", 2},              //
      {"\xF0\x9F\x96", 3},          //
      {"\xE2\x82X", 2},             //
      {"\xE2\xE2\x82\xAC", 1},      //
      {"\xC3\0"
       "a",
       1},
  };
  for (const BadRow& row : rows) {
    const Utf8Step step = FirstCharacter(row.text);
    EXPECT_FALSE(step.valid) << testing::PrintToString(row.text);
    EXPECT_EQ(step.size, row.size) << testing::PrintToString(row.text);
  }
  EXPECT_EQ(FirstCharacter("").size, 0U);
}

}  // namespace
}  // namespace vox
