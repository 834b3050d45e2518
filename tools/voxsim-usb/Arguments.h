// voxsim-usb's command line: the devices, and the program that finds them.
//
// Thread rule: before any thread starts.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "tools/voxsim/DeviceArguments.h"

namespace vox {

struct UsbArguments {
  SimArguments sim;                                 // of every device
  std::vector<std::string> serials;                 // a device each; none: one device
  std::optional<std::chrono::milliseconds> replug;  // after a fault that unplugs; none: never
  std::vector<std::string> program;                 // with its arguments
};

// ParseArguments reads the command line into `arguments`. Returns -1 to go on; else the status that
// the program ends with (help and version were printed, or one line says what is wrong).
int ParseArguments(int argc, char** argv, UsbArguments& arguments);

}  // namespace vox
