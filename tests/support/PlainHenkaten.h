// A list of change points laid out pixel by pixel, as plainly as its rules can be written, as the
// oracle of henkaten_to_raw. It shares no code with the library.
//
// Thread rule: pure functions.
#pragma once

#include <cstdint>
#include <vector>

namespace vox::test {

struct PlainRaw {
  int result = 0;
  std::vector<bool> pixels;
};

// The list holds as many entries as may be read: up to its end mark, or source_width + 5.
PlainRaw PlainHenkatenToRaw(const std::vector<std::uint16_t>& list, std::uint32_t source_width,
                            std::uint32_t width, bool checked);

// How many entries of a list may be read: up to its end mark, source_width + 5 at most.
std::size_t ReadableEntries(const std::vector<std::uint16_t>& list, std::uint32_t source_width);

// The list of a line: where its pixels change, closed; without `closed` only the changes.
std::vector<std::uint16_t> ListOf(const std::vector<bool>& pixels, bool closed = true);

// Packed has (pixels + 7) / 8 bytes.
std::vector<std::uint8_t> Packed(const std::vector<bool>& pixels);

}  // namespace vox::test
