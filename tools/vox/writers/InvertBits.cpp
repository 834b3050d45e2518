#include "tools/vox/writers/InvertBits.h"

namespace vox::cli {

void InvertBits(std::span<const std::uint8_t> line, std::uint32_t width,
                std::vector<std::uint8_t>& out) {
  out.resize((std::size_t{width} + 7) / 8);
  for (std::size_t i = 0; i < out.size(); ++i) out[i] = static_cast<std::uint8_t>(~line[i]);
  if (width % 8 != 0) out.back() &= static_cast<std::uint8_t>(0xFF00 >> (width % 8));
}

}  // namespace vox::cli
