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

struct DECODER;

// The registers that a line's loop keeps in locals.
struct DECREGS {
  std::uint64_t c;  // C, see above
  DWORD a;          // A
  DWORD t;          // T
  int nb;           // code bits below Chigh; 0 to 55, below 0 only between a shift and its refill

  void set_threshold() {
    const DWORD above = static_cast<DWORD>(c >> 48) + 1;
    t = above < 0x8000 ? 0x8000 : above;
  }

  // slow decides a pixel whose A, already less Qe, fell below T, and moves its context on. Which
  // way it goes cannot be foreseen, so nothing in it branches but the refill.
  [[gnu::always_inline]] DWORD slow(DECODER& decoder, DWORD& word);

  [[gnu::always_inline]] DWORD decide(DECODER& decoder, DWORD& word) {
    a -= word >> 16;
    if (a >= t) [[likely]]
      return word >> 5 & 1;
    return slow(decoder, word);
  }
};

struct DECODER {
  DECREGS regs;
  int ahead;  // bytes that the last refill read beyond what T.82 would have
  BYTEW* work;
  CXBANK cx;

  // load and store move the registers from and to T.82's form in BYTEW, not the contexts.
  void load(BYTEW* state);
  void store();
  void refill();
  // The same for registers that are kept elsewhere.
  [[gnu::always_inline]] void refill(std::uint64_t& c, int& nb) {
    regs.c = c;
    regs.nb = nb;
    refill();
    c = regs.c;
    nb = regs.nb;
  }

 private:
  void take_eight(std::uint64_t bytes);
};

inline DWORD DECREGS::slow(DECODER& decoder, DWORD& word) {
  const DWORD qe = word >> 16;
  const DWORD index = word >> 5 & 0xFF;
  // All ones when the code lies in the upper part of the interval, whose size is Qe.
  const DWORD upper = static_cast<DWORD>(c >> 48) >= a ? ~DWORD{0} : 0;
  const DWORD lps = ((a < qe ? 1 : 0) ^ upper) & 1;
  c -= std::uint64_t{a & upper} << 48;
  a ^= (a ^ qe) & upper;
  word = JbigNext[lps][index];
  const int shift = std::countl_zero(a) - 16;
  a <<= shift;
  c <<= shift;
  nb -= shift;
  if (nb < 0) [[unlikely]]
    decoder.refill(c, nb);
  set_threshold();
  return (index & 1) ^ lps;
}

}  // namespace vox
