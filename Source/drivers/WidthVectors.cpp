#include "vox/drivers/WidthVectors.h"

#include <algorithm>
#include <cstring>

#include "vox/drivers/VectorTargets-inl.h"
#include "vox/drivers/WidthTables.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "Source/drivers/WidthVectors.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

#include "vox/drivers/LineVectors-inl.h"

HWY_BEFORE_NAMESPACE();
namespace vox {
namespace HWY_NAMESPACE {

#if HWY_TARGET != HWY_SCALAR  // a processor with byte shuffles
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

HWY_EXPORT(ScaleWidth);

}  // namespace

void scale_width(const WIDTH_TABLES& tables, unsigned char* dst,
                 const unsigned char* src) noexcept {
  HWY_DYNAMIC_DISPATCH(ScaleWidth)(tables, dst, src);
}

}  // namespace vox
#endif
