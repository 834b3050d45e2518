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
//
// The contexts are doubled: an encoder knows the pixel beforehand, so pixel p of raster context x
// has the word 2x + p. The word of the likely pixel is that of jbigpack.h, the other one's says so:
//
//   31            16 15  13 12       6   5   4      0
//   [ Qe            |  0   |  state  | mps |   0    ]   the likely pixel
//   [ 0x8000        |  0   |  state  | mps |   0    ]   the other pixel
//
// A - 0x8000 is below 0x8000 for every A but a stripe's first, so that one subtraction and its sign
// tell a pixel that only makes A smaller from one that has more to do.
#pragma once

#include <array>
#include <bit>
#include <cstdint>
#include <cstring>

#include "vox/drivers/libjbig3/jbigpack.h"

namespace vox {

struct ENCODER;

inline constexpr DWORD kUnlikely = 0x80000000;  // set in the word of a pixel that is not the likely

// The registers that a line's loop keeps in locals.
struct ENCREGS {
  std::uint64_t c;  // C, see above: below 2^(20 + m)
  DWORD a;          // A
  int m;            // shifts that no byte has left for; -3 to 38

  // slow encodes the pixel of word `at`, whatever it does to A.
  [[gnu::always_inline]] void slow(ENCODER& encoder, DWORD at);

  // code encodes one pixel; eight encodes the pixels of the words at(0) to at(7), with A below
  // 0x10000.
  [[gnu::always_inline]] void code(ENCODER& encoder, DWORD at);
  template <typename AT>
  [[gnu::always_inline]] void eight(ENCODER& encoder, const AT& at);
};

struct ENCODER {
  ENCREGS regs;
  BYTEW* work;
  alignas(64) DWORD word[2 * kContexts];

  // load and store move the registers from and to T.82's form in BYTEW, not the contexts.
  void load(BYTEW* state);
  void store();
  void emit();

  // The contexts from and to their form in CODECCSTR::ContextBuff.
  template <int LINES>
  void load_contexts(const WORD* context_buff);
  template <int LINES>
  void store_contexts(WORD* context_buff) const;
};

// The two words of a context, pixel 0's first.
struct ENCPAIR {
  DWORD word[2];
};

constexpr ENCPAIR enc_pair(DWORD likely) {
  ENCPAIR pair{{likely, likely}};
  pair.word[~likely >> 5 & 1] = kUnlikely | (likely & 0xFFFF);
  return pair;
}

// What follows a word of the index (state, mps) after a renormalisation; see CXNEXT.
using ENCNEXT = std::array<std::array<ENCPAIR, 256>, 2>;
extern const ENCNEXT JbigNextPair;

inline void ENCREGS::slow(ENCODER& encoder, DWORD at) {
  const DWORD index = encoder.word[at] >> 5 & 0xFF;
  const DWORD lps = encoder.word[at] >> 31;
  const DWORD qe = JbigWord[index] >> 16;
  a -= qe;
  // All ones when the pixel's part of the interval is the upper one, whose size is Qe.
  const DWORD upper = 0 - ((a < qe ? 1 : 0) ^ lps);
  c += a & upper;
  a ^= (a ^ qe) & upper;
  std::memcpy(encoder.word + (at & ~DWORD{1}), &JbigNextPair[lps][index], sizeof(ENCPAIR));
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

inline void ENCREGS::code(ENCODER& encoder, DWORD at) {
  const DWORD word = encoder.word[at];
  const DWORD less = a - (word >> 16);
  if ((word & kUnlikely) != 0 || less < 0x8000)
    slow(encoder, at);
  else
    a = less;
}

// A is kept in the upper half of `scaled`, from which whole words are subtracted: what they hold
// below Qe is under 0x2000, so that eight of them never borrow from A.
template <typename AT>
inline void ENCREGS::eight(ENCODER& encoder, const AT& at) {
  DWORD scaled = a << 16 | 0xFFFF;
#pragma GCC unroll 8
  for (unsigned j = 0; j < 8; ++j) {
    const DWORD place = at(j);
    const DWORD word = encoder.word[place];
    scaled -= word;
    if ((scaled & 0x80000000) == 0) [[unlikely]] {
      a = (scaled + word) >> 16;
      slow(encoder, place);
      scaled = a << 16 | 0xFFFF;
    }
  }
  a = scaled >> 16;
}

}  // namespace vox
