#include "vox/drivers/WidthScaler.h"

#include <algorithm>

#include "vox/drivers/EnlargePlaces.h"
#include "vox/drivers/ShrinkSpans.h"

namespace vox {
namespace {

constexpr std::size_t kBlock = 256;  // target pixels that are summed at a time

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
    : m_dwSrcWidth(srcW), m_ps(ps), m_dwTaps(taps), m_first(dstW) {
  m_weight.resize(std::size_t{taps} * dstW * ps);
}

// All bytes of a pixel have the same weights; a table of bytes lets sums run straight on.
void WidthScaler::set_weight(std::uint32_t o, std::uint32_t tap, float weight) {
  std::fill_n(&m_weight[(tap * m_first.size() + o) * m_ps], m_ps, weight);
}

void WidthScaler::set_total(std::uint32_t o, float total) {
  std::fill_n(&m_total[std::size_t{o} * m_ps], m_ps, total);
}

// Source pixel `first` becomes a tap of target pixel o, with as many behind it as fit the source.
// Returns: which tap it is; the window moves left at the end of the line.
std::uint32_t WidthScaler::set_window(std::uint32_t o, std::uint32_t first) {
  m_first[o] = std::min(first, m_dwSrcWidth - m_dwTaps);
  return first - m_first[o];
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
  return scaler;
}

WidthScaler WidthScaler::reduce(std::uint32_t dstW, std::uint32_t srcW, std::uint32_t ps) {
  if (dstW == 0 || srcW == 0 || ps == 0) return {};
  const ShrinkSpans spans(dstW, srcW);
  WidthScaler scaler(dstW, srcW, ps, widest_span(spans, dstW));
  scaler.m_total.assign(std::size_t{dstW} * ps, 1.0f);
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
  return scaler;
}

void WidthScaler::run(unsigned char* dst, const unsigned char* src) const {
  switch (m_ps) {
    case 1:
      run_blocks<1>(dst, src);
      break;
    case 3:
      run_blocks<3>(dst, src);
      break;
    default:
      run_plain(dst, src);
      break;
  }
}

// Pixel sizes that no page has.
void WidthScaler::run_plain(unsigned char* dst, const unsigned char* src) const {
  const std::size_t row = m_first.size() * m_ps;
  for (std::size_t i = 0; i < row; ++i) {
    const unsigned char* const in = src + std::size_t{m_first[i / m_ps]} * m_ps + i % m_ps;
    float sum = 0;
    for (std::size_t tap = 0; tap < m_dwTaps; ++tap) {
      sum += static_cast<float>(in[tap * m_ps]) * m_weight[tap * row + i];
    }
    dst[i] = byte_of_mean(m_total.empty() ? sum : sum / m_total[i]);
  }
}

// A block's sums stay in cache, and its loops over bytes are such that compilers make vector code.
template <unsigned PS>
void WidthScaler::run_blocks(unsigned char* dst, const unsigned char* src) const {
  float sum[kBlock * PS];
  for (std::size_t at = 0; at < m_first.size(); at += kBlock) {
    const std::size_t count = std::min(kBlock, m_first.size() - at);
    unsigned char* const __restrict out = dst + at * PS;
    sum_block<PS>(sum, src, at, count);
    if (m_total.empty()) {
      for (std::size_t i = 0; i < count * PS; ++i) out[i] = byte_in_range(sum[i]);
    } else {
      const float* const total = m_total.data() + at * PS;
      for (std::size_t i = 0; i < count * PS; ++i) out[i] = byte_of_mean(sum[i] / total[i]);
    }
  }
}

template <unsigned PS>
void WidthScaler::sum_block(float* sum, const unsigned char* src, std::size_t at,
                            std::size_t count) const {
  unsigned char bytes[kBlock * PS];
  std::fill_n(sum, count * PS, 0.0f);
  for (std::size_t tap = 0; tap < m_dwTaps; ++tap) {
    for (std::size_t i = 0; i < count; ++i) {
      const unsigned char* const pixel = src + (m_first[at + i] + tap) * PS;
      for (std::size_t c = 0; c < PS; ++c) bytes[i * PS + c] = pixel[c];
    }
    const float* const w = m_weight.data() + (tap * m_first.size() + at) * PS;
    for (std::size_t i = 0; i < count * PS; ++i) sum[i] += static_cast<float>(bytes[i]) * w[i];
  }
}

}  // namespace vox
