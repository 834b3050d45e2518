// The arithmetic decoder's registers while lines are decoded (T.82 6.8, conditional exchange).
//
// T.82 keeps A (17 bits, 0x8000 to 0x10000 between pixels) and C, whose upper half Chigh is
// compared with A; bytes enter C from below whenever 8 shifts have used one up. Here C is 64 bits
// wide:
//
//   63        48 47              48-nb 47-nb        0
//   [ Chigh     | nb bits of code ahead |  0         ]
//
// so that several bytes enter at once. nb falls by every shift; below 0 the next byte is missing
// and `refill` runs. T.82's own state is the same with nb cut down to CT (0 to 8).
//
// A decision for the more probable pixel leaves everything but A alone as long as A - Qe stays at
// or above 0x8000 and above Chigh. Chigh moves only when something else happens, so one threshold
// T = max(0x8000, Chigh + 1) answers both questions with one comparison: the likely pixel costs a
// load, a subtraction and a branch, and a run of n likely pixels of one context one multiplication.
//
// Exactness: markers act, and the callback runs, exactly when T.82's BYTEIN would reach them. What
// is read ahead are plain bytes of the piece at hand, which `store` gives back.
#pragma once

#include <bit>
#include <cstdint>

#include "vox/drivers/libjbig3/jbigpack.h"

namespace vox {

struct DECODER {
  std::uint64_t c;  // C, see above
  DWORD a;          // A
  DWORD t;          // T
  int nb;           // code bits below Chigh; 0 to 55, below 0 only between a shift and its refill
  int ahead;        // bytes that the last refill read beyond what T.82 would have
  BYTEW* work;
  CXBANK cx;

  // load and store move the registers from and to T.82's form in BYTEW, not the contexts.
  void load(BYTEW* state);
  void store();
  void refill();
  void set_threshold() {
    const DWORD above = static_cast<DWORD>(c >> 48) + 1;
    t = above < 0x8000 ? 0x8000 : above;
  }

  // slow decides a pixel whose A, already less Qe, fell below T, and moves its context on.
  BYTE slow(DWORD& word) {
    const DWORD qe = word >> 16;
    const DWORD index = word >> 5 & 0xFF;
    bool lps = a < qe;
    if (static_cast<DWORD>(c >> 48) >= a) {
      lps = !lps;
      c -= std::uint64_t{a} << 48;
      a = qe;
    }
    word = lps ? JbigNext.lps[index] : JbigNext.mps[index];
    const int shift = std::countl_zero(a) - 16;
    a <<= shift;
    c <<= shift;
    nb -= shift;
    if (nb < 0) [[unlikely]]
      refill();
    set_threshold();
    return static_cast<BYTE>((index & 1) ^ (lps ? 1 : 0));
  }

  BYTE decide(DWORD& word) {
    a -= word >> 16;
    if (a >= t) return word >> 5 & 1;
    return slow(word);
  }
};

}  // namespace vox
