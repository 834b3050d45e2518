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
  void next_byte();
  DWORD at_of_byte() const { return tx < 8 ? pair >> tx & 0xFF : far_at_pixels(src, b, tx); }
};

template <int LINES, bool AT>
inline void ENCLINE<LINES, AT>::pixels(ENCREGS& regs, unsigned count) {
  constexpr ATPLACE kPlace = AT ? kAtFar : kAtDefault;
  const DWORD at = AT ? at_of_byte() : 0;
  for (unsigned j = 0; j < count; ++j) {
    DWORD context = windows.template context<kPlace>(j);
    context |= pair >> (8 - j) & RASTER<LINES>::kCurrent;
    if constexpr (AT) context |= (at >> (7 - j) & 1) << RASTER<LINES>::kAtShift;
    regs.code(encoder, encoder.cx.word[context], pair >> (7 - j) & 1);
  }
}

template <int LINES, bool AT>
inline void ENCLINE<LINES, AT>::next_byte() {
  if constexpr (AT) plain.step(src, b);
  if (++b == bytes) return;
  windows.step(above, above2, b, bytes);
  pair = (pair << 8 | src[b]) & 0xFFFF;
}

// Encodes `left` pixels of the likely colour in context `word`.
void give_run(ENCODER& encoder, ENCREGS& regs, DWORD& word, DWORD left) {
  const BYTE colour = word >> 5 & 1;
  while (left > 0) {
    const DWORD qe = word >> 16;
    const DWORD room = regs.a - 0x8000;
    if (std::uint64_t{qe} * left <= room) {
      regs.a -= qe * left;
      return;
    }
    const DWORD quick = room / qe;
    regs.a -= (quick + 1) * qe;
    left -= quick + 1;
    regs.slow(encoder, word, colour);
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
  DWORD& word = encoder.cx.word[fill ? kContexts - 1 : 0];
  if ((word >> 5 & 1) != (fill & 1)) return false;
  if (AT && plain.pixels < tx) return false;
  const unsigned limit = run_end(src, b + 1, bytes - 1, fill);
  const unsigned run = run_above<LINES>(above, above2, b, limit, fill);
  if (run == 0) return false;
  give_run(encoder, regs, word, 8 * run);
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
    pixels(regs, 8);
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
