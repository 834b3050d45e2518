#include "tests/support/PlainHenkaten.h"

#include <algorithm>

namespace vox::test {
namespace {

std::uint16_t EndMark(std::uint32_t width) {
  return static_cast<std::uint16_t>(width + 1);
}

// Where position p lies on the other line.
std::int64_t Mapped(std::uint16_t p, std::uint64_t source_width, std::uint64_t width) {
  if (source_width == width) return p;
  const std::uint64_t ratio = width * 65536 / source_width;
  return static_cast<std::int64_t>(p * ratio / 65536);
}

}  // namespace

PlainRaw PlainHenkatenToRaw(const std::vector<std::uint16_t>& list, std::uint32_t source_width,
                            std::uint32_t width, bool checked) {
  PlainRaw raw{0, std::vector<bool>(width)};
  const std::uint16_t mark = EndMark(source_width);
  if (source_width == 0 || list.at(0) >= mark) return raw;
  std::int64_t at = 0;
  for (std::size_t i = 1; i < std::size_t{mark} + 4; ++i) {
    const bool ones = (i - 1) % 2 == 1;
    const std::int64_t run =
        Mapped(list.at(i), source_width, width) - Mapped(list[i - 1], source_width, width);
    const bool goes_back = list[i] < list[i - 1];
    const bool too_far = ones && (run > width || at + run > width);
    if (checked && (goes_back || too_far)) return {1, raw.pixels};
    if (ones)
      for (std::int64_t x = std::max<std::int64_t>(at, 0); x < at + run && x < width; ++x)
        raw.pixels[static_cast<std::size_t>(x)] = true;
    at += run;
    if (list[i] >= mark) return raw;
  }
  raw.result = checked ? 1 : 0;
  return raw;
}

std::size_t ReadableEntries(const std::vector<std::uint16_t>& list, std::uint32_t source_width) {
  const std::uint16_t mark = EndMark(source_width);
  for (std::size_t i = 0; i < list.size(); ++i)
    if (list[i] >= mark) return i + 1;
  return std::size_t{mark} + 4;
}

std::vector<std::uint16_t> ListOf(const std::vector<bool>& pixels, bool closed) {
  std::vector<std::uint16_t> list = {1};
  bool colour = false;
  for (std::size_t x = 0; x < pixels.size(); ++x) {
    if (pixels[x] == colour) continue;
    list.push_back(static_cast<std::uint16_t>(x + 1));
    colour = pixels[x];
  }
  if (closed)
    for (const unsigned beyond : {1, 1, 2, 2})
      list.push_back(static_cast<std::uint16_t>(pixels.size() + beyond));
  return list;
}

std::vector<std::uint8_t> Packed(const std::vector<bool>& pixels) {
  std::vector<std::uint8_t> bytes((pixels.size() + 7) / 8);
  for (std::size_t x = 0; x < pixels.size(); ++x)
    if (pixels[x]) bytes[x / 8] |= static_cast<std::uint8_t>(0x80 >> x % 8);
  return bytes;
}

}  // namespace vox::test
