// The codec's constant tables, exported.
#pragma once

#include <array>
#include <cstdint>

#include "vox/drivers/libjbig3/codec32s.h"
#include "vox/platform/Export.h"

namespace vox {

// A 16-bit value kept most significant byte first, whatever the host.
struct BE16 {
  BYTE high, low;
  constexpr operator WORD() const { return static_cast<WORD>(high << 8 | low); }
};

// One state of the probability estimation: a row of T.82 Table 24.
struct JBIGTBL {
  BE16 LSZ;    // Qe: size of the less probable part
  BE16 zero;   // 0
  BYTE NLPS;   // next state after the less probable pixel
  BYTE NMPS;   // next state after the more probable pixel
  BE16 SWTCH;  // 1: the less probable pixel exchanges mps
};
static_assert(sizeof(JBIGTBL) == 8);

inline constexpr int kJbigStates = 113;

extern VOX_EXPORT const std::array<JBIGTBL, kJbigStates> JbigTbl;

// LSBMSB[i] is i with its eight bits in reverse order.
extern VOX_EXPORT const std::array<BYTE, 256> LSBMSB;

// CXsetup2 advances a two-line context by a pixel: entry (context & 0xFF) << 1 | pixel is the next
// context, in which bit 2 (the AT pixel) is 0 and bit 3 the old AT pixel, as is right while AT is
// in its default place.
extern VOX_EXPORT const std::array<WORD, 512> CXsetup2;

}  // namespace vox
