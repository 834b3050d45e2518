#include "tests/support/PlainRoad.h"

#include <algorithm>
#include <cmath>

namespace vox::test {
namespace {

// All sums are in single precision, in the order written here.
unsigned Depth(const _SCANINFO& info) {
  return info.DataType == 0 ? 1 : info.DataType == 2 ? 8 : 24;
}

std::uint32_t Rounded(float value) {
  return static_cast<std::uint32_t>(value + 0.5f);
}

std::uint8_t ByteAt(const Line& line, std::size_t index) {
  return index < line.size() ? line[index] : std::uint8_t{0};
}

std::uint8_t Pixel(float value) {
  return static_cast<std::uint8_t>(static_cast<int>(value + 0.5f));
}

Line Reordered(const Line& raw, std::uint32_t width, unsigned order) {
  static const unsigned planes[6][3] = {{0, 1, 2}, {0, 2, 1}, {1, 0, 2},
                                        {1, 2, 0}, {2, 0, 1}, {2, 1, 0}};
  Line out(std::size_t{width} * 3);
  for (std::size_t pixel = 0; pixel < width; ++pixel) {
    for (std::size_t k = 0; k < 3; ++k) {
      out[pixel * 3 + planes[order][k]] = ByteAt(raw, pixel * 3 + k);
    }
  }
  return out;
}

Line Trimmed(const tagTWSCANPARAM& request, const _SCANINFO& info, const Line& raw) {
  const unsigned depth = Depth(info);
  const auto width =
      Rounded((request.fRight - request.fLeft) * static_cast<float>(info.Xresolution));
  if (depth == 24 && request.wPlaneOrder >= 1 && request.wPlaneOrder <= 5) {
    return Reordered(raw, width, request.wPlaneOrder);
  }
  Line out((std::size_t{width} * depth + 7) / 8);
  const std::size_t start = std::size_t{info.dwLeftCutMargin} * depth / 8;
  const unsigned shift = depth == 1 ? info.dwLeftCutMargin % 8 : 0;
  for (std::size_t i = 0; i < out.size(); ++i) {
    const unsigned pair = ByteAt(raw, start + i) * 256u + ByteAt(raw, start + i + 1);
    out[i] = static_cast<std::uint8_t>(pair >> (8 - shift));
  }
  return out;
}

Line Enlarged(const Line& src, std::size_t to, std::size_t from, std::size_t bytes) {
  Line dst(to * bytes);
  const float scale = static_cast<float>(from - 1) / static_cast<float>(to - 1);
  for (std::size_t i = 0; i < to; ++i) {
    const float p = static_cast<float>(i) * scale;
    const auto k = static_cast<std::size_t>(p);
    const float w = p - static_cast<float>(k);
    for (std::size_t c = 0; c < bytes; ++c) {
      if (i == 0) {
        dst[c] = src[c];
      } else if (i == to - 1) {
        dst[i * bytes + c] = src[(from - 1) * bytes + c];
      } else {
        dst[i * bytes + c] = Pixel(static_cast<float>(src[k * bytes + c]) * (1.0f - w) +
                                   static_cast<float>(src[(k + 1) * bytes + c]) * w);
      }
    }
  }
  return dst;
}

float Weight(std::size_t n, float s, float d_lines, std::size_t out) {
  const float d = static_cast<float>(n) / s * d_lines - static_cast<float>(out);
  return d < 0 ? d + 0.5f : 0.5f - d;
}

Line Shrunk(const Line& src, std::size_t to, std::size_t from, std::size_t bytes) {
  Line dst(to * bytes);
  const float d = static_cast<float>(to - 1), s = static_cast<float>(from - 1);
  std::size_t left = 0;
  for (std::size_t o = 0; o < to; ++o) {
    const auto right = std::min<std::size_t>(
        static_cast<std::size_t>((static_cast<float>(o) + 0.5f) / d * s), from - 1);
    for (std::size_t c = 0; c < bytes; ++c) {
      float sum = 0, total = 0;
      for (std::size_t n = left; n <= right; ++n) {
        const float weight = Weight(n, s, d, o);
        sum += static_cast<float>(src[n * bytes + c]) * weight;
        total += weight;
      }
      const float value = sum / total;
      dst[o * bytes + c] = value >= 255.0f ? std::uint8_t{255} : Pixel(value);
    }
    left = right + 1;
  }
  return dst;
}

Line Across(const tagTWSCANPARAM& request, const _SCANINFO& info, const Line& trimmed) {
  const auto wanted = static_cast<std::uint32_t>(request.fXResolution);
  if (wanted == info.Xresolution) return trimmed;
  const auto from =
      Rounded((request.fRight - request.fLeft) * static_cast<float>(info.Xresolution));
  const std::size_t bytes = Depth(info) / 8;
  return wanted > info.Xresolution ? Enlarged(trimmed, request.dwImageWidth, from, bytes)
                                   : Shrunk(trimmed, request.dwImageWidth, from, bytes);
}

Line Blended(const Line& lower, const Line& upper, float weight) {
  Line out(lower.size());
  for (std::size_t i = 0; i < out.size(); ++i) {
    out[i] = Pixel(static_cast<float>(lower[i]) * (1.0f - weight) +
                   static_cast<float>(upper[i]) * weight);
  }
  return out;
}

Line EnlargedDown(const std::vector<Line>& lines, std::size_t j, std::size_t count) {
  const std::size_t last = lines.size() - 1;
  if (j == 0) return lines[0];
  if (j == count - 1) return lines[last];
  const float at = static_cast<float>(j) / static_cast<float>(count - 1) * static_cast<float>(last);
  const auto lower = static_cast<std::size_t>(at);
  if (lower == 0 || lower == last) return lines[lower];
  return Blended(lines[lower], lines[lower + 1], at - static_cast<float>(lower));
}

Line ShrunkDown(const std::vector<Line>& lines, std::size_t j, std::size_t count) {
  const float d = static_cast<float>(count - 1), s = static_cast<float>(lines.size() - 1);
  const float at = static_cast<float>(j);
  const std::size_t lower = j == 0 ? 0 : static_cast<std::size_t>((at - 0.5f) / d * s) + 1;
  const std::size_t upper =
      std::min<std::size_t>(static_cast<std::size_t>((at + 0.5f) / d * s), lines.size() - 1);
  float total = 0;
  for (std::size_t n = lower; n <= upper; ++n) total += Weight(n, s, d, j);
  Line out(lines[0].size());
  for (std::size_t i = 0; i < out.size(); ++i) {
    float value = 0;
    for (std::size_t n = lower; n <= upper; ++n) {
      value += static_cast<float>(lines[n][i]) * Weight(n, s, d, j) / total;
    }
    out[i] = Pixel(std::min(value, 255.0f));
  }
  return out;
}

Line Bilevel(const Line& grey, std::uint32_t width, std::uint32_t threshold) {
  Line out((width + 7) / 8);
  for (std::size_t x = 0; x < width; ++x) {
    if (grey[x] >= (threshold == 0 ? 170u : threshold)) {
      out[x / 8] = static_cast<std::uint8_t>(out[x / 8] | (0x80 >> (x % 8)));
    }
  }
  return out;
}

}  // namespace

std::vector<Line> ClientLines(const tagTWSCANPARAM& request, const _SCANINFO& info,
                              const std::vector<Line>& device_lines) {
  std::vector<Line> lines;
  for (const Line& raw : device_lines) {
    lines.push_back(Across(request, info, Trimmed(request, info, raw)));
  }
  const auto wanted = static_cast<std::uint32_t>(request.fYResolution);
  std::vector<Line> client;
  for (std::size_t j = 0; j < request.dwImageLength; ++j) {
    Line line;
    if (wanted == info.Yresolution) {
      line = j < lines.size() ? lines[j] : Line(request.dwLineSize, 0xFF);
    } else if (wanted > info.Yresolution) {
      line = EnlargedDown(lines, j, request.dwImageLength);
    } else {
      line = ShrunkDown(lines, j, request.dwImageLength);
    }
    if (Depth(info) != request.wBitsPerPixel) {
      line = Bilevel(line, request.dwImageWidth, info.DitherPattern);
    }
    line.resize(request.dwLineSize);
    client.push_back(line);
  }
  return client;
}

std::vector<Line> TurnedPage(const std::vector<Line>& lines, unsigned depth) {
  std::vector<Line> turned;
  for (auto line = lines.rbegin(); line != lines.rend(); ++line) {
    Line mirrored = *line;
    const std::size_t unit = depth == 24 ? 3 : 1;
    const std::size_t units = mirrored.size() / unit;
    for (std::size_t i = 0; i < units; ++i) {
      for (std::size_t c = 0; c < unit; ++c) {
        mirrored[i * unit + c] = (*line)[(units - 1 - i) * unit + c];
      }
    }
    if (depth == 1) {
      for (std::uint8_t& byte : mirrored) {
        std::uint8_t reversed = 0;
        for (int bit = 0; bit < 8; ++bit)
          reversed = static_cast<std::uint8_t>(reversed | (((byte >> bit) & 1) << (7 - bit)));
        byte = reversed;
      }
    }
    turned.push_back(mirrored);
  }
  return turned;
}

}  // namespace vox::test
