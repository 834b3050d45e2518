// How far a device can read a page: what the reader's loop asks before it fills up with white
// lines.
//
// Thread rule: pure functions.
#pragma once

#include <cstdint>

#include "vox/drivers/ScanRecords.h"

namespace vox {

// page_source picks the capabilities of the paper source that a page comes from: with two records
// the first feeder (byPaperSources 2) for a feeder page, the first that is none for another; else,
// and when there is no such record, the first record. all[0] is always there.
const tagSCANDEVINFO& page_source(const tagSCANDEVINFO (&all)[2], std::uint32_t count, bool feeder);

// scannable_lines gives the greatest scannable height: dwPhysicalHeight (1/10000 inch) in lines at
// Yresolution dpi, cut to a multiple of 8 at 600 dpi and again at the end.
std::uint32_t scannable_lines(const tagSCANDEVINFO& source, std::uint32_t Yresolution);

}  // namespace vox
