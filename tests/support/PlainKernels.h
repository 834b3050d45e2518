// The arithmetic of the line pipeline as plainly as its rules can be written: one formula after the
// other, pixel by pixel, nothing worked out ahead. It shares no code with the library and is the
// oracle of the fast kernels. All sums are in single precision, in the order written.
//
// Where a rule alone would divide by zero or read beyond a line, this is agreed: positions are cut
// to the source, an empty span is its right end, a span whose weights do not sum to more than 0 is
// its right end as it is, means are cut to 0..255, and a width of 0 writes nothing.
//
// Units: widths in pixels, lengths in lines, ps in bytes of a pixel. Thread rule: pure functions.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace vox::test {

using Line = std::vector<std::uint8_t>;

// PlainTruncated converts toward zero, modulo 2^32 and cut at what 32 bits hold; PlainRounded adds
// a half first.
std::uint32_t PlainTruncated(float value);
std::uint32_t PlainRounded(float value);

// src has srcW * ps bytes, the result dstW * ps.
Line PlainExpandWidth(const Line& src, std::size_t dstW, std::size_t srcW, std::size_t ps);
Line PlainReduceWidth(const Line& src, std::size_t dstW, std::size_t srcW, std::size_t ps);

// lower and upper are of one size; f is 0 to 1.
Line PlainGradeLine(const Line& lower, const Line& upper, float f);

// PlainShrunkLine is client line j of `count` from device lines of one size.
Line PlainShrunkLine(const std::vector<Line>& lines, std::size_t j, std::size_t count);

// A threshold of 0 is 170; grey has at least `width` bytes.
Line PlainBitReduced(const Line& grey, std::size_t width, std::uint32_t threshold);

// Mirrored left to right; depth is 1 (all bits of all bytes), 8 or 24.
Line PlainMirrored(const Line& line, unsigned depth);

}  // namespace vox::test
