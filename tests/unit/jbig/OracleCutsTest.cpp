// The decoder and the oracle agree wherever a marker stands, wherever the data end and wherever a
// piece of them does, for every template, place of the AT pixel, typical prediction and bit order.
#include <algorithm>
#include <span>
#include <tuple>
#include <utility>

#include <gtest/gtest.h>

#include "tests/support/JbigCompare.h"

namespace vox::test {
namespace {

// Template lines, AT offset, typical prediction, most significant bit first.
using Coding = std::tuple<int, unsigned, bool, bool>;

class OracleCuts : public testing::TestWithParam<Coding> {
 protected:
  static constexpr unsigned kWidth = 52;
  static constexpr unsigned kHeight = 9;

  static JbigShape Shape() {
    const auto [lines, tx, tp, msb_first] = GetParam();
    JbigShape shape{kWidth, kHeight, 4, lines, tp};
    shape.tx = tx;
    shape.msb_first = msb_first;
    return shape;
  }
  // White, noise and black beside each other, in lines of which some are typical.
  static Bytes Code() {
    Picture picture = RandomDots(kWidth, kHeight, 110, 3);
    for (unsigned y = 0; y < kHeight; ++y) {
      std::fill_n(picture.Line(y), 2, std::uint8_t{0});
      picture.Line(y)[5] = 0xFF;
      if (y % 3 == 2) std::copy_n(picture.Line(y - 1), picture.LineBytes(), picture.Line(y));
    }
    const Bytes bie = Encode(picture, Shape());
    return Bytes(bie.begin() + 20, bie.end());
  }
  static std::uint8_t InOrder(std::uint8_t byte) {
    if (Shape().msb_first) return byte;
    std::uint8_t reversed = 0;
    for (int bit = 0; bit < 8; ++bit)
      if (byte >> bit & 1) reversed |= static_cast<std::uint8_t>(0x80 >> bit);
    return reversed;
  }
  static Sizes Cut(unsigned first) {
    return [size = first]() mutable { return std::exchange(size, 1000u); };
  }
};

TEST_P(OracleCuts, AgreesOnMarkersAtEveryPlace) {
  const Bytes markers[] = {{0xFF, 0x01},
                           {0xFF, 0x02},
                           {0xFF, 0x03},
                           {0xFF, 0x04},
                           {0xFF, 0x05, 0, 0, 0, 7},
                           {0xFF, 0x06, 0, 0, 0, 2, 9, 0},
                           {0xFF, 0x07, 0, 0, 0, 3, 0xFF, 0x02, 0xFF},
                           {0xFF, 0x00},
                           {0xFF}};
  const Bytes code = Code();
  ASSERT_GT(code.size(), 30u);
  for (std::size_t place = 0; place <= code.size(); ++place)
    for (const Bytes& marker : markers)
      for (const bool vlength : {false, true}) {
        Bytes marked = code;
        for (std::size_t i = 0; i < marker.size(); ++i)
          marked.insert(marked.begin() + static_cast<std::ptrdiff_t>(place + i),
                        InOrder(marker[i]));
        JbigShape shape = Shape();
        shape.vlength = vlength;
        ASSERT_EQ(CompareWithOracle(shape, marked, Always(3), nullptr), "")
            << shape << ", marker " << marker[marker.size() > 1 ? 1 : 0] * 1 << " at " << place;
      }
}

TEST_P(OracleCuts, AgreesOnDataThatEndAnywhere) {
  const Bytes code = Code();
  for (std::size_t size = 0; size <= code.size(); ++size)
    for (const unsigned lines : {1u, kHeight})
      ASSERT_EQ(CompareWithOracle(Shape(), std::span(code).first(size), Always(lines), nullptr), "")
          << Shape() << ", " << size << " bytes";
}

TEST_P(OracleCuts, AgreesOnPiecesThatEndAnywhere) {
  const Bytes code = Code();
  for (unsigned first = 1; first <= code.size(); ++first)
    for (const unsigned lines : {1u, kHeight})
      ASSERT_EQ(CompareWithOracle(Shape(), code, Always(lines), Cut(first)), "")
          << Shape() << ", cut after " << first;
}

INSTANTIATE_TEST_SUITE_P(Codings, OracleCuts,
                         testing::Combine(testing::Values(2, 3),
                                          testing::Values(0u, 1u, 7u, 8u, 21u, 127u),
                                          testing::Bool(), testing::Bool()));

// Wide lines, where quiet and busy stretches take turns and each goes on for long.
class OracleStretches : public testing::TestWithParam<Coding> {};

TEST_P(OracleStretches, AgreesWhereQuietAndBusyStretchesTakeTurns) {
  const auto [lines, tx, tp, msb_first] = GetParam();
  JbigShape shape{1501, 24, 10, lines, tp};
  shape.tx = tx;
  shape.msb_first = msb_first;
  Picture picture = Halftone(shape.width, shape.height, 9);
  const Picture noise = RandomDots(shape.width, shape.height, 120, 8);
  for (unsigned y = 0; y < shape.height; ++y) {
    const unsigned turn = 20 + 7 * (y / 4);  // bytes
    for (unsigned b = 0; b < shape.LineBytes(); ++b) {
      if (b / turn % 3 == 0) picture.Line(y)[b] = 0;
      if (b / turn % 3 == 1) picture.Line(y)[b] = noise.Line(y)[b];
    }
  }
  const Bytes bie = Encode(picture, shape);
  const std::span<const std::uint8_t> code = std::span(bie).subspan(20);
  EXPECT_EQ(CompareWithOracle(shape, code, Always(5), nullptr), "") << shape;
  EXPECT_EQ(CompareWithOracle(shape, code, Always(1), RandomSizes(90, tx)), "") << shape;
}

INSTANTIATE_TEST_SUITE_P(Codings, OracleStretches,
                         testing::Combine(testing::Values(2, 3),
                                          testing::Values(0u, 1u, 7u, 8u, 21u, 127u),
                                          testing::Bool(), testing::Bool()));

}  // namespace
}  // namespace vox::test
