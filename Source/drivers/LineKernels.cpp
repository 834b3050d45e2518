#include "vox/drivers/LineKernels.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "vox/drivers/EnlargePlaces.h"
#include "vox/drivers/LineVectors.h"
#include "vox/drivers/ShrinkSpans.h"

namespace vox {
namespace {

constexpr unsigned kDefaultThreshold = 170;

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
  if (threshold > 255) {
    std::memset(dst, 0, (std::size_t{width} + 7) / 8);  // above every byte
    return;
  }
  pack_line(dst, src, width, static_cast<unsigned char>(threshold));
}

void GradeLine(unsigned char* dst, const unsigned char* lower, const unsigned char* upper,
               unsigned n, float f) noexcept {
  const float part = f > 0.0f ? (f < 1.0f ? f : 1.0f) : 0.0f;
  blend_lines(dst, lower, upper, n, 1.0f - part, part);
}

}  // namespace vox
