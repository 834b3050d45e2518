// What the line loops of decoder and encoder share: the windows over the lines above, the contexts
// that follow from them, and runs of equal bytes.
//
// A window holds three bytes of a line, [byte b-1][byte b][byte b+1], zeros outside the line. Pixel
// j (0 to 7) of byte b is bit 15 - j, so that all pixels a context of byte b can ask for are in it.
#pragma once

#include <bit>
#include <cstdint>
#include <cstring>

#include "vox/drivers/libjbig3/codec32s.h"

namespace vox {

// Where the AT pixel is: in its default place; 1 to 7 to the left, perhaps in the byte that is
// being worked on; or 8 and more to the left, in bytes that are complete.
enum ATPLACE { kAtDefault, kAtNear, kAtFar };

inline ATPLACE at_place(unsigned tx) {
  return tx == 0 ? kAtDefault : tx < 8 ? kAtNear : kAtFar;
}

// The bits of raster contexts (see jbigpack.h).
template <int LINES>
struct RASTER {
  static constexpr DWORD kCurrent = LINES == 2 ? 0xF : 0x3;  // pixels to the left on line y
  static constexpr unsigned kAtShift = LINES == 2 ? 4 : 2;
  // The window bits that any context of a whole byte sees.
  static constexpr DWORD kSeesAbove = LINES == 2 ? 0x7FFC0 : 0x3FFC0;
  static constexpr DWORD kSeesAbove2 = LINES == 2 ? 0 : 0x1FF80;
  // And the bits that the last context of a byte sees of the byte after it.
  static constexpr BYTE kPeeksAbove = 0xC0;
  static constexpr BYTE kPeeksAbove2 = LINES == 2 ? 0 : 0x80;
};

inline DWORD window_at(const BYTE* line, unsigned b, unsigned bytes) {
  const DWORD before = b > 0 ? DWORD{line[b - 1]} << 16 : 0;
  return before | DWORD{line[b]} << 8 | (b + 1 < bytes ? line[b + 1] : 0);
}

template <int LINES>
struct WINDOWS {
  DWORD above = 0;
  DWORD above2 = 0;  // three lines only

  void load(const BYTE* line, const BYTE* line2, unsigned b, unsigned bytes) {
    above = window_at(line, b, bytes);
    if constexpr (LINES == 3) above2 = window_at(line2, b, bytes);
  }
  // Moves on to byte b.
  void step(const BYTE* line, const BYTE* line2, unsigned b, unsigned bytes) {
    above = (above << 8 & 0xFFFFFF) | (b + 1 < bytes ? line[b + 1] : 0);
    if constexpr (LINES == 3)
      above2 = (above2 << 8 & 0xFFFFFF) | (b + 1 < bytes ? line2[b + 1] : 0);
  }
  // The context of pixel j without line y, and without AT where that is moved.
  template <ATPLACE AT>
  DWORD context(unsigned j) const {
    constexpr DWORD kAtBit = AT == kAtDefault ? 0 : DWORD{1} << RASTER<LINES>::kAtShift;
    if constexpr (LINES == 2) return above >> (9 - j) & (0x3F0 & ~kAtBit);
    return (above >> (11 - j) & (0x7C & ~kAtBit)) | (above2 >> (7 - j) & 0x380);
  }
  // True when every context of byte b sees nothing but pixels of colour `byte` (0x00 or 0xFF).
  bool all(BYTE byte) const {
    const DWORD fill = byte * DWORD{0x010101};
    return ((above ^ fill) & RASTER<LINES>::kSeesAbove) == 0 &&
           ((above2 ^ fill) & RASTER<LINES>::kSeesAbove2) == 0;
  }
};

// The eight AT pixels of byte b for tx of 8 or more.
inline DWORD far_at_pixels(const BYTE* line, unsigned b, unsigned tx) {
  const int bit = static_cast<int>(8 * b) - static_cast<int>(tx);
  const int byte = bit >> 3;
  const int offset = bit & 7;
  const DWORD first = byte >= 0 ? line[byte] : 0;
  if (offset == 0) return first;
  const DWORD second = byte + 1 >= 0 ? line[byte + 1] : 0;
  return (first << 8 | second) >> (8 - offset) & 0xFF;
}

// Pixels of one colour that are known to lie to the left of byte b, for a moved AT pixel.
struct PLAINRUN {
  unsigned pixels = 0xFFFFFF;  // left of the line all is white
  // Goes on over byte b.
  void step(const BYTE* line, unsigned b) {
    const BYTE byte = line[b];
    const bool plain = byte == 0 || byte == 0xFF;
    const bool same = b == 0 ? byte == 0 : line[b - 1] == byte;
    pixels = !plain ? 0 : same ? pixels + 8 : 8;
  }
};

// The eight bytes at `bytes`, and how many of such a value are 0 before the first that is not.
inline std::uint64_t eight_at(const BYTE* bytes) {
  std::uint64_t eight = 0;
  std::memcpy(&eight, bytes, sizeof eight);
  return eight;
}
inline unsigned zeros_before(std::uint64_t eight) {
  const bool little = std::endian::native == std::endian::little;
  return static_cast<unsigned>(little ? std::countr_zero(eight) : std::countl_zero(eight)) / 8;
}

// Returns the first index from `begin` on, `end` at most, at which one of the lines differs from
// `fill`; with two template lines the first counts alone.
template <int LINES>
unsigned run_end(const BYTE* line, const BYTE* line2, unsigned begin, unsigned end, BYTE fill) {
  const std::uint64_t fills = fill * std::uint64_t{0x0101010101010101};
  for (; begin + 8 <= end; begin += 8) {
    std::uint64_t other = eight_at(line + begin) ^ fills;
    if constexpr (LINES == 3) other |= eight_at(line2 + begin) ^ fills;
    if (other != 0) return begin + zeros_before(other);
  }
  while (begin < end && line[begin] == fill && (LINES == 2 || line2[begin] == fill)) ++begin;
  return begin;
}

inline unsigned run_end(const BYTE* line, unsigned begin, unsigned end, BYTE fill) {
  return run_end<2>(line, nullptr, begin, end, fill);
}

// How many bytes from b on, up to `limit`, are coded in one context when the current line goes on
// in colour `fill`: their contexts see that colour alone in the lines above. The windows over byte
// b have been tested; limit is above b and an index of the line.
template <int LINES>
unsigned run_above(const BYTE* line, const BYTE* line2, unsigned b, unsigned limit, BYTE fill) {
  const unsigned end = run_end<LINES>(line, line2, b + 1, limit, fill);
  const bool seen = ((line[end] ^ fill) & RASTER<LINES>::kPeeksAbove) != 0 ||
                    (LINES == 3 && ((line2[end] ^ fill) & RASTER<LINES>::kPeeksAbove2) != 0);
  return end - b - (seen ? 1 : 0);
}

}  // namespace vox
