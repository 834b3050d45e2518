#include "tests/support/PlainKernels.h"

#include <algorithm>

namespace vox::test {
namespace {

constexpr float kTwoTo31 = 2147483648.0f;

std::uint8_t Rounded(float value) {
  return static_cast<std::uint8_t>(static_cast<int>(value + 0.5f));
}

float At(const Line& line, std::size_t index) {
  return static_cast<float>(line[index]);
}

// The last source position of target o.
std::size_t Right(float o_and_a_half, float d, float s, std::size_t last) {
  const float place = o_and_a_half / d * s;
  return place < static_cast<float>(last) ? static_cast<std::size_t>(place) : last;
}

float Weight(std::size_t n, std::size_t o, float d_targets, float s) {
  const float d = static_cast<float>(n) / s * d_targets - static_cast<float>(o);
  return d < 0 ? d + 0.5f : 0.5f - d;
}

float TotalWeight(std::size_t left, std::size_t right, std::size_t o, float d, float s) {
  float total = 0;
  for (std::size_t n = left; n <= right; ++n) total += Weight(n, o, d, s);
  return total;
}

}  // namespace

std::uint32_t PlainTruncated(float value) {
  if (!(value == value)) return 0;
  if (value >= 2 * kTwoTo31) return 0xFFFFFFFF;
  if (value >= kTwoTo31) {
    return static_cast<std::uint32_t>(static_cast<std::int32_t>(value - kTwoTo31)) | 0x80000000u;
  }
  if (value <= -kTwoTo31) return 0x80000000;
  return static_cast<std::uint32_t>(static_cast<std::int32_t>(value));
}

std::uint32_t PlainRounded(float value) {
  return PlainTruncated(value + 0.5f);
}

Line PlainExpandWidth(const Line& src, std::size_t dstW, std::size_t srcW, std::size_t ps) {
  Line dst(dstW * ps);
  if (dst.empty() || srcW == 0) return dst;
  const float scale = static_cast<float>(srcW - 1) / static_cast<float>(dstW - 1);
  for (std::size_t c = 0; c < ps; ++c) {
    dst[c] = src[c];
    dst[(dstW - 1) * ps + c] = src[(srcW - 1) * ps + c];
  }
  for (std::size_t i = 1; i + 1 < dstW; ++i) {
    const float p = static_cast<float>(i) * scale;
    const std::size_t k = std::min<std::size_t>(static_cast<std::size_t>(p), srcW - 1);
    const std::size_t above = std::min(k + 1, srcW - 1);
    const float w = p - static_cast<float>(k);
    for (std::size_t c = 0; c < ps; ++c) {
      dst[i * ps + c] = Rounded(At(src, k * ps + c) * (1.0f - w) + At(src, above * ps + c) * w);
    }
  }
  return dst;
}

Line PlainReduceWidth(const Line& src, std::size_t dstW, std::size_t srcW, std::size_t ps) {
  Line dst(dstW * ps);
  if (dst.empty() || srcW == 0) return dst;
  const float d = static_cast<float>(dstW - 1), s = static_cast<float>(srcW - 1);
  std::size_t left = 0;
  std::vector<float> weights;
  for (std::size_t o = 0; o < dstW; ++o) {
    const std::size_t right = Right(static_cast<float>(o) + 0.5f, d, s, srcW - 1);
    left = std::min(left, right);
    const float total = TotalWeight(left, right, o, d, s);
    weights.clear();
    for (std::size_t n = left; n <= right; ++n) weights.push_back(Weight(n, o, d, s));
    for (std::size_t c = 0; c < ps; ++c) {
      float sum = 0;
      for (std::size_t n = left; n <= right; ++n) sum += At(src, n * ps + c) * weights[n - left];
      const float mean = total > 0 ? std::max(sum / total, 0.0f) : At(src, right * ps + c);
      dst[o * ps + c] = mean >= 255.0f ? std::uint8_t{255} : Rounded(mean);
    }
    left = right + 1;
  }
  return dst;
}

Line PlainGradeLine(const Line& lower, const Line& upper, float f) {
  Line dst(lower.size());
  for (std::size_t i = 0; i < dst.size(); ++i) {
    dst[i] = Rounded(At(lower, i) * (1.0f - f) + At(upper, i) * f);
  }
  return dst;
}

Line PlainShrunkLine(const std::vector<Line>& lines, std::size_t j, std::size_t count) {
  const std::size_t last = lines.size() - 1;
  const float d = static_cast<float>(count - 1), s = static_cast<float>(last);
  const std::size_t upper = Right(static_cast<float>(j) + 0.5f, d, s, last);
  std::size_t lower = j == 0 ? 0 : Right(static_cast<float>(j) - 0.5f, d, s, last) + 1;
  lower = std::min(lower, upper);
  const float total = TotalWeight(lower, upper, j, d, s);
  if (!(total > 0)) return lines[upper];
  std::vector<float> weights;
  for (std::size_t n = lower; n <= upper; ++n) weights.push_back(Weight(n, j, d, s));
  Line dst(lines[0].size());
  for (std::size_t i = 0; i < dst.size(); ++i) {
    float sum = 0;
    for (std::size_t n = lower; n <= upper; ++n)
      sum += At(lines[n], i) * weights[n - lower] / total;
    dst[i] = Rounded(std::clamp(sum, 0.0f, 255.0f));
  }
  return dst;
}

Line PlainBitReduced(const Line& grey, std::size_t width, std::uint32_t threshold) {
  Line bits((width + 7) / 8);
  for (std::size_t x = 0; x < width; ++x) {
    if (grey[x] < (threshold == 0 ? 170u : threshold)) continue;
    bits[x / 8] = static_cast<std::uint8_t>(bits[x / 8] | (0x80 >> (x % 8)));
  }
  return bits;
}

Line PlainMirrored(const Line& line, unsigned depth) {
  Line mirrored = line;
  const std::size_t unit = depth == 24 ? 3 : 1;
  const std::size_t units = line.size() / unit;
  for (std::size_t i = 0; i < units * unit; ++i) {
    mirrored[(units - 1 - i / unit) * unit + i % unit] = line[i];
  }
  if (depth != 1) return mirrored;
  for (std::uint8_t& byte : mirrored) {
    unsigned reversed = 0;
    for (int bit = 0; bit < 8; ++bit) reversed = reversed * 2 + ((byte >> bit) & 1u);
    byte = static_cast<std::uint8_t>(reversed);
  }
  return mirrored;
}

}  // namespace vox::test
