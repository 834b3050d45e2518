// The inner loops of the line pipeline as vector code: for every instruction set that libhwy knows
// on this kind of processor the compiler makes one version, and the first call of the process
// chooses the best that the processor has: on x86 from SSSE3 to AVX-512, on 64-bit ARM NEON or SVE.
//
// The arithmetic is that of LineKernels.h: single precision, one rounding an operation, the
// operations in the same order, multiplications and additions never contracted; so every version
// makes the same bytes.
//
// Aliases: a destination overlaps no source. Alignment: any.
// Errors:  none; no memory is asked for.
// Thread:  pure functions.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vox {

// LINE_PART is a line and its weight in a weighted mean of lines.
struct LINE_PART {
  const unsigned char* line;
  float weight;
};

// dst[0, n): lower * rest + upper * part, rounded. rest and part are 0..1 and sum to 1.
void blend_lines(unsigned char* dst, const unsigned char* lower, const unsigned char* upper,
                 std::size_t n, float rest, float part) noexcept;

// A weighted mean of lines, in which each part is divided by `total` before it is added:
//   mean_of_two(dst, a, b)                                          a span of two lines
//   sum_two(sum, a, b), sum_one(sum, c) ..., mean_with(dst, sum, z) a longer one
// total is above 0. dst[0, n) and sum[0, n) out, line[0, n) of each part in; sum_one adds to sum.
void mean_of_two(unsigned char* dst, LINE_PART a, LINE_PART b, float total, std::size_t n) noexcept;
void sum_two(float* sum, LINE_PART a, LINE_PART b, float total, std::size_t n) noexcept;
void sum_one(float* sum, LINE_PART part, float total, std::size_t n) noexcept;
void mean_with(unsigned char* dst, const float* sum, LINE_PART last, float total,
               std::size_t n) noexcept;

// dst[0, (n + 7) / 8): bit 7 - i % 8 of byte i / 8 is 1 when src[i] >= threshold, else 0; bits
// after the last are 0. threshold is 1 to 255.
void pack_line(unsigned char* dst, const unsigned char* src, std::size_t n,
               unsigned char threshold) noexcept;

}  // namespace vox
