#include "vox/drivers/LineMirror.h"

#include <algorithm>

namespace vox {
namespace {

constexpr std::array<unsigned char, 256> reversed_bytes() {
  std::array<unsigned char, 256> table{};
  for (unsigned n = 0; n < table.size(); ++n) {
    unsigned reversed = 0;
    for (unsigned bit = 0; bit < 8; ++bit) reversed |= ((n >> bit) & 1u) << (7 - bit);
    table[n] = static_cast<unsigned char>(reversed);
  }
  return table;
}

}  // namespace

constexpr std::array<unsigned char, 256> kBitReversal = reversed_bytes();

void mirror_grey(unsigned char* line, std::size_t size) {
  std::reverse(line, line + size);
}

void mirror_colour(unsigned char* line, std::size_t size) {
  if (size < 6) return;
  unsigned char* left = line;
  unsigned char* right = line + (size / 3 - 1) * 3;
  for (; left < right; left += 3, right -= 3) std::swap_ranges(left, left + 3, right);
}

void mirror_bits(unsigned char* line, std::size_t size) {
  std::reverse(line, line + size);
  std::transform(line, line + size, line, [](unsigned char byte) { return kBitReversal[byte]; });
}

bool mirror_line(unsigned char* line, std::size_t size, std::uint32_t DataType) {
  switch (DataType) {
    case 0:
      mirror_bits(line, size);
      return true;
    case 2:
      mirror_grey(line, size);
      return true;
    case 3:
      mirror_colour(line, size);
      return true;
    default:
      return false;
  }
}

}  // namespace vox
