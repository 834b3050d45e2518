// ScanProcess is a scanning program in a process of its own: this program started again, so that
// what is measured is the library's memory and time and not the device's. The device, the job
// server and the private folder are those of the process that starts it.
//
// Thread rule: one at a time.
#pragma once

#include "bench/ScanUsage.h"
#include "sim/VirtualDevice.h"

namespace vox::bench {

// ReadSlowly scans the whole bed in colour at 1200 dpi and takes a line every `pause_us`.
Usage ReadSlowly(const sim::VirtualDevice& device, unsigned pause_us);
// WaitFor starts a page of 8 bits or 1 bit, waits `seconds` for lines that come slowly or never,
// and aborts.
Usage WaitFor(const sim::VirtualDevice& device, unsigned bits, double seconds);
// ScanJob scans A4 at `dpi` with `bits` a pixel until no page follows; done when `pages` came
// whole.
Usage ScanJob(const sim::VirtualDevice& device, unsigned bits, unsigned dpi, unsigned pages);

// RunScanProcess is the other side: when the program was started by one of the above it scans and
// gives the exit status; else a negative number.
int RunScanProcess(int argc, char** argv);

}  // namespace vox::bench
