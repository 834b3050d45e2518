#include "vox/drivers/LineVectors.h"

#include <algorithm>
#include <cstring>

#include "vox/drivers/ShrinkSpans.h"
#include "vox/drivers/VectorTargets-inl.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "Source/drivers/LineVectors.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

#include "vox/drivers/LineVectors-inl.h"

HWY_BEFORE_NAMESPACE();
namespace vox {
namespace HWY_NAMESPACE {

constexpr int kMaxDoubts = 16;  // of a line

HWY_INLINE FloatVec share(const unsigned char* line, FloatVec weight, FloatVec total) {
  return hn::Div(hn::Mul(load_bytes(line), weight), total);
}
inline float share(unsigned char byte, float weight, float total) {
  return static_cast<float>(byte) * weight / total;
}

HWY_INLINE FloatVec blended(const unsigned char* a, const unsigned char* b, FloatVec wa,
                            FloatVec wb) {
  return hn::Add(hn::Mul(load_bytes(a), wa), hn::Mul(load_bytes(b), wb));
}

void BlendLines(unsigned char* dst, const unsigned char* lower, const unsigned char* upper,
                std::size_t n, float rest, float part) {
  const Floats d;
  const FloatVec wl = hn::Set(d, rest), wu = hn::Set(d, part);
  const std::size_t step = hn::Lanes(d);
  std::size_t i = 0;
  for (; i + 4 * step <= n; i += 4 * step) {
    const unsigned char *const l = lower + i, *const u = upper + i;
    store_four_bytes(dst + i, blended(l, u, wl, wu), blended(l + step, u + step, wl, wu),
                     blended(l + 2 * step, u + 2 * step, wl, wu),
                     blended(l + 3 * step, u + 3 * step, wl, wu));
  }
  for (; i + step <= n; i += step) store_bytes(dst + i, blended(lower + i, upper + i, wl, wu));
  for (; i < n; ++i) {
    dst[i] =
        byte_in_range(static_cast<float>(lower[i]) * rest + static_cast<float>(upper[i]) * part);
  }
}

// The rule as it stands, for dst[0, n).
void mean_by_rule(unsigned char* dst, LINE_PART a, LINE_PART b, float total, std::size_t n) {
  const Floats d;
  const FloatVec wa = hn::Set(d, a.weight), wb = hn::Set(d, b.weight), t = hn::Set(d, total);
  std::size_t i = 0;
  for (; i + hn::Lanes(d) <= n; i += hn::Lanes(d)) {
    store_means(dst + i, hn::Add(share(a.line + i, wa, t), share(b.line + i, wb, t)));
  }
  for (; i < n; ++i) {
    dst[i] = byte_of_mean(share(a.line[i], a.weight, total) + share(b.line[i], b.weight, total));
  }
}

void MeanOfTwo(unsigned char* dst, LINE_PART a, LINE_PART b, float total, std::size_t n) {
  const Floats d;
  const FloatVec wa = hn::Set(d, a.weight / total), wb = hn::Set(d, b.weight / total);
  const std::size_t step = hn::Lanes(d);
  std::size_t i = 0;
  // Weights that cancel each other would cancel what is known of the error, too. A line of ties, as
  // two lines of the same weight make it, is done by the rule as soon as it shows.
  int doubts = a.weight >= 0 && b.weight >= 0 ? 0 : kMaxDoubts;
  for (; doubts < kMaxDoubts && i + 4 * step <= n; i += 4 * step) {
    const unsigned char *const p = a.line + i, *const q = b.line + i;
    const bool certain = store_certain(
        dst + i, blended(p, q, wa, wb), blended(p + step, q + step, wa, wb),
        blended(p + 2 * step, q + 2 * step, wa, wb), blended(p + 3 * step, q + 3 * step, wa, wb));
    if (certain) continue;
    ++doubts;
    mean_by_rule(dst + i, {p, a.weight}, {q, b.weight}, total, 4 * step);
  }
  mean_by_rule(dst + i, {a.line + i, a.weight}, {b.line + i, b.weight}, total, n - i);
}

void SumTwo(float* sum, LINE_PART a, LINE_PART b, float total, std::size_t n) {
  const Floats d;
  const FloatVec wa = hn::Set(d, a.weight), wb = hn::Set(d, b.weight), t = hn::Set(d, total);
  std::size_t i = 0;
  for (; i + hn::Lanes(d) <= n; i += hn::Lanes(d)) {
    hn::StoreU(hn::Add(share(a.line + i, wa, t), share(b.line + i, wb, t)), d, sum + i);
  }
  for (; i < n; ++i) {
    sum[i] = share(a.line[i], a.weight, total) + share(b.line[i], b.weight, total);
  }
}

void SumOne(float* sum, LINE_PART part, float total, std::size_t n) {
  const Floats d;
  const FloatVec w = hn::Set(d, part.weight), t = hn::Set(d, total);
  std::size_t i = 0;
  for (; i + hn::Lanes(d) <= n; i += hn::Lanes(d)) {
    hn::StoreU(hn::Add(hn::LoadU(d, sum + i), share(part.line + i, w, t)), d, sum + i);
  }
  for (; i < n; ++i) sum[i] += share(part.line[i], part.weight, total);
}

void MeanWith(unsigned char* dst, const float* sum, LINE_PART last, float total, std::size_t n) {
  const Floats d;
  const FloatVec w = hn::Set(d, last.weight), t = hn::Set(d, total);
  std::size_t i = 0;
  for (; i + hn::Lanes(d) <= n; i += hn::Lanes(d)) {
    store_means(dst + i, hn::Add(hn::LoadU(d, sum + i), share(last.line + i, w, t)));
  }
  for (; i < n; ++i) dst[i] = byte_of_mean(sum[i] + share(last.line[i], last.weight, total));
}

#if HWY_TARGET == HWY_SCALAR  // a processor without byte shuffles
void PackLine(unsigned char* dst, const unsigned char* src, std::size_t n,
              unsigned char threshold) {
  for (; n > 0; n -= std::min<std::size_t>(n, 8), src += 8) {
    unsigned bits = 0;
    for (unsigned i = 0; i < std::min<std::size_t>(n, 8); ++i) {
      bits |= (src[i] >= threshold ? 0x80u : 0u) >> i;
    }
    *dst++ = static_cast<unsigned char>(bits);
  }
}
#else
using Pixels = hn::CappedTag<std::uint8_t, 64>;
constexpr std::size_t kMaxPixels = 64;

// Masks have their first lane lowest, packed lines their first pixel highest: each eight pixels are
// turned round first.
HWY_INLINE void pack_pixels(unsigned char* dst, const unsigned char* src,
                            hn::Vec<Pixels> threshold) {
  alignas(16) static constexpr std::uint8_t kTurned[16] = {7,  6,  5,  4,  3,  2,  1, 0,
                                                           15, 14, 13, 12, 11, 10, 9, 8};
  const Pixels d;
  const auto turned = hn::TableLookupBytes(hn::LoadU(d, src), hn::LoadDup128(d, kTurned));
  std::uint8_t bits[kMaxPixels];
  hn::StoreMaskBits(d, hn::Eq(hn::Max(turned, threshold), turned), bits);
  std::memcpy(dst, bits, hn::Lanes(d) / 8);
}

void PackLine(unsigned char* dst, const unsigned char* src, std::size_t n,
              unsigned char threshold) {
  const Pixels d;
  const auto thresholds = hn::Set(d, threshold);
  const std::size_t step = hn::Lanes(d);
  std::size_t i = 0;
  for (; i + step <= n; i += step) pack_pixels(dst + i / 8, src + i, thresholds);
  if (i == n) return;
  unsigned char rest[kMaxPixels] = {}, bits[kMaxPixels / 8];
  std::memcpy(rest, src + i, n - i);
  pack_pixels(bits, rest, thresholds);
  std::memcpy(dst + i / 8, bits, (n - i + 7) / 8);
}
#endif  // byte shuffles

}  // namespace HWY_NAMESPACE
}  // namespace vox
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace vox {
namespace {

HWY_EXPORT(BlendLines);
HWY_EXPORT(MeanOfTwo);
HWY_EXPORT(SumTwo);
HWY_EXPORT(SumOne);
HWY_EXPORT(MeanWith);
HWY_EXPORT(PackLine);

}  // namespace

void blend_lines(unsigned char* dst, const unsigned char* lower, const unsigned char* upper,
                 std::size_t n, float rest, float part) noexcept {
  HWY_DYNAMIC_DISPATCH(BlendLines)(dst, lower, upper, n, rest, part);
}

void mean_of_two(unsigned char* dst, LINE_PART a, LINE_PART b, float total,
                 std::size_t n) noexcept {
  HWY_DYNAMIC_DISPATCH(MeanOfTwo)(dst, a, b, total, n);
}

void sum_two(float* sum, LINE_PART a, LINE_PART b, float total, std::size_t n) noexcept {
  HWY_DYNAMIC_DISPATCH(SumTwo)(sum, a, b, total, n);
}

void sum_one(float* sum, LINE_PART part, float total, std::size_t n) noexcept {
  HWY_DYNAMIC_DISPATCH(SumOne)(sum, part, total, n);
}

void mean_with(unsigned char* dst, const float* sum, LINE_PART last, float total,
               std::size_t n) noexcept {
  HWY_DYNAMIC_DISPATCH(MeanWith)(dst, sum, last, total, n);
}

void pack_line(unsigned char* dst, const unsigned char* src, std::size_t n,
               unsigned char threshold) noexcept {
  HWY_DYNAMIC_DISPATCH(PackLine)(dst, src, n, threshold);
}

}  // namespace vox
#endif
