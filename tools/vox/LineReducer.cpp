#include "tools/vox/LineReducer.h"

#include <algorithm>

#include "vox/drivers/LineKernels.h"

namespace vox::cli {

LineReducer::LineReducer(Reduction reduction, int threshold, std::uint32_t width)
    : reduction_(reduction), threshold_(threshold), width_(width) {
  if (reduction_ == Reduction::kNone) return;
  packed_.resize((std::size_t{width} + 7) / 8);
  if (reduction_ == Reduction::kHalftone) {
    here_.resize(std::size_t{width} + 2);
    below_.resize(std::size_t{width} + 2);
  }
}

// Says whether pixel x becomes white, and hands its error on.
bool LineReducer::Diffuse(std::uint32_t x, std::uint8_t grey) {
  const std::size_t at = std::size_t{x} + 1;
  const int wanted = grey * 16 + here_[at];
  const bool white = wanted >= 128 * 16;
  const int error = (wanted - (white ? 255 * 16 : 0)) / 16;
  here_[at + 1] += error * 7;
  below_[at - 1] += error * 3;
  below_[at] += error * 5;
  below_[at + 1] += error * 1;
  return white;
}

std::span<const std::uint8_t> LineReducer::Reduce(std::span<const std::uint8_t> line) {
  if (reduction_ == Reduction::kNone) return line;
  if (reduction_ == Reduction::kThreshold) {
    BitReduceMonoLine(packed_.data(), line.data(), width_, static_cast<unsigned>(threshold_));
    return packed_;
  }
  std::fill(packed_.begin(), packed_.end(), std::uint8_t{0});
  for (std::uint32_t x = 0; x < width_; ++x) {
    if (Diffuse(x, line[x])) packed_[x / 8] |= static_cast<std::uint8_t>(0x80 >> (x % 8));
  }
  here_.swap(below_);
  std::fill(below_.begin(), below_.end(), 0);
  return packed_;
}

}  // namespace vox::cli
