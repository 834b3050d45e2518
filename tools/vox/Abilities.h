// What a device can do: what its paper sources have in common, and each of them.
//
// Thread rule: values and pure functions.
#pragma once

#include <vector>

#include "tools/vox/Frame.h"
#include "tools/vox/Options.h"
#include "vox/drivers/ScanRecords.h"

namespace vox::cli {

struct Abilities {
  tagSCANDEVINFO common{};            // of all sources; what the library clamps resolutions to
  std::vector<tagSCANDEVINFO> units;  // one a paper source; may be empty

  // InUse gives the source that the next page comes from: a loaded feeder wins.
  const tagSCANDEVINFO& InUse() const;
};

bool IsFeeder(const tagSCANDEVINFO& unit);

// ModesOf gives the modes of byImageTypes, the poorest first.
std::vector<Mode> ModesOf(const tagSCANDEVINFO& device);

// BedOf gives a source's whole area; empty (0 wide) when the device does not say.
Frame BedOf(const tagSCANDEVINFO& unit);

}  // namespace vox::cli
