// Lines turned left to right, for pages that are replayed from their last line to their first: both
// together turn a page by 180 degrees.
//
// Thread rule: pure functions.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "vox/platform/Export.h"

namespace vox {

// kBitReversal[n] is n with its eight bits in reverse order.
extern const std::array<unsigned char, 256> kBitReversal;

// Each mirrors line[0, size) in place; size in bytes.
//   mirror_grey    a byte a pixel
//   mirror_colour  three bytes a pixel, kept in order; size % 3 bytes at the end stay
//   mirror_bits    eight pixels a byte, padding included
VOX_EXPORT void mirror_grey(unsigned char* line, std::size_t size);
VOX_EXPORT void mirror_colour(unsigned char* line, std::size_t size);
VOX_EXPORT void mirror_bits(unsigned char* line, std::size_t size);

// mirror_line picks one of them by DataType (0 bits, 2 grey, 3 colour).
// Returns: false for any other DataType; the line is untouched then.
bool mirror_line(unsigned char* line, std::size_t size, std::uint32_t DataType);

}  // namespace vox
