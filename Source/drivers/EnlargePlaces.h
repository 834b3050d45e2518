// Where the pixels of an enlarged line lie among those of its source. With scale = (source pixels -
// 1) / (target pixels - 1), target i lies at i * scale, between source k and the one behind it; the
// first and the last target are the first and the last source pixel.
//
// Units: pixels, in single precision. Thread rule: pure values.
#pragma once

#include <cstdint>

#include "vox/drivers/ScanParameters.h"

namespace vox {

struct ENLARGE_PLACE {
  std::uint32_t k;  // source pixel
  float w;          // weight of source pixel k + 1, below 1; 0 where there is none, too
};

class EnlargePlaces {
 public:
  // count targets from count_source sources; both are at least 1.
  EnlargePlaces(std::uint32_t count, std::uint32_t count_source)
      : m_dwLastTarget(count - 1),
        m_dwLast(count_source - 1),
        m_fScale(static_cast<float>(m_dwLast) / static_cast<float>(m_dwLastTarget)) {}

  ENLARGE_PLACE at(std::uint32_t i) const {
    if (i == m_dwLastTarget) return {m_dwLast, 0};
    const float place = static_cast<float>(i) * m_fScale;
    const std::uint32_t k = truncate32(place);
    if (k >= m_dwLast) return {m_dwLast, 0};
    return {k, place - static_cast<float>(k)};
  }

 private:
  std::uint32_t m_dwLastTarget, m_dwLast;
  float m_fScale;
};

}  // namespace vox
