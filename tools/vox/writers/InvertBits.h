// InvertBits turns a 1-bit line in which white is set into one in which black is set.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace vox::cli {

// InvertBits writes the first `width` pixels of `line` inverted to `out`; the bits behind them
// become 0 (white). Shapes: line holds (width + 7) / 8 bytes, and so will out.
void InvertBits(std::span<const std::uint8_t> line, std::uint32_t width,
                std::vector<std::uint8_t>& out);

}  // namespace vox::cli
