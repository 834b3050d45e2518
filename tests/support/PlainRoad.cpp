#include "tests/support/PlainRoad.h"

#include <algorithm>
#include <initializer_list>

namespace vox::test {
namespace {

// All sums are in single precision, in the order written here.
unsigned Depth(const _SCANINFO& info) {
  return info.DataType == 0 ? 1 : info.DataType == 2 ? 8 : 24;
}

std::uint8_t ByteAt(const Line& line, std::size_t index) {
  return index < line.size() ? line[index] : std::uint8_t{0};
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

std::uint32_t FrameWidth(const tagTWSCANPARAM& request, const _SCANINFO& info) {
  return PlainRounded((request.fRight - request.fLeft) * static_cast<float>(info.Xresolution));
}

Line Trimmed(const tagTWSCANPARAM& request, const _SCANINFO& info, const Line& raw) {
  const unsigned depth = Depth(info);
  const std::uint32_t width = FrameWidth(request, info);
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

// Every device line ends up as wide as the client's lines need it, with zeros behind its pixels.
Line Across(const tagTWSCANPARAM& request, const _SCANINFO& info, const Line& trimmed) {
  const std::uint32_t wanted = PlainTruncated(request.fXResolution);
  const std::uint32_t from = FrameWidth(request, info);
  const std::size_t to = request.dwImageWidth, bytes = Depth(info) / 8;
  Line line = trimmed;
  if (wanted > info.Xresolution) line = PlainExpandWidth(trimmed, to, from, bytes);
  if (wanted < info.Xresolution) line = PlainReduceWidth(trimmed, to, from, bytes);
  line.resize(std::max<std::size_t>({line.size(), to * Depth(info), request.dwLineSize}));
  return line;
}

Line EnlargedDown(const std::vector<Line>& lines, std::size_t j, std::size_t count) {
  const std::size_t last = lines.size() - 1;
  if (j == 0) return lines[0];
  if (j == count - 1) return lines[last];
  const float at = static_cast<float>(j) / static_cast<float>(count - 1) * static_cast<float>(last);
  const auto lower = std::min(static_cast<std::size_t>(at), last);
  if (lower == 0 || lower == last) return lines[lower];
  return PlainGradeLine(lines[lower], lines[lower + 1], at - static_cast<float>(lower));
}

// One client line; pixels in whole bytes only where lines are rescaled.
Line Down(const tagTWSCANPARAM& request, const _SCANINFO& info, const std::vector<Line>& lines,
          std::size_t j) {
  const std::uint32_t wanted = PlainTruncated(request.fYResolution);
  if (wanted == info.Yresolution) return lines[j];
  Line line = wanted > info.Yresolution ? EnlargedDown(lines, j, request.dwImageLength)
                                        : PlainShrunkLine(lines, j, request.dwImageLength);
  const std::size_t room = line.size();
  line.resize(std::size_t{request.dwImageWidth} * Depth(info) / 8);
  line.resize(room);
  return line;
}

}  // namespace

std::vector<Line> ClientLines(const tagTWSCANPARAM& request, const _SCANINFO& info,
                              const std::vector<Line>& device_lines) {
  std::vector<Line> lines;
  for (const Line& raw : device_lines) {
    lines.push_back(Across(request, info, Trimmed(request, info, raw)));
  }
  const bool passes = PlainTruncated(request.fYResolution) == info.Yresolution;
  std::vector<Line> client;
  for (std::size_t j = 0; j < request.dwImageLength; ++j) {
    if (lines.empty() || (passes && j >= lines.size())) {
      client.emplace_back(request.dwLineSize, 0xFF);
      continue;
    }
    Line line = Down(request, info, lines, j);
    if (Depth(info) != request.wBitsPerPixel) {
      line = PlainBitReduced(line, request.dwImageWidth, info.DitherPattern);
    }
    line.resize(request.dwLineSize);
    client.push_back(line);
  }
  return client;
}

std::vector<Line> TurnedPage(const std::vector<Line>& lines, unsigned depth) {
  std::vector<Line> turned;
  for (auto line = lines.rbegin(); line != lines.rend(); ++line) {
    turned.push_back(PlainMirrored(*line, depth));
  }
  return turned;
}

}  // namespace vox::test
