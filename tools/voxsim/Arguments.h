// voxsim's command line, and the device that it describes.
//
// Thread rule: before any thread starts.
#pragma once

#include "tools/voxsim/DeviceArguments.h"

namespace vox {

// ParseArguments reads the command line into `arguments`. Returns -1 to go on; else the status that
// the program ends with (help and version were printed, or one line says what is wrong).
int ParseArguments(int argc, char** argv, SimArguments& arguments);

}  // namespace vox
