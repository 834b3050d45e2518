// The contexts in the form that the line loops work on: one 32-bit word holds all that a decision
// needs, so that the likely case is a load and a subtraction.
//
//   31            16 15  13 12       6   5   4      0
//   [ Qe            |  0   |  state  | mps |   0    ]
//
// Bits 5 to 12 are the index (state, mps) of the tables of successors. The zeros below mps let a
// word serve as a shift count of 0 or 32 (modulo 64), which picks one of two neighbouring words.
//
// The loops number the contexts in raster order: line y-2, line y-1, AT, line y, most significant
// bit first. For three template lines that is the order of CODECCSTR::ContextBuff; for two lines
// the transfer below reorders.
#pragma once

#include <array>
#include <cstdint>

#include "vox/drivers/libjbig3/codec32s.h"

namespace vox {

struct CXBANK {
  alignas(64) DWORD word[kContexts];
};

// The words that follow (state, mps) after a renormalisation: [0] after the more probable pixel,
// [1] after the less probable one. 256 entries, so that no index of the eight bits leaves the
// table.
using CXNEXT = std::array<std::array<DWORD, 256>, 2>;
extern const CXNEXT JbigNext;

// The word after a pixel, renormalised or not: [0] the same, [1] after a renormalisation for the
// more probable pixel, [2] after the less probable one.
using CXSTEP = std::array<std::array<DWORD, 256>, 3>;
extern const CXSTEP JbigStep;

// How far the Qe of (state, mps) is shifted until it reaches 0x8000.
extern const std::array<BYTE, 256> JbigShift;

// The words of all (state, mps), the state in bits 1 to 7 and mps in bit 0 of the index; states
// beyond the table stand for state 0.
extern const std::array<DWORD, 256> JbigWord;

// Raster number of the context of SLNTP.
template <int LINES>
inline constexpr DWORD kTpRaster = LINES == 2 ? 0x195 : kTpContext;

template <int LINES>
void cx_load(CXBANK& bank, const WORD* context_buff);
template <int LINES>
void cx_store(const CXBANK& bank, WORD* context_buff);
void cx_clear(CXBANK& bank);

}  // namespace vox
