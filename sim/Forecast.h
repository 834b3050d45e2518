// Forecast is what a device sends for a job that is started while its feeder holds given sheets,
// faults and edit_scan_info left aside: so tests compute what must come.
//
// Thread rule: const functions; the options must outlive it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "sim/JobPlan.h"

namespace vox::sim {

class Forecast {
 public:
  Forecast(const DeviceOptions& options, std::vector<Sheet> sheets)
      : options_(options), sheets_(std::move(sheets)) {}

  // Plan gives the pages; none: the request is refused or there is no document.
  std::vector<PlannedPage> Plan(const ScanInfo& request) const;
  std::size_t PagesOf(const ScanInfo& request) const { return Plan(request).size(); }
  // Page 0 is the first.
  ScanInfo PageInfo(const ScanInfo& request, std::size_t page) const;
  // PageLines gives PageInfo().y_extent lines of LineBytes() bytes each, in the order in which they
  // are sent, white below the device's reach.
  std::vector<std::uint8_t> PageLines(const ScanInfo& request, std::size_t page) const;
  // WholeBed gives a request for everything that the unit in use can reach.
  ScanInfo WholeBed(std::uint32_t resolution, std::uint32_t data_type) const;

 private:
  const DeviceOptions& options_;
  const std::vector<Sheet> sheets_;
};

}  // namespace vox::sim
