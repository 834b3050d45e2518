#include "vox/platform/PropertyList.h"
#include "vox/platform/Utf8.h"

namespace vox {
namespace {

constexpr std::string_view kReplacement = "\xEF\xBF\xBD";  // U+FFFD

// IsForXml says what XML 1.0 (2.2) can hold.
bool IsForXml(char32_t code) {
  if (code < 0x20) return code == '\t' || code == '\n' || code == '\r';
  return code != 0xFFFE && code != 0xFFFF;
}

}  // namespace

std::string FitForXml(std::string_view text) {
  std::string fit;
  fit.reserve(text.size());
  while (!text.empty()) {
    const Utf8Step step = FirstCharacter(text);
    const bool held = step.valid && IsForXml(step.code);
    const std::size_t size = held ? step.size : 1;
    fit += held ? text.substr(0, size) : kReplacement;
    text.remove_prefix(size);
  }
  return fit;
}

}  // namespace vox
