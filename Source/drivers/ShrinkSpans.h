// How shrinking shares the source positions 0..last among count target positions; widths and
// lengths follow the same rule. With D = count - 1 and S = last, target o is centred at o / D * S,
// its span ends half a step further, and source n weighs the more the nearer it lies: 0.5 less its
// distance from the centre in target steps.
//
// Units: positions are pixels or lines, in single precision. Thread rule: pure values.
#pragma once

#include <algorithm>
#include <cstdint>

#include "vox/drivers/ScanParameters.h"

namespace vox {

class ShrinkSpans {
 public:
  // count targets from count_source sources; both are at least 1.
  ShrinkSpans(std::uint32_t count, std::uint32_t count_source)
      : m_fD(static_cast<float>(count - 1)),
        m_fS(static_cast<float>(count_source - 1)),
        m_dwLast(count_source - 1) {}

  // right gives the last source position of target o. A single target (D is 0) ends infinitely far
  // off and so takes all that is left.
  std::uint32_t right(std::uint32_t o) const { return cut(static_cast<float>(o) + 0.5f); }

  // left gives the first source position of target o, for targets that are not taken in order.
  std::uint32_t left(std::uint32_t o) const {
    return o == 0 ? 0 : cut(static_cast<float>(o) - 0.5f) + 1;
  }

  // weight may be negative by rounding, and is no number when there is one source only.
  float weight(std::uint32_t n, std::uint32_t o) const {
    const float d = static_cast<float>(n) / m_fS * m_fD - static_cast<float>(o);
    return d < 0 ? d + 0.5f : 0.5f - d;
  }

  // total adds up the weights of sources left to right, 0 where they are not positive: at nearly
  // equal sizes single precision leaves spans whose weights cancel. Such a target is the source
  // `right` as it is.
  float total(std::uint32_t left, std::uint32_t right, std::uint32_t o) const {
    float sum = 0;
    for (std::uint32_t n = left; n <= right; ++n) sum += weight(n, o);
    return sum > 0 ? sum : 0;
  }

 private:
  std::uint32_t cut(float target) const {
    return std::min(truncate32(target / m_fD * m_fS), m_dwLast);
  }

  float m_fD, m_fS;
  std::uint32_t m_dwLast;
};

// byte_in_range rounds a value of 0 to 255 to a byte.
inline unsigned char byte_in_range(float value) {
  return static_cast<unsigned char>(static_cast<int>(value + 0.5f));
}

// byte_of_mean does so with a weighted mean of bytes, which rounded weights may carry out of
// 0..255.
inline unsigned char byte_of_mean(float mean) {
  const float low = mean > 0.0f ? mean : 0.0f;
  return byte_in_range(low < 255.0f ? low : 255.0f);
}

}  // namespace vox
