#include "sim/Render.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace vox::sim {
namespace {

constexpr std::uint8_t kWhitePixel = 255;

std::uint32_t ThresholdOf(const ScanInfo& info, const RenderOptions& options) {
  const bool given = info.dither_pattern >= 1 && info.dither_pattern <= 255;
  return given ? info.dither_pattern : options.threshold;
}

std::int64_t BottomOf(const ScanInfo& info, const RenderOptions& options) {
  if (options.physical_height == 0) return std::numeric_limits<std::int64_t>::max();
  return std::int64_t{options.physical_height} * info.y_resolution / 10000;
}

// Both settings are percentages, -100 to 100. Brightness moves every level by that part of the
// range; contrast stretches or flattens the levels around the middle.
std::array<std::uint8_t, 256> LevelsOf(const ScanInfo& info) {
  const int brightness = std::clamp(static_cast<std::int32_t>(info.intensity), -100, 100);
  const int contrast = std::clamp(static_cast<std::int32_t>(info.contrast), -100, 100);
  std::array<std::uint8_t, 256> levels{};
  for (int i = 0; i < 256; ++i) {
    int level = i + brightness * 255 / 100;
    const int distance = level * 2 - 255;  // doubled, so that the middle, 127.5, is whole
    const int stretched = contrast <= 0    ? distance * (100 + contrast) / 100
                          : contrast < 100 ? distance * 100 / (100 - contrast)
                          : distance < 0   ? -255
                                           : 255;
    level = std::clamp((stretched + 255) / 2, 0, 255);
    levels[static_cast<std::size_t>(i)] =
        static_cast<std::uint8_t>(info.negative == 1 ? 255 - level : level);
  }
  return levels;
}

std::uint8_t ReverseBits(std::uint8_t byte) {
  byte = static_cast<std::uint8_t>((byte & 0xF0) >> 4 | (byte & 0x0F) << 4);
  byte = static_cast<std::uint8_t>((byte & 0xCC) >> 2 | (byte & 0x33) << 2);
  return static_cast<std::uint8_t>((byte & 0xAA) >> 1 | (byte & 0x55) << 1);
}

}  // namespace

LineRenderer::LineRenderer(PagePtr page, const ScanInfo& info, const RenderOptions& options)
    : page_(std::move(page)),
      info_(info),
      options_(options),
      threshold_(ThresholdOf(info, options)),
      bottom_(BottomOf(info, options)),
      levels_(LevelsOf(info)),
      raster_(page_->Open({info.x_resolution, info.y_resolution,
                           std::int64_t{info.x_pos} - info.left_cut_margin, info.x_extent})),
      rgb_(std::size_t{info.x_extent} * 3) {}

LineRenderer::~LineRenderer() = default;

void LineRenderer::Draw(std::uint32_t index, std::span<std::uint8_t> line) {
  if (info_.angle == 180 && info_.preview == 0) {
    DrawUpright(info_.y_extent - 1 - index, line);
    TurnLine(info_.data_type, line);
  } else {
    DrawUpright(index, line);
  }
}

void LineRenderer::DrawUpright(std::uint32_t index, std::span<std::uint8_t> line) {
  const std::int64_t y = std::int64_t{info_.y_pos} + index;
  if (y >= bottom_) {
    std::fill(line.begin(), line.end(), kWhitePixel);
    return;
  }
  raster_->DrawRow(y, rgb_);
  if (info_.mirror == 1) MirrorRow();
  switch (info_.data_type) {
    case kColour:
      return PackColour(line);
    case kGrey:
      return PackGrey(line);
    default:
      return PackBilevel(line);
  }
}

void LineRenderer::PackColour(std::span<std::uint8_t> line) const {
  const auto& order = kPlaneOrders[options_.plane_order % kPlaneOrders.size()];
  for (std::size_t i = 0; i + 2 < line.size(); i += 3) {
    for (std::size_t k = 0; k < 3; ++k) line[i + k] = levels_[rgb_[i + order[k]]];
  }
}

// ITU-R BT.601 luma, in 1/256.
std::uint8_t LineRenderer::GreyAt(std::size_t column) const {
  const std::uint8_t* p = rgb_.data() + 3 * column;
  return levels_[(77u * p[0] + 150u * p[1] + 29u * p[2] + 128u) >> 8];
}

void LineRenderer::PackGrey(std::span<std::uint8_t> line) const {
  for (std::size_t i = 0; i < line.size(); ++i) line[i] = GreyAt(i);
}

void LineRenderer::PackBilevel(std::span<std::uint8_t> line) const {
  std::size_t column = 0;
  for (std::uint8_t& byte : line) {
    std::uint32_t bits = 0;
    for (int bit = 0; bit < 8; ++bit) bits = bits << 1 | (GreyAt(column++) >= threshold_ ? 1u : 0u);
    byte = static_cast<std::uint8_t>(bits);
  }
}

void LineRenderer::MirrorRow() {
  TurnLine(kColour, rgb_);
}

void TurnLine(std::uint32_t data_type, std::span<std::uint8_t> line) {
  if (data_type == kColour) {
    for (std::size_t low = 0, high = line.size(); low + 3 < high; low += 3) {
      high -= 3;
      std::swap_ranges(line.begin() + static_cast<std::ptrdiff_t>(low),
                       line.begin() + static_cast<std::ptrdiff_t>(low) + 3,
                       line.begin() + static_cast<std::ptrdiff_t>(high));
    }
    return;
  }
  std::reverse(line.begin(), line.end());
  if (data_type != kBilevel) return;
  for (std::uint8_t& byte : line) byte = ReverseBits(byte);
}

std::vector<std::uint8_t> RenderLine(PagePtr page, const ScanInfo& info,
                                     const RenderOptions& options, std::uint32_t index) {
  std::vector<std::uint8_t> line(LineBytes(info));
  LineRenderer(std::move(page), info, options).Draw(index, line);
  return line;
}

std::vector<std::uint8_t> RenderPage(PagePtr page, const ScanInfo& info,
                                     const RenderOptions& options) {
  const std::size_t size = LineBytes(info);
  std::vector<std::uint8_t> lines(size * info.y_extent);
  LineRenderer renderer(std::move(page), info, options);
  for (std::uint32_t y = 0; y < info.y_extent; ++y) {
    renderer.Draw(y, std::span(lines).subspan(size * y, size));
  }
  return lines;
}

}  // namespace vox::sim
