#include <algorithm>

#include "sim/Forecast.h"
#include "tests/e2e/ScanClient.h"
#include "tests/support/PlainRoad.h"

namespace vox::test {
namespace {

_SCANINFO PipelineInfo(const sim::ScanInfo& info) {
  _SCANINFO record{};
  record.DataType = info.data_type;
  record.Xresolution = info.x_resolution;
  record.Yresolution = info.y_resolution;
  record.Window = {info.x_pos, info.y_pos, info.x_extent, info.y_extent};
  record.DitherPattern = info.dither_pattern;
  record.dwLeftCutMargin = info.left_cut_margin;
  record.dwRightCutMargin = info.right_cut_margin;
  return record;
}

std::vector<Line> Cut(const std::vector<std::uint8_t>& bytes, const sim::ScanInfo& info) {
  const auto line_bytes = static_cast<std::ptrdiff_t>(sim::LineBytes(info));
  std::vector<Line> lines;
  for (auto at = bytes.begin(); lines.size() < info.y_extent; at += line_bytes) {
    lines.emplace_back(at, at + line_bytes);
  }
  return lines;
}

}  // namespace

std::vector<Line> ExpectedLines(const sim::Forecast& device, const tagTWSCANPARAM& request,
                                const sim::ScanInfo& device_request, std::size_t page) {
  const sim::ScanInfo info = device.PageInfo(device_request, page);
  std::vector<Line> lines = Cut(device.PageLines(device_request, page), info);
  if (info.angle == 180 && info.preview == 0) {
    lines = TurnedPage(lines, sim::BitsPerPixel(info.data_type));
  }
  return ClientLines(request, PipelineInfo(info), lines);
}

}  // namespace vox::test
