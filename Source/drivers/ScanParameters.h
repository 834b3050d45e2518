// What a client asks for, worked out in the device's terms: the resolutions are rounded and clamped
// into the range that the device reports, and where that changed them the page is scanned at the
// device's resolution and its lines are rescaled afterwards.
//
// Units: resolutions in dots per inch, frames in inches, positions and extents in device pixels.
// All sums and products of lengths are in single precision; contraction must be off (see cmake/).
// Thread rule: pure functions.
#pragma once

#include <cstdint>

#include "vox/drivers/ScanRecords.h"
#include "vox/platform/Export.h"

namespace vox {

// truncate32 converts toward zero. A negative value gives its 32-bit two's complement pattern. NaN
// gives 0; what no 32 bits can hold gives the nearest end: 0x80000000 below, 0xFFFFFFFF above.
std::uint32_t truncate32(float value);

// round32 is truncate32(value + 0.5f): 299.5 gives 300, 299.49 gives 299, -1.5 gives 0xFFFFFFFF.
std::uint32_t round32(float value);

// round16 is value + 0.5f converted toward zero to 32 bits, of which the low 16 are kept.
std::int16_t round16(float value);

// prepare_scan_info zeroes all of `info` and fills it with what the request settles: DataType,
// Intensity, Contrast, resolutions, window, bNeedDataAlignment, dwScanUnitMode, dwPreScanFlag.
// When clamping changed the X resolution both extents come from the frame, else both are the
// client's counts: the extent of Y follows the test of X.
// Returns: false for a depth other than 1, 8 or 24 bits; the resolutions are filled then, no more.
bool prepare_scan_info(_SCANINFO& info, const tagTWSCANPARAM& param, const tagSCANDEVINFO& device,
                       bool bPrescan);

// compute_scan_param fills `dv` from dwXResolution to wIsUserDefineSize and dwRemainSize, and sets
// wNegative, wMirror, wPlaneOrder, iLeftOfst and dwLineIndex to 0; the transports own the rest.
// dwPixelType stays as it was for a pixel type above 2; dwRemainSize wraps at 2^32.
void compute_scan_param(tagDVSCANPARAM& dv, const tagTWSCANPARAM& param,
                        const tagSCANDEVINFO& device);

}  // namespace vox
