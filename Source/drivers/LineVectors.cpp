#include "vox/drivers/LineVectors.h"

#include <algorithm>
#include <cstring>

#include <hwy/detect_compiler_arch.h>

#include "vox/drivers/ShrinkSpans.h"
#include "vox/drivers/WidthTables.h"

#if HWY_ARCH_ARM_V7
#define HWY_DISABLED_TARGETS HWY_NEON  // has no division that rounds as it should
#endif
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "Source/drivers/LineVectors.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace vox {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

using Floats = hn::CappedTag<float, kWidthGroup>;  // divides a group
using Ints = hn::RebindToSigned<Floats>;
using Bytes = hn::Rebind<std::uint8_t, Floats>;
using FloatVec = hn::Vec<Floats>;

HWY_INLINE FloatVec load_bytes(const unsigned char* line) {
  return hn::ConvertTo(Floats(), hn::PromoteTo(Ints(), hn::LoadU(Bytes(), line)));
}

// libhwy guards its conversion against values that no 32 bits hold; these are cut to a byte's.
HWY_INLINE hn::Vec<Ints> truncated(FloatVec value) {
#if HWY_TARGET == HWY_AVX2
  return hn::Vec<Ints>{_mm256_cvttps_epi32(value.raw)};
#elif HWY_TARGET == HWY_SSE4 || HWY_TARGET == HWY_SSSE3
  return hn::Vec<Ints>{_mm_cvttps_epi32(value.raw)};
#else
  return hn::ConvertTo(Ints(), value);
#endif
}

// As byte_in_range does it.
HWY_INLINE void store_bytes(unsigned char* dst, FloatVec value) {
  const Floats d;
  const auto rounded = truncated(hn::Add(value, hn::Set(d, 0.5f)));
  hn::StoreU(hn::DemoteTo(Bytes(), rounded), Bytes(), dst);
}

// As byte_of_mean does it.
HWY_INLINE void store_means(unsigned char* dst, FloatVec mean) {
  const Floats d;
  store_bytes(dst, hn::Min(hn::Max(mean, hn::Zero(d)), hn::Set(d, 255.0f)));
}

// Four vectors of values, cut to bytes, one behind the other.
HWY_INLINE void store_four(unsigned char* dst, hn::Vec<Ints> a, hn::Vec<Ints> b, hn::Vec<Ints> c,
                           hn::Vec<Ints> d) {
#if HWY_TARGET == HWY_AVX2
  const __m256i low = _mm256_packus_epi32(a.raw, b.raw), high = _mm256_packus_epi32(c.raw, d.raw);
  const __m256i halves = _mm256_packus_epi16(low, high);  // of four bytes each, out of order
  const __m256i order = _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7);
  hn::StoreU(hn::Vec256<std::uint8_t>{_mm256_permutevar8x32_epi32(halves, order)},
             hn::Full256<std::uint8_t>(), dst);
#else
  const Bytes bytes;
  const std::size_t step = hn::Lanes(bytes);
  hn::StoreU(hn::DemoteTo(bytes, a), bytes, dst);
  hn::StoreU(hn::DemoteTo(bytes, b), bytes, dst + step);
  hn::StoreU(hn::DemoteTo(bytes, c), bytes, dst + 2 * step);
  hn::StoreU(hn::DemoteTo(bytes, d), bytes, dst + 3 * step);
#endif
}

HWY_INLINE void store_four_bytes(unsigned char* dst, FloatVec a, FloatVec b, FloatVec c,
                                 FloatVec d) {
  const FloatVec half = hn::Set(Floats(), 0.5f);
  store_four(dst, truncated(hn::Add(a, half)), truncated(hn::Add(b, half)),
             truncated(hn::Add(c, half)), truncated(hn::Add(d, half)));
}

// Divisions take longer than all the rest. So means are worked out with multiplications alone,
// which puts each less than kDoubt off, and its byte is certain unless a boundary between two
// bytes is that near. Seven roundings of values to 256, each of at most 2^-17, are the most that
// lie between the two ways.
// Returns: false when a byte is not certain; it is to be worked out as the rule says then.
constexpr float kDoubt = 1.0f / 4096;
constexpr int kMaxDoubts = 16;  // of a line
HWY_INLINE bool store_certain(unsigned char* dst, FloatVec a, FloatVec b, FloatVec c, FloatVec d) {
  const FloatVec below = hn::Set(Floats(), 0.5f - kDoubt), above = hn::Set(Floats(), 0.5f + kDoubt);
  const auto la = truncated(hn::Add(a, below)), lb = truncated(hn::Add(b, below));
  const auto lc = truncated(hn::Add(c, below)), ld = truncated(hn::Add(d, below));
  const auto xa = hn::Xor(la, truncated(hn::Add(a, above)));
  const auto xb = hn::Xor(lb, truncated(hn::Add(b, above)));
  const auto xc = hn::Xor(lc, truncated(hn::Add(c, above)));
  const auto xd = hn::Xor(ld, truncated(hn::Add(d, above)));
  const auto differing = hn::Or(hn::Or(xa, xb), hn::Or(xc, xd));
  store_four(dst, la, lb, lc, ld);
  return hn::AllTrue(Ints(), hn::Eq(differing, hn::Zero(Ints())));
}

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

