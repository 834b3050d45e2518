#include "tools/vox/CleanText.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "vox/platform/Utf8.h"

namespace vox::cli {

namespace {

struct Range {
  char32_t first, last;
};

// What acts on the line instead of standing in it. Unicode Standard Annex #9, 2, has the marks of
// direction.
constexpr std::array<Range, 8> kSteering{{
    {0x00, 0x1F},
    {0x7F, 0x9F},
    {0x061C, 0x061C},
    {0x200E, 0x200F},
    {0x2028, 0x2029},  // line and paragraph separator
    {0x202A, 0x202E},
    {0x2066, 0x2069},
    {0x206A, 0x206F},  // deprecated: shapes of digits and letters
}};

bool Steers(char32_t code) {
  return std::any_of(kSteering.begin(), kSteering.end(),
                     [&](const Range& range) { return code >= range.first && code <= range.last; });
}

std::string JsonEscape(char32_t code) {
  std::array<char, 8> text{};
  std::snprintf(text.data(), text.size(), "\\u%04x", static_cast<unsigned>(code));
  return text.data();
}

// Passed gives the text with what `instead` makes of each step that may not be printed.
template <class Instead>
std::string Passed(std::string_view text, bool newlines, Instead instead) {
  std::string passed;
  passed.reserve(text.size());
  while (!text.empty()) {
    const Utf8Step step = FirstCharacter(text);
    if (step.valid && (!Steers(step.code) || (newlines && step.code == '\n'))) {
      passed += text.substr(0, step.size);
    } else {
      passed += instead(step);
    }
    text.remove_prefix(step.size);
  }
  return passed;
}

std::string QuestionMark(const Utf8Step& /*step*/) {
  return "?";
}

}  // namespace

std::string CleanText(std::string_view text) {
  return Passed(text, false, QuestionMark);
}

std::string CleanLines(std::string_view text) {
  return Passed(text, true, QuestionMark);
}

std::string EscapeForTerminal(std::string_view json) {
  return Passed(json, false,
                [](const Utf8Step& step) { return step.valid ? JsonEscape(step.code) : "?"; });
}

}  // namespace vox::cli
