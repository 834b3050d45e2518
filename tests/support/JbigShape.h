// The parameters of a bi-level image and of its coding, as tests write them.
#pragma once

#include <cstdint>
#include <ostream>

namespace vox::test {

struct JbigShape {
  unsigned width = 0;        // pixels
  std::uint32_t height = 0;  // lines
  std::uint32_t strip = 0;   // L0, lines per stripe
  int lines = 3;             // template lines, 2 or 3
  bool tp = false;           // typical prediction
  bool vlength = false;      // NEWLEN counts
  bool msb_first = true;     // order of the bits in coded bytes
  unsigned tx = 0;           // encoding: AT offset; 0 the default place

  unsigned LineBytes() const { return (width + 7) / 8; }
};

inline std::ostream& operator<<(std::ostream& out, const JbigShape& shape) {
  return out << shape.width << " x " << shape.height << ", strip " << shape.strip << ", "
             << shape.lines << " lines, tp " << shape.tp << ", vlength " << shape.vlength << ", tx "
             << shape.tx << ", msb first " << shape.msb_first;
}

}  // namespace vox::test