using Group = hn::CappedTag<std::uint8_t, kWidthGroup>;

// Tap `tap` of the groups that begin at byte `at` of the target, until byte `end`.
template <std::size_t kWindows>
void pick_row(unsigned char* row, const WIDTH_TABLES& tables, const unsigned char* src,
              std::size_t at, std::size_t end, std::size_t tap) {
  const Group d;
  src += tap * tables.ps;
  const unsigned char* pick = tables.pick.data() + at * kWindows;
  const std::size_t* base = tables.base.data() + at / kWidthGroup;
  for (; at < end; at += kWidthGroup, row += kWidthGroup, ++base) {
    auto bytes = hn::TableLookupBytesOr0(hn::LoadU(d, src + *base), hn::LoadU(d, pick));
    for (std::size_t window = 1; window < kWindows; ++window) {
      const auto part = hn::LoadU(d, src + *base + window * kWidthGroup);
      bytes =
          hn::Or(bytes, hn::TableLookupBytesOr0(part, hn::LoadU(d, pick + window * kWidthGroup)));
    }
    pick += kWindows * kWidthGroup;
    hn::StoreU(bytes, d, row);
  }
}
#endif  // byte shuffles

void fetch_row(unsigned char* row, const WIDTH_TABLES& tables, const unsigned char* src,
               std::size_t at, std::size_t end, std::size_t tap) {
  const std::size_t known = std::min(end, tables.bytes);
  src += tap * tables.ps;
  for (std::size_t i = at; i < known; ++i) *row++ = src[tables.first[i]];
  if (known < end) std::memset(row, 0, end - known);
}

void fill_row(unsigned char* row, const WIDTH_TABLES& tables, const unsigned char* src,
              std::size_t at, std::size_t end, std::size_t tap) {
#if HWY_TARGET != HWY_SCALAR
  switch (tables.windows) {
    case 1:
      return pick_row<1>(row, tables, src, at, end, tap);
    case 2:
      return pick_row<2>(row, tables, src, at, end, tap);
    case 3:
      return pick_row<3>(row, tables, src, at, end, tap);
    case 4:
      return pick_row<4>(row, tables, src, at, end, tap);
    default:
      break;
  }
#endif
  fetch_row(row, tables, src, at, end, tap);
}

constexpr std::size_t kFusedTaps = 4;  // taps that are summed in registers

struct CHUNK {
  std::size_t at, end;  // target bytes, whole groups
  unsigned char rows[kFusedTaps][kWidthChunk];
  float sums[kWidthChunk];
};

// The sum of kTaps rows from tap `first` on, behind what earlier taps left.
template <std::size_t kTaps, bool kBehind>
HWY_INLINE FloatVec sum_taps(const CHUNK& chunk, const WIDTH_TABLES& tables, std::size_t i,
                             std::size_t first) {
  const Floats d;
  const float* weight = tables.weight.data() + first * tables.row + chunk.at + i;
  FloatVec sum = hn::Mul(load_bytes(chunk.rows[0] + i), hn::LoadU(d, weight));
  if (kBehind) sum = hn::Add(hn::LoadU(d, chunk.sums + i), sum);
  for (std::size_t tap = 1; tap < kTaps; ++tap) {
    weight += tables.row;
    sum = hn::Add(sum, hn::Mul(load_bytes(chunk.rows[tap] + i), hn::LoadU(d, weight)));
  }
  return sum;
}

