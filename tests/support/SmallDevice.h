// The device that whole scans are tested with: small, and with a chart of its own on each side.
//
// Thread rule: free functions, any thread.
#pragma once

#include <cstdint>
#include <utility>

#include "sim/DeviceOptions.h"

namespace vox::test {

// SmallDevice is a device of 100 to 200 dpi in both directions with a bed of 3 by 2.5 inches.
inline sim::DeviceOptions SmallDevice() {
  sim::UnitOptions unit;
  unit.x_resolution_min = unit.y_resolution_min = 100;
  unit.x_resolution_max = unit.y_resolution_max = 200;
  unit.physical_width = 30000;
  unit.physical_height = 25000;
  sim::DeviceOptions options;
  options.flatbed = unit;
  return options;
}

// SmallFeeder gives it sheets as large as the bed, each side a chart of its own.
inline sim::DeviceOptions SmallFeeder(std::uint32_t sheets, bool both_sides = false) {
  constexpr sim::PageSize kSheet{.width = 30000, .height = 25000};
  sim::DeviceOptions options = SmallDevice();
  options.feeder = options.flatbed;
  for (std::uint32_t i = 0; i < sheets; ++i) {
    sim::Sheet sheet{sim::MakeTestChart(kSheet, 2 * i + 1), nullptr};
    if (both_sides) sheet.back = sim::MakeTestChart(kSheet, 2 * i + 2);
    options.sheets.push_back(std::move(sheet));
  }
  if (both_sides) options.duplex = 2;
  return options;
}

}  // namespace vox::test
