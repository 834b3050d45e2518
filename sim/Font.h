// A 5 by 7 dot font for what is written on test charts: capitals, digits and a little punctuation.
//
// Thread rule: pure functions.
#pragma once

#include <cstdint>

namespace vox::sim {

inline constexpr std::uint32_t kGlyphColumns = 5;
inline constexpr std::uint32_t kGlyphRows = 7;

// GlyphRow gives row 0 to 6 of a character, the leftmost dot in bit 4; unknown characters are
// blank.
std::uint8_t GlyphRow(char character, std::uint32_t row);

}  // namespace vox::sim
