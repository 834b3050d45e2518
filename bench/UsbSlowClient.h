// The scanning process of SlowClient: this program, started again on an emulated bus with a virtual
// scanner that another process plays.
//
// Thread rule: before any other thread starts.
#pragma once

namespace vox::bench {

// RunUsbScanProcess scans and gives the exit status when the program was started for that; else a
// negative number.
int RunUsbScanProcess(int argc, char** argv);

}  // namespace vox::bench
