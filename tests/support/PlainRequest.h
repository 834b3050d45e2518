// PlainRequest works out, as plainly as the rules can be written, what a scan command asks of a
// device for a client's request. It shares no code with the library.
//
// Units: resolutions in dots per inch. Thread rule: pure function.
#pragma once

#include <cstdint>

#include "sim/ScanInfo.h"
#include "vox/drivers/ScanRecords.h"

namespace vox::test {

struct ResolutionRange {
  std::uint32_t x_min = 0, y_min = 0, x_max = 0, y_max = 0;
};

// DeviceRequest gives the block that a network scan command carries. The request must be of 1, 8 or
// 24 bits.
sim::ScanInfo DeviceRequest(const tagTWSCANPARAM& request, const ResolutionRange& range,
                            bool preview = false);

}  // namespace vox::test
