#include "vox/drivers/LineStages.h"

#include <algorithm>
#include <cstring>
#include <initializer_list>
#include <new>

#include "vox/drivers/LineKernels.h"
#include "vox/drivers/LineVectors.h"
#include "vox/drivers/ScanParameters.h"

namespace vox {
namespace {

constexpr std::size_t kRawSpare = 16;  // bytes behind a raw line

// Where the three bytes of a colour pixel go, by wPlaneOrder.
constexpr unsigned char kPlane[6][3] = {{0, 1, 2}, {0, 2, 1}, {1, 0, 2},
                                        {1, 2, 0}, {2, 0, 1}, {2, 1, 0}};

std::uint32_t frame_width(const tagTWSCANPARAM& param, const _SCANINFO& info) {
  return round32((param.fRight - param.fLeft) * static_cast<float>(info.Xresolution));
}

bool rescales_width(const tagTWSCANPARAM& param, const _SCANINFO& info) {
  return truncate32(param.fXResolution) != info.Xresolution;
}

bool reduces(const tagTWSCANPARAM& param, unsigned depth) {
  return depth != param.wBitsPerPixel;
}

WidthScaler width_scaler(const tagTWSCANPARAM& param, const _SCANINFO& info, unsigned depth) {
  if (!rescales_width(param, info)) return {};
  const std::uint32_t from = frame_width(param, info);
  const std::uint32_t bytes = depth / 8;  // 0 for bits, which cannot be blended
  return truncate32(param.fXResolution) > info.Xresolution
             ? WidthScaler::expand(param.dwImageWidth, from, bytes)
             : WidthScaler::reduce(param.dwImageWidth, from, bytes);
}

std::uint32_t plane_row(const tagTWSCANPARAM& param, unsigned depth) {
  return depth == 24 && param.wPlaneOrder <= 5 ? param.wPlaneOrder : 0;
}

// The part of a raw line that begins `skipped` bytes in, at most `wanted` bytes of it.
std::size_t reachable(std::size_t raw, std::size_t skipped, std::size_t wanted) {
  return skipped < raw ? std::min(raw - skipped, wanted) : 0;
}

}  // namespace

unsigned device_depth(std::uint32_t DataType) {
  switch (DataType) {
    case 0:
      return 1;
    case 2:
      return 8;
    case 3:
      return 24;
    default:
      return 0;
  }
}

LINE_SIZES line_sizes(const tagTWSCANPARAM& param, const _SCANINFO& info) {
  const unsigned depth = device_depth(info.DataType);
  const std::uint64_t width = param.dwImageWidth;
  const std::uint64_t bits = width * depth;
  const bool reduce = reduces(param, depth);
  const std::uint64_t raw = std::uint64_t{info.Window.xExtent} * depth / 8;
  const std::uint64_t trimmed = (std::uint64_t{frame_width(param, info)} * depth + 7) / 8;
  const std::uint64_t device =
      std::max<std::uint64_t>({rescales_width(param, info) ? 0 : trimmed, (bits + 7) / 8,
                               param.dwLineSize, reduce ? width : 0});
  const std::uint64_t client =
      std::max<std::uint64_t>(param.dwLineSize, ((reduce ? width : bits) + 7) / 8);
  const std::uint64_t lines = std::max(info.Window.yExtent, param.dwImageLength);
  if (std::max({raw, trimmed, device, client}) > kMaxLineBytes || lines > kMaxPageLines) {
    throw std::bad_alloc();
  }
  const auto size = [](std::uint64_t bytes) { return static_cast<std::size_t>(bytes); };
  return {depth, size(raw), size(raw) + kRawSpare, size(trimmed), size(device), size(client)};
}

HorizontalStage::HorizontalStage(const tagTWSCANPARAM& param, const _SCANINFO& info)
    : m_sizes(line_sizes(param, info)),
      m_dwPlanes(plane_row(param, m_sizes.depth)),
      m_margin(static_cast<std::size_t>(std::uint64_t{info.dwLeftCutMargin} * m_sizes.depth / 8)),
      m_shift(m_sizes.depth == 1 ? info.dwLeftCutMargin % 8 : 0),
      m_rescale(rescales_width(param, info)),
      m_whole(m_dwPlanes == 0 && m_shift == 0 &&
              reachable(m_sizes.raw, m_margin, m_sizes.trimmed) == m_sizes.trimmed),
      m_scaler(width_scaler(param, info, m_sizes.depth)),
      m_line(m_rescale ? m_sizes.trimmed : 0) {}

void HorizontalStage::run(unsigned char* out, const unsigned char* raw) {
  std::memset(out, 0, m_sizes.device_room);
  if (!m_rescale) {
    trim(out, raw);
    return;
  }
  if (m_whole) {
    m_scaler.run(out, raw + m_margin);
    return;
  }
  trim(m_line.data(), raw);
  m_scaler.run(out, m_line.data());
}

void HorizontalStage::pass(unsigned char* line) const {
  std::memset(line + m_sizes.trimmed, 0, m_sizes.device_room - m_sizes.trimmed);
}

// Writes at most `trimmed` bytes, and always the same ones, so that the rest stays zero.
void HorizontalStage::trim(unsigned char* out, const unsigned char* raw) const {
  if (m_dwPlanes != 0) {
    trim_planes(out, raw);
  } else if (m_shift != 0) {
    trim_shifted(out, raw);
  } else if (const std::size_t size = reachable(m_sizes.raw, m_margin, m_sizes.trimmed)) {
    std::memcpy(out, raw + m_margin, size);
  }
}

// Reordered lines deliberately begin at the first byte: the margin is not skipped.
void HorizontalStage::trim_planes(unsigned char* out, const unsigned char* raw) const {
  const unsigned char* const plane = kPlane[m_dwPlanes];
  const std::size_t size = std::min(m_sizes.raw, m_sizes.trimmed);
  for (std::size_t at = 0; at + 3 <= size; at += 3) {
    for (std::size_t k = 0; k < 3; ++k) out[at + plane[k]] = raw[at + k];
  }
}

// The last byte that the raw line reaches is filled up with zeros.
void HorizontalStage::trim_shifted(unsigned char* out, const unsigned char* raw) const {
  const std::size_t size = reachable(m_sizes.raw, m_margin, m_sizes.trimmed);
  for (std::size_t k = 0; k < size; ++k) {
    const std::size_t next = m_margin + k + 1;
    const unsigned low = next < m_sizes.raw ? raw[next] : 0u;
    out[k] = static_cast<unsigned char>((raw[next - 1] << m_shift) | (low >> (8 - m_shift)));
  }
}

VerticalStage::VerticalStage(const tagTWSCANPARAM& param, const _SCANINFO& info)
    : m_sizes(line_sizes(param, info)),
      m_mode(PASS),
      m_reduce(reduces(param, m_sizes.depth)),
      m_dwWidth(param.dwImageWidth),
      m_dwThreshold(info.DitherPattern),
      m_yExtent(info.Window.yExtent),
      m_dwLength(param.dwImageLength),
      m_bytes(static_cast<std::size_t>(std::uint64_t{m_dwWidth} * m_sizes.depth / 8)),
      m_spans(std::max(m_dwLength, 1u), std::max(m_yExtent, 1u)) {
  const std::uint32_t wanted = truncate32(param.fYResolution);
  if (wanted != info.Yresolution) m_mode = wanted > info.Yresolution ? ENLARGE : SHRINK;
  if (m_reduce) m_grey.resize(std::max<std::size_t>(m_bytes, m_dwWidth));
  if (m_mode == SHRINK) m_sum.resize(m_bytes);
}

// Where client line j lies among the device lines when enlarging.
float VerticalStage::place(std::uint32_t j) const {
  return static_cast<float>(j) / static_cast<float>(m_dwLength - 1) *
         static_cast<float>(m_yExtent - 1);
}

LINE_SPAN VerticalStage::span(std::uint32_t j) const {
  if (j >= m_dwLength || m_yExtent == 0) return {true, 0, 0, 0};
  if (m_mode == PASS) {
    if (j >= m_yExtent) return {true, 0, 0, 0};
    return {false, j, j, j};
  }
  const std::uint32_t last = m_yExtent - 1;
  if (m_mode == SHRINK) {
    const std::uint32_t upper = m_spans.right(j);
    return {false, std::min(m_spans.left(j), upper), upper, upper};
  }
  if (j == 0) return {false, 0, 0, 0};
  if (j == m_dwLength - 1) return {false, last, last, last};
  const std::uint32_t lower = std::min(truncate32(place(j)), last);
  return {false, lower, std::min(lower + 1, last), lower};
}

void VerticalStage::begin(std::uint32_t j, unsigned char* out) {
  m_j = j;
  m_span = span(j);
  m_n = m_span.lower;
  m_out = out;
  m_target = m_reduce ? m_grey.data() : out;
  if (m_mode == SHRINK) m_fTotal = m_spans.total(m_span.lower, m_span.upper, m_j);
}

void VerticalStage::add(const unsigned char* line) {
  if (m_mode == SHRINK) {
    add_shrunk(line);
  } else {
    add_blended(line);
  }
  ++m_n;
}

// Line 0 and the last line are taken as they are, whatever the weight of the line above them.
void VerticalStage::add_blended(const unsigned char* line) {
  if (m_mode == PASS) {
    copy(line, m_reduce ? m_grey.size() : m_bytes);
  } else if (m_span.lower == 0 || m_span.lower == m_yExtent - 1) {
    if (m_n == m_span.lower) copy(line, m_bytes);
  } else if (m_n == m_span.lower) {
    m_firstPart.line = line;
  } else {
    GradeLine(m_target, m_firstPart.line, line, static_cast<unsigned>(m_bytes),
              place(m_j) - static_cast<float>(m_span.lower));
  }
}

void VerticalStage::copy(const unsigned char* line, std::size_t size) {
  if (size != 0) std::memcpy(m_target, line, size);
}

// The lines of a span are summed from the first to the last, each as it comes: the first waits for
// the second, and the last makes the bytes.
void VerticalStage::add_shrunk(const unsigned char* line) {
  if (m_fTotal == 0 || m_span.lower == m_span.upper) {
    // One line with its own weight is that line: v * w / w is v within rounding.
    if (m_n == m_span.upper) copy(line, m_bytes);
    return;
  }
  const LINE_PART part{line, m_spans.weight(m_n, m_j)};
  const bool last = m_n == m_span.upper;
  if (m_n == m_span.lower) {
    m_firstPart = part;
  } else if (m_n > m_span.lower + 1) {
    last ? mean_with(m_target, m_sum.data(), part, m_fTotal, m_bytes)
         : sum_one(m_sum.data(), part, m_fTotal, m_bytes);
  } else {
    last ? mean_of_two(m_target, m_firstPart, part, m_fTotal, m_bytes)
         : sum_two(m_sum.data(), m_firstPart, part, m_fTotal, m_bytes);
  }
}

void VerticalStage::finish() {
  std::size_t written = m_bytes;
  if (m_reduce) {
    BitReduceMonoLine(m_out, m_grey.data(), m_dwWidth, m_dwThreshold);
    written = m_dwWidth / 8 + (m_dwWidth % 8 != 0 ? 1 : 0);
  }
  std::memset(m_out + written, 0, m_sizes.client_room - written);
}

void VerticalStage::white(unsigned char* out) const {
  std::memset(out, 0xFF, m_sizes.client_room);
}

}  // namespace vox
