// A bus with virtual scanners on it, while a program runs.
//
// Thread rule: one thread, which must have called BlockSignals before any other was started.
#pragma once

#include "tools/voxsim-usb/Arguments.h"

namespace vox {

// BlockSignals keeps the signals that a session waits for from ending the program.
void BlockSignals();

// RunSession plugs the scanners in and runs the program. Returns: its exit status, or 128 and the
// signal that ended it; a status of voxsim-usb's own when a line has said what is wrong.
// Throws: std::runtime_error for a bus that cannot be.
int RunSession(UsbArguments& arguments);

}  // namespace vox
