// The arithmetic encoder's registers while lines are encoded (T.82 6.8, conditional exchange).
//
// T.82 keeps A (17 bits) and C, of which the bits from 19 up are the next byte, bit 27 being a
// carry into the bytes before it; a byte leaves after every 8 shifts. Here C is 64 bits wide and
// several bytes collect in it:
//
//   19+m+1  19+m  19+m-1              19 18      0
//   [   carry  ]  [ m bits for bytes    |  rest   ]
//
// m is -3 when a stripe starts (3 spacer bits, T.82's CT of 11), and 8 - CT in T.82's terms while
// it is below 8. A carry that meets bytes still in C settles itself; one that leaves at the top
// goes through Byte_out, which holds back the bytes that it could still change.
#pragma once

#include <bit>
#include <cstdint>

#include "vox/drivers/libjbig3/jbigpack.h"

namespace vox {

struct ENCODER;

// The registers that a line's loop keeps in locals.
struct ENCREGS {
  std::uint64_t c;  // C, see above: below 2^(20 + m)
  DWORD a;          // A
  int m;            // shifts that no byte has left for; -3 to 38

  // slow encodes a pixel that is not the likely one, or whose A, already less Qe, fell below
  // 0x8000.
  [[gnu::always_inline]] void slow(ENCODER& encoder, DWORD& word, DWORD pixel);

  [[gnu::always_inline]] void code(ENCODER& encoder, DWORD& word, DWORD pixel) {
    a -= word >> 16;
    if (((word >> 5 ^ pixel) & 1) != 0 || a < 0x8000) [[unlikely]]
      slow(encoder, word, pixel);
  }
};

struct ENCODER {
  ENCREGS regs;
  BYTEW* work;
  CXBANK cx;

  // load and store move the registers from and to T.82's form in BYTEW, not the contexts.
  void load(BYTEW* state);
  void store();
  void emit();
};

inline void ENCREGS::slow(ENCODER& encoder, DWORD& word, DWORD pixel) {
  const DWORD qe = word >> 16;
  const DWORD index = word >> 5 & 0xFF;
  const DWORD lps = (pixel ^ index) & 1;
  // All ones when the pixel's part of the interval is the upper one, whose size is Qe.
  const DWORD upper = 0 - ((a < qe ? 1 : 0) ^ lps);
  c += a & upper;
  a ^= (a ^ qe) & upper;
  word = JbigNext[lps][index];
  const int shift = std::countl_zero(a) - 16;
  a <<= shift;
  c <<= shift;
  m += shift;
  if (m >= 24) [[unlikely]] {
    encoder.regs.c = c;
    encoder.regs.m = m;
    encoder.emit();
    c = encoder.regs.c;
    m = encoder.regs.m;
  }
}

}  // namespace vox
