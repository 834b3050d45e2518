#include "vox/platform/PropertyList.h"

namespace vox {
namespace {

constexpr std::string_view kReplacement = "\xEF\xBF\xBD";  // U+FFFD

// CharacterSize gives how many bytes the UTF-8 character at the start of text has (RFC 3629, 4), or
// 0 when there is none that XML 1.0 (2.2) can hold.
std::size_t CharacterSize(std::string_view text) {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned first = byte(0);
  if (first < 0x80) return first >= 0x20 || first == '\t' || first == '\n' || first == '\r';
  const std::size_t size = first < 0xC2   ? 0
                           : first < 0xE0 ? 2
                           : first < 0xF0 ? 3
                           : first < 0xF5 ? 4
                                          : 0;
  if (size == 0 || text.size() < size) return 0;
  std::uint32_t code = first & (0xFFu >> (size + 1));
  for (std::size_t i = 1; i < size; ++i) {
    if ((byte(i) & 0xC0) != 0x80) return 0;
    code = (code << 6) | (byte(i) & 0x3Fu);
  }
  constexpr std::uint32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
  const bool surrogate = code >= 0xD800 && code <= 0xDFFF;
  const bool held = code >= kSmallest[size] && code <= 0x10FFFF && code != 0xFFFE && code != 0xFFFF;
  return held && !surrogate ? size : 0;
}

}  // namespace

std::string FitForXml(std::string_view text) {
  std::string fit;
  fit.reserve(text.size());
  while (!text.empty()) {
    const std::size_t size = CharacterSize(text);
    fit += size != 0 ? text.substr(0, size) : kReplacement;
    text.remove_prefix(size != 0 ? size : 1);
  }
  return fit;
}

}  // namespace vox
