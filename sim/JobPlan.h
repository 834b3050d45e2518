// What a job will send: which sides of which sheets, and the scan information of each page. Pure
// functions of the options, so that tests foretell what a device does.
//
// Thread rule: pure functions.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "sim/DeviceOptions.h"
#include "sim/Render.h"

namespace vox::sim {

// Unit modes of a request.
inline constexpr std::uint32_t kOneSide = 0;
inline constexpr std::uint32_t kDuplexBook = 0x302;      // turned over the long edge
inline constexpr std::uint32_t kDuplexTablet = 0x10302;  // turned over the short edge

struct PlannedPage {
  PagePtr source;
  bool from_feeder = false;
  bool is_back = false;
};

// SettleOptions fills in what the options leave open: a feeder unit where there are sheets, a test
// chart on the glass. Gives what is wrong with them, or an empty text.
std::string SettleOptions(DeviceOptions& options);

// PlanJob lists the pages of a job: every side of the sheets, or else the glass; empty: no
// document.
std::vector<PlannedPage> PlanJob(const DeviceOptions& options, const std::vector<Sheet>& sheets,
                                 const ScanInfo& request);

// IsSane refuses requests that no device can serve: unknown or unsupported data types, sizes beyond
// all measure.
bool IsSane(const DeviceOptions& options, const ScanInfo& request);

// CompleteScanInfo gives what the device sends back for a page: resolution within its reach, cut
// margins, coding. The request must be sane.
ScanInfo CompleteScanInfo(const DeviceOptions& options, const ScanInfo& request,
                          const PlannedPage& page);

RenderOptions RenderOptionsOf(const DeviceOptions& options, const PlannedPage& page);

// LinesWithinReach: how many lines the device really sends; the host fills the rest.
std::uint32_t LinesWithinReach(const ScanInfo& info, const RenderOptions& options);

}  // namespace vox::sim
