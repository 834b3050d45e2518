// WidthScaler rescales lines of one width to another; the places and weights are worked out once
// and serve all lines of a page.
//
// Every target pixel is a weighted sum of the same number of neighbouring source pixels (m_dwTaps),
// which all lie within the source: a pixel that needs fewer has weights of 0, and a product with 0
// leaves a sum as it is, bit for bit. The sum runs from left to right; shrinking divides it by the
// total of the weights afterwards. WidthVectors.h does the sums.
//
// Thread rule: a value; run() may be called from several threads at once.
#pragma once

#include <cstddef>
#include <cstdint>

#include "vox/drivers/WidthTables.h"

namespace vox {

class WidthScaler {
 public:
  // A scaler with a width of 0 pixels or 0 bytes writes nothing.
  WidthScaler() = default;

  // expand and reduce prepare the rules of ExpandWidth and ReduceWidth (see LineKernels.h).
  // Units: dstW and srcW in pixels, ps in bytes of a pixel. Throws std::bad_alloc.
  static WidthScaler expand(std::uint32_t dstW, std::uint32_t srcW, std::uint32_t ps);
  static WidthScaler reduce(std::uint32_t dstW, std::uint32_t srcW, std::uint32_t ps);

  // run reads src[0, srcW * ps) and writes dst[0, dstW * ps); the two do not overlap.
  void run(unsigned char* dst, const unsigned char* src) const;

 private:
  WidthScaler(std::uint32_t dstW, std::uint32_t srcW, std::uint32_t ps, std::uint32_t taps);
  void set_copy(std::uint32_t o, std::uint32_t n);
  std::uint32_t set_window(std::uint32_t o, std::uint32_t first);
  void set_weight(std::uint32_t o, std::uint32_t tap, float weight);
  void set_total(std::uint32_t o, float total);
  void count_taps();
  void set_picks();
  void pick_group(std::size_t group);

  std::uint32_t m_dwSrcWidth = 0;  // pixels
  std::uint32_t m_dwTaps = 0;      // source pixels of each target pixel, at most m_dwSrcWidth
  WIDTH_TABLES m_tables;
};

}  // namespace vox
