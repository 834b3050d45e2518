// LineInput reads the numbers and pixels of the line targets from an input; what is missing is 0.
#pragma once

#include <bit>
#include <cstdint>
#include <vector>

#include "vox/platform/Bytes.h"

namespace vox {

class LineInput {
 public:
  LineInput(const std::uint8_t* data, std::size_t size) : in_(data, size) {}

  // Number is two bytes of the input, below limit.
  std::uint32_t Number(std::uint32_t limit) { return in_.TakeBe16().value_or(0) % limit; }

  // Half of the resolutions are plausible, the others any pattern: negative, infinite, no number.
  float Resolution() {
    if (Number(2) == 0) return static_cast<float>(Number(2000)) / 5;
    return std::bit_cast<float>(in_.TakeBe32().value_or(0));
  }

  // Pixels repeats what is left of the input, with a drift by which lines differ.
  std::vector<std::uint8_t> Pixels(std::size_t size, unsigned drift = 0) const {
    std::vector<std::uint8_t> line(size);
    for (std::size_t i = 0; i < size && in_.Left() > 0; ++i) {
      line[i] = static_cast<std::uint8_t>(in_.Cursor()[i % in_.Left()] + drift * (i % 7));
    }
    return line;
  }

 private:
  ByteReader in_;
};

}  // namespace vox
