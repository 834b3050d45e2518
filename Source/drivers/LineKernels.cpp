#include "vox/drivers/LineKernels.h"

#include "vox/drivers/ShrinkSpans.h"
#include "vox/drivers/WidthScaler.h"

namespace vox {
namespace {

constexpr unsigned kDefaultThreshold = 170;

// The first `count` pixels, at most eight, in the high bits of a byte.
unsigned char pack_bits(const unsigned char* src, unsigned count, unsigned threshold) {
  unsigned bits = 0;
  for (unsigned i = 0; i < count; ++i) bits |= (src[i] >= threshold ? 0x80u : 0u) >> i;
  return static_cast<unsigned char>(bits);
}

}  // namespace

void ExpandWidth(unsigned char* dst, const unsigned char* src, unsigned dstW, unsigned srcW,
                 unsigned ps) {
  WidthScaler::expand(dstW, srcW, ps).run(dst, src);
}

void ReduceWidth(unsigned char* dst, const unsigned char* src, unsigned dstW, unsigned srcW,
                 unsigned ps) {
  WidthScaler::reduce(dstW, srcW, ps).run(dst, src);
}

void BitReduceMonoLine(unsigned char* dst, const unsigned char* src, unsigned width,
                       unsigned threshold) {
  if (threshold == 0) threshold = kDefaultThreshold;
  for (unsigned whole = width / 8; whole > 0; --whole, src += 8) {
    *dst++ = pack_bits(src, 8, threshold);
  }
  if (width % 8 != 0) *dst = pack_bits(src, width % 8, threshold);
}

void GradeLine(unsigned char* __restrict dst, const unsigned char* __restrict lower,
               const unsigned char* __restrict upper, unsigned n, float f) {
  const float part = f > 0.0f ? (f < 1.0f ? f : 1.0f) : 0.0f;
  const float rest = 1.0f - part;
  for (unsigned i = 0; i < n; ++i) {
    dst[i] =
        byte_in_range(static_cast<float>(lower[i]) * rest + static_cast<float>(upper[i]) * part);
  }
}

}  // namespace vox
