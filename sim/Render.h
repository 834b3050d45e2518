// From a page source to the lines that a device sends: brightness and contrast, grey and bilevel
// reduction, cut margins, plane orders, turning. Integer arithmetic; the same request gives the
// same bytes everywhere, so a test can compute what a device will send.
//
// Lines hold a set bit for white (bilevel), one byte from 0 black to 255 white (grey), or three
// bytes in the device's plane order (colour).
// Thread rule: functions are pure; a LineRenderer belongs to one thread.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "sim/PageSource.h"
#include "sim/ScanInfo.h"

namespace vox::sim {

struct RenderOptions {
  std::uint32_t plane_order = 0;      // 0 to 5, as DeviceOptions::plane_order
  std::uint32_t threshold = 128;      // bilevel: grey at or above is white; ScanInfo's wins
  std::uint32_t physical_height = 0;  // 1/10000 inch; lines below are white; 0: no limit
  bool operator==(const RenderOptions&) const = default;
};

// The orders of the three planes; pixel byte k of a line is plane kPlaneOrders[order][k] of R, G,
// B.
inline constexpr std::array<std::array<std::uint8_t, 3>, 6> kPlaneOrders = {
    {{0, 1, 2}, {0, 2, 1}, {1, 0, 2}, {1, 2, 0}, {2, 0, 1}, {2, 1, 0}}};

// LineRenderer draws the lines of one page as `info` (what the device sends as scan information)
// describes them. info.x_extent must be at most kMaxRasterWidth, its resolutions 1 to
// kMaxResolution, its data type known.
class LineRenderer {
 public:
  LineRenderer(PagePtr page, const ScanInfo& info, const RenderOptions& options);
  ~LineRenderer();
  // Draw draws line `index` in sending order: line[0, LineBytes(info)) out.
  void Draw(std::uint32_t index, std::span<std::uint8_t> line);

 private:
  using Levels = std::array<std::uint8_t, 256>;

  void DrawUpright(std::uint32_t index, std::span<std::uint8_t> line);
  void PackColour(std::span<std::uint8_t> line) const;
  void PackGrey(std::span<std::uint8_t> line) const;
  void PackBilevel(std::span<std::uint8_t> line) const;
  std::uint8_t GreyAt(std::size_t column) const;
  void MirrorRow();

  const PagePtr page_;
  const ScanInfo info_;
  const RenderOptions options_;
  const std::uint32_t threshold_;
  const std::int64_t bottom_;  // first row below the device's reach
  const Levels levels_;        // brightness, contrast and negative
  std::unique_ptr<PageRaster> raster_;
  std::vector<std::uint8_t> rgb_;  // one row
};

// RenderLine and RenderPage: LineBytes(info) bytes of one line, or of all y_extent lines.
std::vector<std::uint8_t> RenderLine(PagePtr page, const ScanInfo& info,
                                     const RenderOptions& options, std::uint32_t index);
std::vector<std::uint8_t> RenderPage(PagePtr page, const ScanInfo& info,
                                     const RenderOptions& options);

// TurnLine mirrors a line: pixels in reverse order; for bilevel lines bytes and their bits.
void TurnLine(std::uint32_t data_type, std::span<std::uint8_t> line);

}  // namespace vox::sim
