// voxsim's command line, and the device that it describes.
//
// Thread rule: before any thread starts.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "sim/DeviceOptions.h"

namespace vox {

struct SimArguments {
  sim::DeviceOptions device;
  std::vector<std::string> page_files;
  sim::PageFileLimits page_limits;
  std::uint32_t sheets = 0;   // in the feeder; 0: as many as the pages make, when there are several
  bool duplex = false;        // two pages make one sheet
  std::uint32_t prepare = 0;  // dpi of a bilevel page of the whole bed; 0: none
  bool trace = false;
};

// ParseArguments reads the command line into `arguments`. Returns -1 to go on; else the status that
// the program ends with (help and version were printed, or one line says what is wrong).
int ParseArguments(int argc, char** argv, SimArguments& arguments);

// LoadPaper puts the pages on the glass or into the feeder; an empty text, or what is wrong.
std::string LoadPaper(SimArguments& arguments);

}  // namespace vox
