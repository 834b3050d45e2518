#include "vox/platform/Utf8.h"

#include <cstdint>

namespace vox {
namespace {

// SizeOf gives how many bytes the first one says that its character has.
std::size_t SizeOf(unsigned first) {
  if (first < 0xC0 || first >= 0xF8) return 1;
  return first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
}

bool IsCharacter(char32_t code, std::size_t size) {
  constexpr char32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
  const bool surrogate = code >= 0xD800 && code <= 0xDFFF;
  return code >= kSmallest[size] && code <= 0x10FFFF && !surrogate;
}

}  // namespace

Utf8Step FirstCharacter(std::string_view text) {
  if (text.empty()) return {};
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned first = byte(0);
  if (first < 0x80) return {1, true, first};
  const std::size_t size = SizeOf(first);
  char32_t code = first & (0xFFu >> (size + 1));
  std::size_t read = 1;
  for (; read < size && read < text.size() && (byte(read) & 0xC0) == 0x80; ++read)
    code = (code << 6) | (byte(read) & 0x3Fu);
  if (size == 1 || read < size || !IsCharacter(code, size)) return {read, false, 0};
  return {size, true, code};
}

}  // namespace vox
