#include "vox/drivers/WidthScaler.h"

#include <algorithm>

#include "vox/drivers/EnlargePlaces.h"
#include "vox/drivers/ShrinkSpans.h"
#include "vox/drivers/WidthVectors.h"

namespace vox {
namespace {

// The greatest number of source pixels that one target pixel takes.
std::uint32_t widest_span(const ShrinkSpans& spans, std::uint32_t dstW) {
  std::uint32_t widest = 1;
  std::uint32_t left = 0;
  for (std::uint32_t o = 0; o < dstW; ++o) {
    const std::uint32_t right = spans.right(o);
    if (right >= left) widest = std::max(widest, right - left + 1);
    left = right + 1;
  }
  return widest;
}

}  // namespace

WidthScaler::WidthScaler(std::uint32_t dstW, std::uint32_t srcW, std::uint32_t ps,
                         std::uint32_t taps)
    : m_dwSrcWidth(srcW), m_dwTaps(taps) {
  m_tables.bytes = std::size_t{dstW} * ps;
  m_tables.row = (m_tables.bytes + kWidthRow - 1) / kWidthRow * kWidthRow;
  m_tables.source_bytes = std::size_t{srcW} * ps;
  m_tables.ps = ps;
  m_tables.first.resize(m_tables.bytes);
  m_tables.weight.resize(taps * m_tables.row);
}

// All bytes of a pixel have the same weights; a table of bytes lets sums run straight on.
void WidthScaler::set_weight(std::uint32_t o, std::uint32_t tap, float weight) {
  std::fill_n(&m_tables.weight[tap * m_tables.row + o * m_tables.ps], m_tables.ps, weight);
}

void WidthScaler::set_total(std::uint32_t o, float total) {
  std::fill_n(&m_tables.total[o * m_tables.ps], m_tables.ps, total);
  std::fill_n(&m_tables.share[o * m_tables.ps], m_tables.ps, 1.0f / total);
}

// Source pixel `first` becomes a tap of target pixel o, with as many behind it as fit the source.
// Returns: which tap it is; the window moves left at the end of the line.
std::uint32_t WidthScaler::set_window(std::uint32_t o, std::uint32_t first) {
  const std::uint32_t fitting = std::min(first, m_dwSrcWidth - m_dwTaps);
  for (std::size_t c = 0; c < m_tables.ps; ++c) {
    m_tables.first[o * m_tables.ps + c] = fitting * m_tables.ps + c;
  }
  return first - fitting;
}

void WidthScaler::set_copy(std::uint32_t o, std::uint32_t n) {
  const std::uint32_t copied = set_window(o, n);
  for (std::uint32_t tap = 0; tap < m_dwTaps; ++tap) {
    set_weight(o, tap, tap == copied ? 1.0f : 0.0f);
  }
}

WidthScaler WidthScaler::expand(std::uint32_t dstW, std::uint32_t srcW, std::uint32_t ps) {
  if (dstW == 0 || srcW == 0 || ps == 0) return {};
  WidthScaler scaler(dstW, srcW, ps, std::min(srcW, 2u));
  const EnlargePlaces places(dstW, srcW);
  for (std::uint32_t i = 0; i < dstW; ++i) {
    const ENLARGE_PLACE place = places.at(i);
    scaler.set_copy(i, place.k);
    if (place.w == 0) continue;
    scaler.set_weight(i, 0, 1.0f - place.w);
    scaler.set_weight(i, 1, place.w);
  }
  scaler.count_taps();
  scaler.set_picks();
  return scaler;
}

WidthScaler WidthScaler::reduce(std::uint32_t dstW, std::uint32_t srcW, std::uint32_t ps) {
  if (dstW == 0 || srcW == 0 || ps == 0) return {};
  const ShrinkSpans spans(dstW, srcW);
  WidthScaler scaler(dstW, srcW, ps, widest_span(spans, dstW));
  scaler.m_tables.total.assign(scaler.m_tables.row, 1.0f);
  scaler.m_tables.share.assign(scaler.m_tables.row, 1.0f);
  std::uint32_t left = 0;
  for (std::uint32_t o = 0; o < dstW; ++o) {
    const std::uint32_t right = spans.right(o);
    left = std::min(left, right);
    const std::uint32_t tap = scaler.set_window(o, left);
    const float total = spans.total(left, right, o);
    if (total > 0) {
      for (std::uint32_t n = left; n <= right; ++n) {
        scaler.set_weight(o, tap + (n - left), spans.weight(n, o));
      }
      scaler.set_total(o, total);
    } else {
      scaler.set_copy(o, right);
    }
    left = right + 1;
  }
  scaler.count_taps();
  scaler.set_picks();
  return scaler;
}

// Taps that no pixel of a chunk has need not be summed up there.
void WidthScaler::count_taps() {
  m_tables.taps.assign((m_tables.row + kWidthChunk - 1) / kWidthChunk, 1);
  for (std::size_t tap = 1; tap < m_dwTaps; ++tap) {
    for (std::size_t i = 0; i < m_tables.row; ++i) {
      if (m_tables.weight[tap * m_tables.row + i] != 0) m_tables.taps[i / kWidthChunk] = tap + 1;
    }
  }
}

// The windows of a group reach from its first to its last source byte; those of the last groups
// begin further left, so that they end with the source. A line that is narrower has none.
void WidthScaler::set_picks() {
  const std::size_t groups = (m_tables.bytes + kWidthGroup - 1) / kWidthGroup;
  std::size_t widest = 1;
  for (std::size_t i = 0; i < m_tables.bytes; i += kWidthGroup) {
    const auto group = m_tables.first.begin() + static_cast<std::ptrdiff_t>(i);
    const std::size_t count = std::min(kWidthGroup, m_tables.bytes - i);
    const auto [low, high] = std::minmax_element(group, group + static_cast<std::ptrdiff_t>(count));
    widest = std::max(widest, *high - *low + 1);
  }
  const std::size_t windows = (widest + kWidthGroup - 1) / kWidthGroup;
  const std::size_t reach = windows * kWidthGroup + (m_dwTaps - 1) * m_tables.ps;
  if (windows > kMaxWidthWindows || reach > m_tables.source_bytes) return;
  m_tables.windows = windows;
  m_tables.base.resize(m_tables.row / kWidthGroup);
  m_tables.pick.assign(m_tables.row * windows, kPickNone);
  for (std::size_t group = 0; group < groups; ++group) pick_group(group);
}

void WidthScaler::pick_group(std::size_t group) {
  const std::size_t windows = m_tables.windows;
  const std::size_t reach = windows * kWidthGroup + (m_dwTaps - 1) * m_tables.ps;
  const std::size_t at = group * kWidthGroup;
  const std::size_t count = std::min(kWidthGroup, m_tables.bytes - at);
  const std::size_t* const first = m_tables.first.data() + at;
  const std::size_t base =
      std::min(*std::min_element(first, first + count), m_tables.source_bytes - reach);
  m_tables.base[group] = base;
  for (std::size_t i = 0; i < count; ++i) {
    const std::size_t byte = first[i] - base;
    const std::size_t window = group * windows + byte / kWidthGroup;
    m_tables.pick[window * kWidthGroup + i] = static_cast<unsigned char>(byte % kWidthGroup);
  }
}

void WidthScaler::run(unsigned char* dst, const unsigned char* src) const {
  scale_width(m_tables, dst, src);
}

}  // namespace vox
