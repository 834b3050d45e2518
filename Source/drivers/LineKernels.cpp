#include "vox/drivers/LineKernels.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "vox/drivers/EnlargePlaces.h"
#include "vox/drivers/ShrinkSpans.h"

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
                 unsigned ps) noexcept {
  if (dstW == 0 || srcW == 0 || ps == 0) return;
  const EnlargePlaces places(dstW, srcW);
  for (unsigned i = 0; i < dstW; ++i) {
    const ENLARGE_PLACE place = places.at(i);
    const unsigned char* const lower = src + std::size_t{place.k} * ps;
    const unsigned char* const upper = place.w > 0 ? lower + ps : lower;
    for (unsigned c = 0; c < ps; ++c) {
      *dst++ = byte_in_range(static_cast<float>(lower[c]) * (1.0f - place.w) +
                             static_cast<float>(upper[c]) * place.w);
    }
  }
}

void ReduceWidth(unsigned char* dst, const unsigned char* src, unsigned dstW, unsigned srcW,
                 unsigned ps) noexcept {
  if (dstW == 0 || srcW == 0 || ps == 0) return;
  const ShrinkSpans spans(dstW, srcW);
  std::uint32_t left = 0;
  for (unsigned o = 0; o < dstW; ++o) {
    const std::uint32_t right = spans.right(o);
    left = std::min(left, right);
    const float total = spans.total(left, right, o);
    for (unsigned c = 0; c < ps; ++c) {
      float sum = 0;
      for (std::uint32_t n = left; n <= right; ++n) {
        sum += static_cast<float>(src[std::size_t{n} * ps + c]) * spans.weight(n, o);
      }
      *dst++ = total > 0 ? byte_of_mean(sum / total) : src[std::size_t{right} * ps + c];
    }
    left = right + 1;
  }
}

void BitReduceMonoLine(unsigned char* dst, const unsigned char* src, unsigned width,
                       unsigned threshold) noexcept {
  if (threshold == 0) threshold = kDefaultThreshold;
  for (unsigned whole = width / 8; whole > 0; --whole, src += 8) {
    *dst++ = pack_bits(src, 8, threshold);
  }
  if (width % 8 != 0) *dst = pack_bits(src, width % 8, threshold);
}

void GradeLine(unsigned char* __restrict dst, const unsigned char* __restrict lower,
               const unsigned char* __restrict upper, unsigned n, float f) noexcept {
  const float part = f > 0.0f ? (f < 1.0f ? f : 1.0f) : 0.0f;
  const float rest = 1.0f - part;
  for (unsigned i = 0; i < n; ++i) {
    dst[i] =
        byte_in_range(static_cast<float>(lower[i]) * rest + static_cast<float>(upper[i]) * part);
  }
}

}  // namespace vox
