// WIDTH_TABLES is what WidthScaler works out once a page and scale_width reads for every line.
//
// A target byte is the sum of source bytes `first`, `first + ps`, `first + 2 * ps` ..., each times
// its weight, from left to right, and when shrinking that sum divided by the total of its weights.
// Tables go by target byte, and their rows are filled up to whole kWidthRow with weights of 0 and
// totals of 1.
//
// The bytes of a group of 16 are picked from windows of 16 source bytes by byte shuffles: `windows`
// of them lie side by side from `base` of the group, and byte i of the group is byte pick[i] of the
// first window, or of the second when pick[16 + i] names it, and so on; kPickNone is no byte. With
// windows 0 the line is too narrow or the target too coarse for that, and bytes are fetched one by
// one by `first`.
//
// Thread rule: a value; constant once a page runs.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace vox {

constexpr std::size_t kWidthGroup = 16;
constexpr std::size_t kWidthRow = 64;     // four of the widest vectors
constexpr std::size_t kWidthChunk = 256;  // target bytes that are picked and summed at a time
constexpr std::size_t kMaxWidthWindows = 4;
constexpr unsigned char kPickNone = 0x80;

struct WIDTH_TABLES {
  std::size_t bytes = 0;            // of a target line
  std::size_t row = 0;              // bytes filled up to whole kWidthRow
  std::size_t source_bytes = 0;     // of a source line
  std::size_t ps = 0;               // bytes of a pixel
  std::vector<std::size_t> first;   // source byte of the first tap, `bytes` of them
  std::vector<float> weight;        // rows of one weight a target byte, one row a tap
  std::vector<float> total;         // sum of a target byte's weights; empty when enlarging
  std::vector<float> share;         // 1 / total
  std::vector<std::size_t> taps;    // of each chunk: the rows that hold weights other than 0
  std::size_t windows = 0;          // of each group; 0: there are no picks
  std::vector<std::size_t> base;    // of each group: source byte of its first window, first tap
  std::vector<unsigned char> pick;  // of each group: windows * kWidthGroup picks
};

}  // namespace vox
