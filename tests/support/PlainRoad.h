// PlainRoad computes, on one thread and as plainly as the rules can be written, what client lines a
// page must become: trimmed, rescaled across, rescaled down, reduced to bilevel. It shares no code
// with the library and is the oracle of whole scans.
//
// Thread rule: pure function.
#pragma once

#include <cstdint>
#include <vector>

#include "tests/support/PlainKernels.h"
#include "vox/drivers/ScanRecords.h"

namespace vox::test {

// ClientLines turns device lines (info.Window.yExtent of them, in the order in which they enter the
// line pipeline) into request.dwImageLength client lines of request.dwLineSize bytes. Device lines
// that are too short for the trimmed width count as zeros there; client lines without a device line
// are white; 1-bit lines that would have to be rescaled across are zeros.
std::vector<Line> ClientLines(const tagTWSCANPARAM& request, const _SCANINFO& info,
                              const std::vector<Line>& device_lines);

// TurnedPage is the page turned by 180 degrees: last line first, each line mirrored. Depth is 1, 8
// or 24 bits; a 1-bit line is mirrored over all bits of its bytes.
std::vector<Line> TurnedPage(const std::vector<Line>& lines, unsigned depth);

}  // namespace vox::test
