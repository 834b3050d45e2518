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

  void decode(unsigned width);
  bool skip_run();
  void pixels(unsigned from, unsigned count);
  void next_byte();
  DWORD at_of_byte() const { return AT == kAtFar ? far_at_pixels(dst, b, tx) : 0; }
  DWORD at_pixel(DWORD at, unsigned j, DWORD left) const {
    if constexpr (AT == kAtNear) return (left >> (tx - 1) & 1) << RASTER<LINES>::kAtShift;
    if constexpr (AT == kAtFar) return (at >> (7 - j) & 1) << RASTER<LINES>::kAtShift;
    return 0;
  }
};

template <int LINES, ATPLACE AT>
void DECLINE<LINES, AT>::pixels(unsigned from, unsigned count) {
  const DWORD at = at_of_byte();
  DWORD left = past;
  for (unsigned j = from; j < count; ++j) {
    const DWORD context =
        windows.template context<AT>(j) | at_pixel(at, j, left) | (left & RASTER<LINES>::kCurrent);
    left = left << 1 | decoder.decide(decoder.cx.word[context]);
  }
  past = left;
  dst[b] = static_cast<BYTE>(left << (8 - count));
}

template <int LINES, ATPLACE AT>
void DECLINE<LINES, AT>::next_byte() {
  if constexpr (AT != kAtDefault) plain.step(dst, b);
  if (++b < bytes) windows.step(above, above2, b, bytes);
}

// Takes `left` likely pixels of context `word`, whose colour is its mps. Returns how many were left
// when an unlikely one came, that one counted as taken; -1 when none came.
int take_run(DECODER& decoder, DWORD& word, DWORD left) {
  const DWORD colour = word >> 5 & 1;
  while (left > 0) {
    const DWORD qe = word >> 16;
    const DWORD room = decoder.a - decoder.t;
    if (std::uint64_t{qe} * left <= room) {
      decoder.a -= qe * left;
      return -1;
    }
    const DWORD likely = room / qe;
    decoder.a -= (likely + 1) * qe;
    left -= likely + 1;
    if (decoder.slow(word) != colour) return static_cast<int>(left);
  }
  return -1;
}

// Where all that the contexts see is of one colour, and that colour is the likely one, the bytes up
// to the next other pixel above are one run of one context. Returns true when it moved on.
template <int LINES, ATPLACE AT>
bool DECLINE<LINES, AT>::skip_run() {
  const BYTE fill = (past & 1) ? 0xFF : 0x00;
  constexpr DWORD kCurrent = RASTER<LINES>::kCurrent;
  if ((past & kCurrent) != (fill & kCurrent) || !windows.all(fill)) return false;
  DWORD& word = decoder.cx.word[fill ? kContexts - 1 : 0];
  if ((word >> 5 & 1) != (fill & 1)) return false;
  if (AT != kAtDefault && plain.pixels < tx) return false;
  const unsigned run = run_above<LINES>(above, above2, b, bytes - 1, fill);
  if (run == 0) return false;
  const int left = take_run(decoder, word, 8 * run);
  const unsigned whole = left < 0 ? run : (8 * run - static_cast<unsigned>(left) - 1) / 8;
  std::memset(dst + b, fill, whole);
  b += whole;
  plain.pixels += 8 * whole;
  windows.load(above, above2, b, bytes);
  past = fill ? ~DWORD{0} : 0;
  if (left < 0) return true;
  const unsigned odd = (8 * run - static_cast<unsigned>(left) - 1) % 8;
  past = past << 1 | (fill ? 0 : 1);
  pixels(odd + 1, 8);
  next_byte();
  return true;
}

template <int LINES, ATPLACE AT>
void DECLINE<LINES, AT>::decode(unsigned width) {
  windows.load(above, above2, 0, bytes);
  while (b + 1 < bytes) {
    if (skip_run()) continue;
    pixels(0, 8);
    next_byte();
  }
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
