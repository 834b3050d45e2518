// From what a person asked and what the device can do to the record that the scan interface takes,
// and to the page that will be written.
//
// Thread rule: pure functions.
#pragma once

#include <string>
#include <vector>

#include "tools/vox/Abilities.h"
#include "tools/vox/Options.h"
#include "tools/vox/writers/ImageWriter.h"
#include "vox/drivers/ScanRecords.h"

namespace vox::cli {

// How lines become the lines of the written page.
enum class Reduction {
  kNone,
  kThreshold,  // grey lines become 1 bit: white from the threshold on
  kHalftone,   // grey lines become 1 bit by error diffusion
};

struct ScanPlan {
  tagTWSCANPARAM request{};
  PageFormat page;  // as written
  Mode mode = Mode::kColor;
  Frame frame;  // what is scanned of the bed, inches
  Reduction reduction = Reduction::kNone;
  int threshold = 0;               // of kThreshold
  std::vector<std::string> notes;  // what was changed of the wish, one line each, for the user
};

// PlanScan works a scan out.
//   - The area is clamped to the bed of the source in use; without one it is the whole bed.
//   - Resolutions outside the device's range are passed on: the library rescales. Where only the
//     vertical one lies outside, it is brought into the range, since the library's window would not
//     fit the page then.
//   - Black-and-white lines that the device makes hold whole bytes only: the width becomes a
//   multiple
//     of eight pixels, greater where the bed allows it.
// Throws Failure with status 4 for what the device cannot do: a mode, both sides, an area beside
// the bed or of no pixel.
ScanPlan PlanScan(const ScanOptions& options, const Abilities& abilities);

}  // namespace vox::cli
