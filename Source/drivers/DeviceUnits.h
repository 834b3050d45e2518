// A device may have two scanning units, a feeder and a glass, that can do different things. What
// both transports do with the units' capabilities is here.
//
// Thread rule: pure functions.
#pragma once

#include <cstdint>

#include "vox/drivers/ScanRecords.h"
#include "vox/platform/Export.h"

namespace vox {

inline constexpr int kMaxScanUnits = 2;

// Kinds of unit, as devices report them, and their paper sources in byPaperSources.
inline constexpr std::uint32_t kUnitFeeder = 3, kUnitFlatbed = 5;
inline constexpr std::uint8_t kPaperSourceFlatbed = 1, kPaperSourceFeeder = 2;

// paper_source_of gives the bit of byPaperSources for a kind of unit; 0 for an unknown one.
std::uint8_t paper_source_of(std::uint32_t dwUnitType);

// image_type_bit gives the bit of byImageTypes for an image format number of the device (1 bilevel,
// 22 grey, 61 colour); 0 for an unknown one.
std::uint8_t image_type_bit(std::uint32_t dwFormat);

// The sides of a sheet, as the bits of bySmallPaperSizeType.
enum MARGIN_SIDE : std::uint8_t {
  MARGIN_LEFT = 0x01,
  MARGIN_TOP = 0x02,
  MARGIN_RIGHT = 0x04,
  MARGIN_BOTTOM = 0x08,
};

// set_regular_margin stores one unscannable margin, in 1/10000 inch, and sets its bit unless it is
// 0. A margin above 4000 is a device's way of not knowing and counts as 0.
void set_regular_margin(tagSCANDEVINFO* unit, MARGIN_SIDE side, std::uint32_t dwMargin);

// merge_units gives what the units can do together; `count` is 1 or 2. Resolutions: the wider range
// of the two, and as the common range the narrower one; the smaller preview resolutions. Paper: all
// sources, paper in any feeder, the smaller width; the height is the smaller of the second unit's
// and that width, not the first unit's height. Everything else is the first unit's.
VOX_EXPORT tagSCANDEVINFO merge_units(const tagSCANDEVINFO* units, std::uint32_t count);

}  // namespace vox
