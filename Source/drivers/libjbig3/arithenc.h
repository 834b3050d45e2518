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

struct ENCODER {
  std::uint64_t c;  // C, see above: below 2^(20 + m)
  DWORD a;          // A
  int m;            // shifts that no byte has left for; -3 to 38
  BYTEW* work;
  CXBANK cx;

  // load and store move the registers from and to T.82's form in BYTEW, not the contexts.
  void load(BYTEW* state);
  void store();
  void emit();

  // slow encodes a pixel that is not the likely one, or whose A, already less Qe, fell below
  // 0x8000.
  void slow(DWORD& word, BYTE pixel) {
    const DWORD qe = word >> 16;
    const DWORD index = word >> 5 & 0xFF;
    const bool lps = pixel != (index & 1);
    if ((a < qe) != lps) {
      c += a;
      a = qe;
    }
    word = lps ? JbigNext.lps[index] : JbigNext.mps[index];
    const int shift = std::countl_zero(a) - 16;
    a <<= shift;
    c <<= shift;
    m += shift;
    if (m >= 24) [[unlikely]]
      emit();
  }

  void code(DWORD& word, BYTE pixel) {
    a -= word >> 16;
    if (((word >> 5 ^ pixel) & 1) != 0 || a < 0x8000) slow(word, pixel);
  }
};

}  // namespace vox
