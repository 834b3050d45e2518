// What lies on a virtual device's glass and in its feeder, put there as programs are asked for it.
//
// Thread rule: pure, but for the page files that are read.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "sim/DeviceOptions.h"

namespace vox::sim {

struct PaperWish {
  std::vector<std::string> files;  // PNM, PNG, TIFF; none: numbered test charts
  PageFileLimits limits;
  std::optional<std::uint32_t> sheets;  // in the feeder; absent: as many as the pages make
  bool both_sides = false;              // the pages become fronts and backs in turn
};

// What is wrong with a page file.
struct PaperProblem {
  std::string text;      // empty: nothing
  int error_number = 0;  // errno, where the file itself cannot be had
};

// LayPaper puts paper into `device`. One page lies on the glass, where a device without any has its
// own chart; several pages, both sides, or a number of sheets make a feeder, which takes the pages
// over and over. No sheets at all (0) leave the glass empty too: there is no document then.
PaperProblem LayPaper(const PaperWish& wish, DeviceOptions& device);

}  // namespace vox::sim