// Means by multiplication, or by the rule where that leaves a doubt.
HWY_INLINE void store_four_means(unsigned char* out, FloatVec a, FloatVec b, FloatVec c, FloatVec d,
                                 const float* share, const float* total) {
  const Floats f;
  const std::size_t step = hn::Lanes(f);
  const FloatVec most = hn::Set(f, 255.0f);
  const bool certain = store_certain(out, hn::Min(hn::Mul(a, hn::LoadU(f, share)), most),
                                     hn::Min(hn::Mul(b, hn::LoadU(f, share + step)), most),
                                     hn::Min(hn::Mul(c, hn::LoadU(f, share + 2 * step)), most),
                                     hn::Min(hn::Mul(d, hn::LoadU(f, share + 3 * step)), most));
  if (certain) return;
  store_means(out, hn::Div(a, hn::LoadU(f, total)));
  store_means(out + step, hn::Div(b, hn::LoadU(f, total + step)));
  store_means(out + 2 * step, hn::Div(c, hn::LoadU(f, total + 2 * step)));
  store_means(out + 3 * step, hn::Div(d, hn::LoadU(f, total + 3 * step)));
}

template <std::size_t kTaps, bool kBehind>
void finish_chunk(unsigned char* out, const CHUNK& chunk, const WIDTH_TABLES& tables,
                  std::size_t first) {
  const std::size_t step = hn::Lanes(Floats());
  const std::size_t count = chunk.end - chunk.at;
  const bool enlarging = tables.total.empty();
  for (std::size_t i = 0; i < count; i += 4 * step) {
    const FloatVec a = sum_taps<kTaps, kBehind>(chunk, tables, i, first);
    const FloatVec b = sum_taps<kTaps, kBehind>(chunk, tables, i + step, first);
    const FloatVec c = sum_taps<kTaps, kBehind>(chunk, tables, i + 2 * step, first);
    const FloatVec d = sum_taps<kTaps, kBehind>(chunk, tables, i + 3 * step, first);
    if (enlarging) {
      store_four_bytes(out + i, a, b, c, d);
    } else {
      store_four_means(out + i, a, b, c, d, &tables.share[chunk.at + i],
                       &tables.total[chunk.at + i]);
    }
  }
}

template <bool kBehind>
void finish_taps(unsigned char* out, const CHUNK& chunk, const WIDTH_TABLES& tables,
                 std::size_t first, std::size_t taps) {
  switch (taps) {
    case 1:
      return finish_chunk<1, kBehind>(out, chunk, tables, first);
    case 2:
      return finish_chunk<2, kBehind>(out, chunk, tables, first);
    case 3:
      return finish_chunk<3, kBehind>(out, chunk, tables, first);
    default:
      return finish_chunk<4, kBehind>(out, chunk, tables, first);
  }
}

template <bool kBehind>
void sum_chunk(CHUNK& chunk, const WIDTH_TABLES& tables, std::size_t first) {
  const Floats d;
  for (std::size_t i = 0; i < chunk.end - chunk.at; i += hn::Lanes(d)) {
    hn::StoreU(sum_taps<kFusedTaps, kBehind>(chunk, tables, i, first), d, chunk.sums + i);
  }
}

void scale_chunk(unsigned char* out, CHUNK& chunk, const WIDTH_TABLES& tables,
                 const unsigned char* src, std::size_t taps) {
  std::size_t first = 0;
  for (;; first += kFusedTaps) {
    const std::size_t rows = std::min(taps - first, kFusedTaps);
    for (std::size_t i = 0; i < rows; ++i) {
      fill_row(chunk.rows[i], tables, src, chunk.at, chunk.end, first + i);
    }
    if (taps - first <= kFusedTaps) break;
    first == 0 ? sum_chunk<false>(chunk, tables, 0) : sum_chunk<true>(chunk, tables, first);
  }
  first == 0 ? finish_taps<false>(out, chunk, tables, 0, taps)
             : finish_taps<true>(out, chunk, tables, first, taps - first);
}

void ScaleWidth(const WIDTH_TABLES& tables, unsigned char* dst, const unsigned char* src) {
  CHUNK chunk;
  for (chunk.at = 0; chunk.at < tables.bytes; chunk.at += kWidthChunk) {
    chunk.end = std::min(chunk.at + kWidthChunk, tables.row);
    const std::size_t taps = tables.taps[chunk.at / kWidthChunk];
    if (chunk.end <= tables.bytes) {
      scale_chunk(dst + chunk.at, chunk, tables, src, taps);
      continue;
    }
    unsigned char out[kWidthChunk];
    scale_chunk(out, chunk, tables, src, taps);
    std::memcpy(dst + chunk.at, out, tables.bytes - chunk.at);
  }
}

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
HWY_EXPORT(ScaleWidth);

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

void scale_width(const WIDTH_TABLES& tables, unsigned char* dst,
                 const unsigned char* src) noexcept {
  HWY_DYNAMIC_DISPATCH(ScaleWidth)(tables, dst, src);
}

}  // namespace vox
#endif
