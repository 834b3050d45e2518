// What the vector code of lines begins with, for the instruction set that is being compiled: bytes
// as floats, and floats as bytes again.
//
// Included by files that <hwy/foreach_target.h> compiles again and again, behind it; so it has a
// guard for each instruction set, and none beyond.
#if defined(VOX_LINE_VECTORS_INL) == defined(HWY_TARGET_TOGGLE)
#ifdef VOX_LINE_VECTORS_INL
#undef VOX_LINE_VECTORS_INL
#else
#define VOX_LINE_VECTORS_INL
#endif

#include <cstddef>
#include <cstdint>

#include <hwy/highway.h>

#include "vox/drivers/WidthTables.h"

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

}  // namespace HWY_NAMESPACE
}  // namespace vox
HWY_AFTER_NAMESPACE();

#endif
