#include "vox/drivers/WidthScaler.h"

#include <algorithm>
#include <iterator>

#include "vox/drivers/ScanParameters.h"
#include "vox/drivers/ShrinkSpans.h"

namespace vox {
namespace {

constexpr std::size_t kBlock = 256;  // target pixels that are summed at a time, one channel each

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
  m_weight.resize(std::size_t{taps} * dstW);
}

// Source pixel `first` becomes a tap of target pixel o, with as many behind it as fit the source.
// Returns: which tap it is; the window moves left at the end of the line.
std::uint32_t WidthScaler::set_window(std::uint32_t o, std::uint32_t first) {
  m_first[o] = std::min(first, m_dwSrcWidth - m_dwTaps);
  return first - m_first[o];
}

void WidthScaler::set_copy(std::uint32_t o, std::uint32_t n) {
  const std::uint32_t copied = set_window(o, n);
  for (std::uint32_t tap = 0; tap < m_dwTaps; ++tap) weight(o, tap) = tap == copied ? 1.0f : 0.0f;
}

WidthScaler WidthScaler::expand(std::uint32_t dstW, std::uint32_t srcW, std::uint32_t ps) {
  if (dstW == 0 || srcW == 0 || ps == 0) return {};
  WidthScaler scaler(dstW, srcW, ps, std::min(srcW, 2u));
  const std::uint32_t last = srcW - 1;
  const float scale = static_cast<float>(last) / static_cast<float>(dstW - 1);
  scaler.set_copy(0, 0);
  for (std::uint32_t i = 1; i + 1 < dstW; ++i) {
    const float place = static_cast<float>(i) * scale;
    const std::uint32_t k = truncate32(place);
    if (k >= last) {
      scaler.set_copy(i, last);
      continue;
    }
    const float w = place - static_cast<float>(k);
    const std::uint32_t tap = scaler.set_window(i, k);
    scaler.weight(i, tap) = 1.0f - w;
    scaler.weight(i, tap + 1) = w;
  }
  scaler.set_copy(dstW - 1, last);
  return scaler;
}

WidthScaler WidthScaler::reduce(std::uint32_t dstW, std::uint32_t srcW, std::uint32_t ps) {
  if (dstW == 0 || srcW == 0 || ps == 0) return {};
  const ShrinkSpans spans(dstW, srcW);
  WidthScaler scaler(dstW, srcW, ps, widest_span(spans, dstW));
  scaler.m_total.assign(dstW, 1.0f);
  std::uint32_t left = 0;
  for (std::uint32_t o = 0; o < dstW; ++o) {
    const std::uint32_t right = spans.right(o);
    left = std::min(left, right);
    const std::uint32_t tap = scaler.set_window(o, left);
    float total = 0;
    for (std::uint32_t n = left; n <= right; ++n) {
      const float w = spans.weight(n, o);
      scaler.weight(o, tap + (n - left)) = w;
      total += w;
    }
    // At nearly equal widths single precision leaves spans whose weights cancel.
    if (total > 0) {
      scaler.m_total[o] = total;
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
      run_channels<1>(dst, src);
      break;
    case 3:
      run_channels<3>(dst, src);
      break;
    default:
      run_channels<0>(dst, src);
      break;
  }
}

// Blocks of one channel keep all sums in cache and leave loops that compilers turn into vector
// code.
template <unsigned PS>
void WidthScaler::run_channels(unsigned char* dst, const unsigned char* src) const {
  const std::size_t ps = PS != 0 ? PS : m_ps;
  float sum[kBlock];
  unsigned char bytes[kBlock];
  for (std::size_t at = 0; at < m_first.size(); at += kBlock) {
    const std::size_t count = std::min(kBlock, m_first.size() - at);
    for (std::size_t channel = 0; channel < ps; ++channel) {
      sum_taps<PS>(sum, src + channel, at, count);
      if (!m_total.empty()) {
        const float* const total = m_total.data() + at;
        for (std::size_t i = 0; i < count; ++i) sum[i] /= total[i];
      }
      for (std::size_t i = 0; i < count; ++i) bytes[i] = byte_of_mean(sum[i]);
      unsigned char* const out = dst + at * ps + channel;
      for (std::size_t i = 0; i < count; ++i) out[i * ps] = bytes[i];
    }
  }
}

template <unsigned PS>
void WidthScaler::sum_taps(float* sum, const unsigned char* src, std::size_t at,
                           std::size_t count) const {
  const std::size_t ps = PS != 0 ? PS : m_ps;
  const std::uint32_t* const first = m_first.data() + at;
  unsigned char bytes[kBlock];
  std::fill_n(sum, count, 0.0f);
  for (std::size_t tap = 0; tap < m_dwTaps; ++tap) {
    const float* const w = m_weight.data() + tap * m_first.size() + at;
    for (std::size_t i = 0; i < count; ++i) bytes[i] = src[(first[i] + tap) * ps];
    for (std::size_t i = 0; i < count; ++i) sum[i] += static_cast<float>(bytes[i]) * w[i];
  }
}

}  // namespace vox
