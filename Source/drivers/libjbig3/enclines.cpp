#include "vox/drivers/libjbig3/enclines.h"

#include "vox/drivers/libjbig3/linewin.h"

namespace vox {
namespace {

// A line being encoded.
template <int LINES, bool AT>
struct ENCLINE {
  ENCODER& encoder;
  const BYTE* src;
  const BYTE* above;
  const BYTE* above2;
  unsigned bytes;
  unsigned tx;
  WINDOWS<LINES> windows{};
  unsigned b = 0;  // the byte that is being encoded
  DWORD pair = 0;  // bytes b - 1 and b of the line
  PLAINRUN plain{};

  void encode(unsigned width);
  bool skip_run(ENCREGS& regs);
  void pixels(ENCREGS& regs, unsigned count);
  void whole_byte(ENCREGS& regs);
  void next_byte();
  DWORD at_pixels() const {
    if constexpr (AT) return tx < 8 ? pair >> tx & 0xFF : far_at_pixels(src, b, tx);
    return 0;
  }
  // The word of pixel j: its context in raster order, then the pixel itself.
  DWORD word_at(unsigned j, DWORD at) const {
    constexpr ATPLACE kPlace = AT ? kAtFar : kAtDefault;
    DWORD place = windows.template context<kPlace>(j) << 1;
    if constexpr (AT) place |= (at >> (7 - j) & 1) << (RASTER<LINES>::kAtShift + 1);
    return place | (pair >> (7 - j) & (RASTER<LINES>::kCurrent << 1 | 1));
  }
};

template <int LINES, bool AT>
void ENCLINE<LINES, AT>::pixels(ENCREGS& regs, unsigned count) {
  const DWORD at = at_pixels();
  for (unsigned j = 0; j < count; ++j) regs.code(encoder, word_at(j, at));
}

template <int LINES, bool AT>
[[gnu::always_inline]] inline void ENCLINE<LINES, AT>::whole_byte(ENCREGS& regs) {
  if (regs.a > 0xFFFF) [[unlikely]]  // a stripe's first pixels
    return pixels(regs, 8);
  const DWORD at = at_pixels();
  regs.eight(encoder, [&](unsigned j) { return word_at(j, at); });
}

template <int LINES, bool AT>
inline void ENCLINE<LINES, AT>::next_byte() {
  if constexpr (AT) plain.step(src, b);
  if (++b == bytes) return;
  windows.step(above, above2, b, bytes);
  pair = (pair << 8 | src[b]) & 0xFFFF;
}

// Encodes `left` pixels of word `at`, the likely ones of their context.
void give_run(ENCODER& encoder, ENCREGS& regs, DWORD at, DWORD left) {
  while (left > 0) {
    const DWORD qe = encoder.word[at] >> 16;
    const DWORD room = regs.a - 0x8000;
    if (std::uint64_t{qe} * left <= room) {
      regs.a -= qe * left;
      return;
    }
    const DWORD quick = room / qe;
    regs.a -= quick * qe;
    left -= quick + 1;
    regs.slow(encoder, at);
  }
}

// Where the line and all that its contexts see are of one colour, and that colour is the likely
// one, the bytes up to the next other pixel are one run of one context. Returns true when it moved
// on.
template <int LINES, bool AT>
inline bool ENCLINE<LINES, AT>::skip_run(ENCREGS& regs) {
  const BYTE fill = static_cast<BYTE>(pair);
  if (fill != 0 && fill != 0xFF) return false;
  constexpr DWORD kCurrent = RASTER<LINES>::kCurrent;
  if ((pair >> 8 & kCurrent) != (fill & kCurrent) || !windows.all(fill)) return false;
  const DWORD at = fill ? 2 * kContexts - 1 : 0;
  if ((encoder.word[at] & kUnlikely) != 0) return false;
  if (AT && plain.pixels < tx) return false;
  const unsigned limit = run_end(src, b + 1, bytes - 1, fill);
  const unsigned run = run_above<LINES>(above, above2, b, limit, fill);
  if (run == 0) return false;
  give_run(encoder, regs, at, 8 * run);
  b += run;
  plain.pixels += 8 * run;
  windows.load(above, above2, b, bytes);
  pair = DWORD{fill} << 8 | src[b];
  return true;
}

template <int LINES, bool AT>
void ENCLINE<LINES, AT>::encode(unsigned width) {
  ENCREGS regs = encoder.regs;
  windows.load(above, above2, 0, bytes);
  pair = src[0];
  while (b + 1 < bytes) {
    if (skip_run(regs)) continue;
    whole_byte(regs);
    next_byte();
  }
  pixels(regs, width - 8 * b);
  encoder.regs = regs;
}

}  // namespace

template <int LINES>
void enc_line(ENCODER& encoder, const BYTE* src, const BYTE* above, const BYTE* above2,
              unsigned width, unsigned tx) {
  if (width == 0) return;
  const unsigned bytes = (width + 7) / 8;
  if (tx == 0)
    ENCLINE<LINES, false>{encoder, src, above, above2, bytes, tx}.encode(width);
  else
    ENCLINE<LINES, true>{encoder, src, above, above2, bytes, tx}.encode(width);
}

template void enc_line<2>(ENCODER&, const BYTE*, const BYTE*, const BYTE*, unsigned, unsigned);
template void enc_line<3>(ENCODER&, const BYTE*, const BYTE*, const BYTE*, unsigned, unsigned);

}  // namespace vox
