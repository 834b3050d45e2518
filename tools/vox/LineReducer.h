// LineReducer makes black-and-white lines of grey ones, for --threshold and --halftone.
//
// Thread rule: one thread at a time; one object for one page.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "tools/vox/Request.h"

namespace vox::cli {

class LineReducer {
 public:
  // `threshold` is 1 to 255, of Reduction::kThreshold. Reduction::kNone gives lines as they come.
  LineReducer(Reduction reduction, int threshold, std::uint32_t width);

  // Reduce takes `width` grey pixels and gives (width + 7) / 8 bytes, a set bit white, the bits
  // behind the last pixel 0. The result is valid until the next call.
  std::span<const std::uint8_t> Reduce(std::span<const std::uint8_t> line);

 private:
  bool Diffuse(std::uint32_t x, std::uint8_t grey);

  const Reduction reduction_;
  const int threshold_;
  const std::uint32_t width_;
  std::vector<std::uint8_t> packed_;
  // Error diffusion (Floyd and Steinberg, 1976): what the pixels of this line and the next have
  // still to take over, in sixteenths of a grey level; one pixel of margin on each side.
  std::vector<int> here_, below_;
};

}  // namespace vox::cli
