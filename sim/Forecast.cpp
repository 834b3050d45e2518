#include "sim/Forecast.h"

namespace vox::sim {

std::vector<PlannedPage> Forecast::Plan(const ScanInfo& request) const {
  if (!IsSane(options_, request)) return {};
  return PlanJob(options_, sheets_, request);
}

ScanInfo Forecast::PageInfo(const ScanInfo& request, std::size_t page) const {
  return CompleteScanInfo(options_, request, Plan(request).at(page));
}

std::vector<std::uint8_t> Forecast::PageLines(const ScanInfo& request, std::size_t page) const {
  const PlannedPage planned = Plan(request).at(page);
  return RenderPage(planned.source, CompleteScanInfo(options_, request, planned),
                    RenderOptionsOf(options_, planned));
}

ScanInfo Forecast::WholeBed(std::uint32_t resolution, std::uint32_t data_type) const {
  const bool loaded = options_.feeder && !sheets_.empty();
  const bool feeder = loaded || !options_.flatbed;
  const UnitOptions& unit = feeder ? *options_.feeder : *options_.flatbed;
  const auto pixels = [&](std::uint32_t length) {
    return static_cast<std::uint32_t>(std::uint64_t{length} * resolution / 10000);
  };
  ScanInfo request;
  request.data_type = data_type;
  request.x_resolution = request.y_resolution = resolution;
  request.x_extent = pixels(unit.physical_width);
  request.y_extent = pixels(unit.physical_height);
  request.encode_type = 1;
  return request;
}

}  // namespace vox::sim
