#include "sim/JobPlan.h"

#include <algorithm>

#include "sim/JbigBlock.h"

namespace vox::sim {
namespace {

constexpr std::uint32_t kMaxLines = 1u << 24;
constexpr std::uint32_t kEncodeJbig = 1;

bool IsDuplex(const DeviceOptions& options, const ScanInfo& request) {
  return options.duplex != 0 &&
         (request.unit_mode == kDuplexBook || request.unit_mode == kDuplexTablet);
}

const UnitOptions& UnitOf(const DeviceOptions& options, bool from_feeder) {
  if (from_feeder ? options.feeder.has_value() : !options.flatbed) return *options.feeder;
  return *options.flatbed;
}

std::uint32_t Rescale(std::uint32_t extent, std::uint32_t from, std::uint32_t to) {
  if (from == to || from == 0) return extent;
  const std::uint64_t scaled = (std::uint64_t{extent} * to + from / 2) / from;
  return static_cast<std::uint32_t>(std::min<std::uint64_t>(scaled, 0xFFFFFFFF));
}

// A resolution outside the unit's range is brought to its nearest end, and the window with it.
void ClampResolution(const UnitOptions& unit, const ScanInfo& request, ScanInfo& info) {
  info.x_resolution =
      std::clamp(request.x_resolution, unit.x_resolution_min, unit.x_resolution_max);
  info.y_resolution =
      std::clamp(request.y_resolution, unit.y_resolution_min, unit.y_resolution_max);
  info.x_pos = Rescale(request.x_pos, request.x_resolution, info.x_resolution);
  info.x_extent = Rescale(request.x_extent, request.x_resolution, info.x_resolution);
  info.y_pos = Rescale(request.y_pos, request.y_resolution, info.y_resolution);
  info.y_extent = Rescale(request.y_extent, request.y_resolution, info.y_resolution);
}

// Lines grow by the margins; bilevel ones end on a whole byte, the excess counted to the right.
void AddMargins(const DeviceOptions& options, ScanInfo& info) {
  info.left_cut_margin = options.left_cut_margin;
  info.right_cut_margin = options.right_cut_margin;
  if (info.x_extent == 0) return;
  info.x_extent += options.left_cut_margin + options.right_cut_margin;
  if (info.data_type != kBilevel) return;
  const std::uint32_t excess = info.x_extent % options.align_pixels;
  if (excess == 0) return;
  info.right_cut_margin += options.align_pixels - excess;
  info.x_extent += options.align_pixels - excess;
}

void SetCoding(const CodingOptions& coding, const ScanInfo& request, ScanInfo& info) {
  const bool jbig = coding.jbig && request.encode_type == kEncodeJbig &&
                    info.data_type == kBilevel && info.x_extent <= kMaxJbigWidth;
  info.jbig_line_template = jbig ? coding.line_template : 0;
  info.jbig_typical_prediction = jbig && coding.typical_prediction ? 1 : 0;
  const bool in_header = coding.image_header == ImageHeader::kInHeader;
  const std::size_t size = kBlockHeaderSize + (in_header ? kImageHeaderSize : 0);
  info.encode_header_size = static_cast<std::uint8_t>(jbig ? size : 0);
}

std::uint32_t AngleOf(const DeviceOptions& options, const ScanInfo& request,
                      const PlannedPage& page) {
  if (!page.is_back || request.preview != 0) return 0;
  const bool turned = options.back_side == BackSide::kTurned ||
                      (options.back_side == BackSide::kByMode && request.unit_mode == kDuplexBook);
  return turned ? 180 : 0;
}

bool IsUnitSane(const std::optional<UnitOptions>& unit) {
  if (!unit) return true;
  return unit->x_resolution_min >= 1 && unit->x_resolution_min <= unit->x_resolution_max &&
         unit->x_resolution_max <= kMaxResolution && unit->y_resolution_min >= 1 &&
         unit->y_resolution_min <= unit->y_resolution_max &&
         unit->y_resolution_max <= kMaxResolution && unit->physical_width >= 1 &&
         unit->physical_height >= 1;
}

}  // namespace

std::string SettleOptions(DeviceOptions& options) {
  if (!options.sheets.empty() && !options.feeder) options.feeder = UnitOptions{};
  if (!options.flatbed && !options.feeder) return "a device without a unit";
  if (!IsUnitSane(options.flatbed) || !IsUnitSane(options.feeder)) {
    return "a unit whose resolutions or sizes make no sense";
  }
  const CodingOptions& coding = options.coding;
  if (coding.line_template != 2 && coding.line_template != 3) return "line template: 2 or 3";
  if (coding.lines_per_block < 1 || coding.lines_per_block > 65535) {
    return "lines per block: 1 to 65535";
  }
  if (options.align_pixels < 1 || options.align_pixels > 4096) return "alignment: 1 to 4096 pixels";
  if (options.left_cut_margin > 65535 || options.right_cut_margin > 65535) {
    return "cut margins: at most 65535 pixels";
  }
  if (options.plane_order >= kPlaneOrders.size()) return "plane order: 0 to 5";
  for (const Sheet& sheet : options.sheets) {
    if (!sheet.front) return "a sheet without a front";
  }
  if (!options.glass && !options.empty_glass && options.flatbed) {
    options.glass =
        MakeTestChart({options.flatbed->physical_width, options.flatbed->physical_height});
  }
  return {};
}

std::vector<PlannedPage> PlanJob(const DeviceOptions& options, const std::vector<Sheet>& sheets,
                                 const ScanInfo& request) {
  std::vector<PlannedPage> pages;
  const bool duplex = IsDuplex(options, request);
  for (const Sheet& sheet : sheets) {
    pages.push_back({sheet.front, true, false});
    if (!duplex) continue;
    pages.push_back({sheet.back ? sheet.back : MakeBlankPage(sheet.front->Size()), true, true});
  }
  const bool glass = options.flatbed && options.glass && !options.empty_glass;
  if (pages.empty() && glass) pages.push_back({options.glass, false, false});
  return pages;
}

bool IsSane(const DeviceOptions& options, const ScanInfo& request) {
  const bool supported = (request.data_type == kBilevel && options.bilevel) ||
                         (request.data_type == kGrey && options.grey) ||
                         (request.data_type == kColour && options.colour);
  const auto fits = [&](const std::optional<UnitOptions>& unit) {
    if (!unit) return true;
    ScanInfo info = request;
    ClampResolution(*unit, request, info);
    const std::uint64_t width = std::uint64_t{info.x_extent} + options.left_cut_margin +
                                options.right_cut_margin + options.align_pixels;
    return width <= kMaxRasterWidth && info.y_extent <= kMaxLines;
  };
  return supported && fits(options.flatbed) && fits(options.feeder);
}

ScanInfo CompleteScanInfo(const DeviceOptions& options, const ScanInfo& request,
                          const PlannedPage& page) {
  ScanInfo info = request;
  ClampResolution(UnitOf(options, page.from_feeder), request, info);
  AddMargins(options, info);
  SetCoding(options.coding, request, info);
  info.feeder = page.from_feeder ? 1 : 0;
  if (request.dither_pattern == 0) info.dither_pattern = options.dither_pattern;
  info.angle = AngleOf(options, request, page);
  return info;
}

RenderOptions RenderOptionsOf(const DeviceOptions& options, const PlannedPage& page) {
  return {options.plane_order, options.threshold,
          UnitOf(options, page.from_feeder).physical_height};
}

std::uint32_t LinesWithinReach(const ScanInfo& info, const RenderOptions& options) {
  // A turned page begins with its last line, which must be sent whatever it is.
  if (info.angle == 180 || options.physical_height == 0) return info.y_extent;
  const std::uint64_t bottom = std::uint64_t{options.physical_height} * info.y_resolution / 10000;
  const std::uint64_t left = bottom > info.y_pos ? bottom - info.y_pos : 0;
  return static_cast<std::uint32_t>(std::min<std::uint64_t>(left, info.y_extent));
}

}  // namespace vox::sim
