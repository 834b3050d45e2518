// StagedPage runs a whole page through the library's two rescaling stages on one thread, as the
// session's threads would: every buffer has exactly the size that the stages ask for, and a device
// line is freed as soon as they allow it, so that a sanitizer sees whoever reads beyond.
#pragma once

#include <vector>

#include "tests/support/PlainKernels.h"
#include "vox/drivers/ScanRecords.h"

namespace vox::test {

// StagedLines gives request.dwImageLength client lines of request.dwLineSize bytes from
// info.Window.yExtent raw device lines, each as long as the stages expect it.
// Throws: std::bad_alloc for a page that the stages refuse.
std::vector<Line> StagedLines(const tagTWSCANPARAM& request, const _SCANINFO& info,
                              const std::vector<Line>& device_lines);

}  // namespace vox::test
