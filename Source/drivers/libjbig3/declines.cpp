#include "vox/drivers/libjbig3/declines.h"

#include "vox/drivers/libjbig3/linewin.h"

namespace vox {
namespace {

// A line being decoded. `past` holds the pixels to the left, the nearest in bit 0.
template <int LINES, ATPLACE AT>
struct DECLINE {
  DECODER& decoder;
  BYTE* dst;
  const BYTE* above;
  const BYTE* above2;
  unsigned bytes;
  unsigned tx;
  WINDOWS<LINES> windows{};
  unsigned b = 0;  // the byte that is being decoded
  DWORD past = 0;
  PLAINRUN plain{};
  unsigned effort = 0;  // renormalisations in this line, those of the last bytes counting most

  // From this effort on, three renormalisations in eight pixels, a byte is busy.
  static constexpr unsigned kBusy = 6;
  static constexpr DWORD kCurrent = RASTER<LINES>::kCurrent;

  // The loop over whole bytes keeps the registers in locals; the other steps find them in
  // `decoder`.
  void decode(unsigned width);
  bool starts_run() const;
  bool skip_run();
  void whole_byte(DECREGS& regs);
  void eight_pixels(DECREGS& regs);
  void eight_busy_pixels(DECREGS& regs);
  void pixels(unsigned from, unsigned count);
  void next_byte();
  DWORD at_of_byte() const { return AT == kAtFar ? far_at_pixels(dst, b, tx) : 0; }
  // The context of pixel j, `left` being the pixels to its left.
  DWORD context(unsigned j, DWORD at, DWORD left) const {
    DWORD at_pixel = 0;
    if constexpr (AT == kAtNear) at_pixel = left >> (tx - 1) & 1;
    if constexpr (AT == kAtFar) at_pixel = at >> (7 - j) & 1;
    return windows.template context<AT>(j) | at_pixel << RASTER<LINES>::kAtShift |
           (left & kCurrent);
  }
};

template <int LINES, ATPLACE AT>
[[gnu::noinline]] void DECLINE<LINES, AT>::pixels(unsigned from, unsigned count) {
  DECREGS regs = decoder.regs;
  const DWORD at = at_of_byte();
  for (unsigned j = from; j < count; ++j)
    past = past << 1 | regs.decide(decoder, decoder.cx.word[context(j, at, past)]);
  dst[b] = static_cast<BYTE>(past << (8 - count));
  decoder.regs = regs;
}

// Two neighbouring words, the one for a last pixel of 0 in the lower half.
inline std::uint64_t pair_at(const DWORD* words) {
  return words[0] | std::uint64_t{words[1]} << 32;
}

// Eight pixels. The way from a pixel to the next one's word is the bottleneck: a load waits for the
// pixel. So the words for both values of the pixel are loaded before it is known, and the word of
// the pixel itself is the shift count that picks one (see jbigpack.h).
// A is kept in the upper half of `scaled`, from which whole words are subtracted: what they hold
// below Qe is under 0x2000, so that eight of them never borrow from A.
template <int LINES, ATPLACE AT>
[[gnu::always_inline]] inline void DECLINE<LINES, AT>::eight_pixels(DECREGS& regs) {
  const DWORD at = at_of_byte();
  DWORD* const words = decoder.cx.word;
  DWORD scaled = regs.a << 16 | 0xFFFF;
  DWORD limit = regs.t << 16;
  std::uint64_t last = std::uint64_t{past & 1} << 5;  // the pixel to the left, as a shift count
  DWORD left = past >> 1;                             // the pixels to the left of that
  std::uint64_t pair = pair_at(words + context(0, at, left << 1));
  unsigned slow = 0;
#pragma GCC unroll 8
  for (unsigned j = 0; j < 8; ++j) {
    const auto word = static_cast<DWORD>(pair >> (last & 63));
    left = left << 1 | (static_cast<DWORD>(last) >> 5 & 1);
    const DWORD next = j < 7 ? context(j + 1, at, left << 1) : 0;
    pair = pair_at(words + next);
    scaled -= word;
    last = word;
    if (scaled < limit) [[unlikely]] {
      ++slow;
      regs.a = scaled >> 16;
      last = std::uint64_t{regs.slow(decoder, words[context(j, at, left)])} << 5;
      scaled = regs.a << 16 | 0xFFFF;
      limit = regs.t << 16;
      pair = pair_at(words + next);
    }
  }
  effort = effort / 2 + slow;
  regs.a = scaled >> 16;
  past = left << 1 | (static_cast<DWORD>(last) >> 5 & 1);
  dst[b] = static_cast<BYTE>(past);
}

// Keeps the compiler from making branches of what follows from a value.
inline DWORD opaque(DWORD value) {
  asm("" : "+r"(value));
  return value;
}

// The same where the more probable pixel is not much more so, as in halftones: whether A falls
// below T cannot be foreseen there, and a wrong guess costs more than a renormalisation. So every
// pixel goes all the way, a shift by 0 included, and nothing branches but the refill.
template <int LINES, ATPLACE AT>
[[gnu::noinline]] void DECLINE<LINES, AT>::eight_busy_pixels(DECREGS& regs) {
  const DWORD at = at_of_byte();
  DWORD* const words = decoder.cx.word;
  DWORD a = regs.a;
  std::uint64_t c = regs.c;
  int nb = regs.nb;
  DWORD left = past;
  DWORD* place = words + context(0, at, left);
  DWORD word = *place;
  DWORD moved = 0;
#pragma GCC unroll 8
  for (unsigned j = 0; j < 8; ++j) {
    const DWORD index = word >> 5 & 0xFF;
    const DWORD qe = word >> 16;
    DWORD* const next = words + (j < 7 ? context(j + 1, at, left << 1) : 0);
    const DWORD upper_shift = JbigShift[index];
    a -= qe;
    const DWORD upper = opaque(static_cast<DWORD>(c >> 48) >= a ? ~DWORD{0} : 0);
    const DWORD lps = opaque((a < qe ? 1u : 0u) ^ (upper & 1));
    // In the lower part A is above 0x2000: 2 below 0x4000, 1 below 0x8000, else 0.
    const DWORD lower_shift = opaque((a >> 14 ^ 3) * 3 >> 2);
    c -= std::uint64_t{a & upper} << 48;
    a ^= (a ^ qe) & upper;
    const DWORD shift = lower_shift ^ ((lower_shift ^ upper_shift) & upper);
    const DWORD moves = a >> 15 ^ 1;
    *place = JbigStep[lps + moves][index];
    moved += moves;
    a <<= shift;
    c <<= shift;
    nb -= static_cast<int>(shift);
    const DWORD pixel = (index & 1) ^ lps;
    left = left << 1 | pixel;
    place = next + pixel;
    const DWORD zero = next[0], one = next[1];
    word = zero ^ ((zero ^ one) & (0 - pixel));
    if (nb < 0) [[unlikely]]
      decoder.refill(c, nb);
  }
  effort = effort / 2 + moved;
  regs.a = a;
  regs.c = c;
  regs.nb = nb;
  regs.set_threshold();
  past = left;
  dst[b] = static_cast<BYTE>(past);
}

// With AT near, the pixel to the left may be in the context twice: no two words to choose from. And
// a stripe starts with A of 17 bits, too large for `scaled`, until its first pixel is decoded.
template <int LINES, ATPLACE AT>
[[gnu::always_inline]] inline void DECLINE<LINES, AT>::whole_byte(DECREGS& regs) {
  if (AT == kAtNear || regs.a > 0xFFFF) [[unlikely]] {
    decoder.regs = regs;
    pixels(0, 8);
    regs = decoder.regs;
  } else if constexpr (AT != kAtNear) {
    if (effort >= kBusy)
      eight_busy_pixels(regs);
    else
      eight_pixels(regs);
  }
}

template <int LINES, ATPLACE AT>
inline void DECLINE<LINES, AT>::next_byte() {
  if constexpr (AT != kAtDefault) plain.step(dst, b);
  if (++b < bytes) windows.step(above, above2, b, bytes);
}

// Takes `left` likely pixels of context `word`, whose colour is its mps. Returns how many were left
// when an unlikely one came, that one counted as taken; -1 when none came.
int take_run(DECODER& decoder, DWORD& word, DWORD left) {
  DECREGS regs = decoder.regs;
  const DWORD colour = word >> 5 & 1;
  DWORD pixel = colour;
  while (left > 0 && pixel == colour) {
    const DWORD qe = word >> 16;
    const DWORD room = regs.a - regs.t;
    if (left * qe <= room) {
      regs.a -= left * qe;
      break;
    }
    const DWORD likely = room / qe;
    regs.a -= (likely + 1) * qe;
    left -= likely + 1;
    pixel = regs.slow(decoder, word);
  }
  decoder.regs = regs;
  return pixel == colour ? -1 : static_cast<int>(left);
}

// True where all that the contexts of byte b see is of one colour, and that is the likely one.
template <int LINES, ATPLACE AT>
inline bool DECLINE<LINES, AT>::starts_run() const {
  const BYTE fill = (past & 1) ? 0xFF : 0x00;
  if ((past & kCurrent) != (fill & kCurrent) || !windows.all(fill)) return false;
  if (AT != kAtDefault && plain.pixels < tx) return false;
  return (decoder.cx.word[fill ? kContexts - 1 : 0] >> 5 & 1) == (fill & 1);
}

// The bytes up to the next other pixel above are then one run of one context. Returns false when
// that is less than a byte.
template <int LINES, ATPLACE AT>
[[gnu::noinline]] bool DECLINE<LINES, AT>::skip_run() {
  const BYTE fill = (past & 1) ? 0xFF : 0x00;
  const unsigned run = run_above<LINES>(above, above2, b, bytes - 1, fill);
  if (run == 0) return false;
  const int left = take_run(decoder, decoder.cx.word[fill ? kContexts - 1 : 0], 8 * run);
  const unsigned taken = left < 0 ? 8 * run : 8 * run - static_cast<unsigned>(left) - 1;
  std::memset(dst + b, fill, taken / 8);
  b += taken / 8;
  plain.pixels += taken / 8 * 8;
  windows.load(above, above2, b, bytes);
  past = fill ? ~DWORD{0} : 0;
  if (left < 0) return true;
  past = past << 1 | (fill ? 0 : 1);
  pixels(taken % 8 + 1, 8);
  next_byte();
  return true;
}

template <int LINES, ATPLACE AT>
void DECLINE<LINES, AT>::decode(unsigned width) {
  DECREGS regs = decoder.regs;
  windows.load(above, above2, 0, bytes);
  while (b + 1 < bytes) {
    if (starts_run()) {
      decoder.regs = regs;
      const bool skipped = skip_run();
      regs = decoder.regs;
      if (skipped) continue;
    }
    whole_byte(regs);
    next_byte();
  }
  decoder.regs = regs;
  pixels(0, width - 8 * b);
}

}  // namespace

template <int LINES>
void dec_line(DECODER& decoder, BYTE* dst, const BYTE* above, const BYTE* above2, unsigned width,
              unsigned tx) {
  if (width == 0) return;
  const unsigned bytes = (width + 7) / 8;
  switch (at_place(tx)) {
    case kAtDefault:
      return DECLINE<LINES, kAtDefault>{decoder, dst, above, above2, bytes, tx}.decode(width);
    case kAtNear:
      return DECLINE<LINES, kAtNear>{decoder, dst, above, above2, bytes, tx}.decode(width);
    case kAtFar:
      return DECLINE<LINES, kAtFar>{decoder, dst, above, above2, bytes, tx}.decode(width);
  }
}

template void dec_line<2>(DECODER&, BYTE*, const BYTE*, const BYTE*, unsigned, unsigned);
template void dec_line<3>(DECODER&, BYTE*, const BYTE*, const BYTE*, unsigned, unsigned);

}  // namespace vox
