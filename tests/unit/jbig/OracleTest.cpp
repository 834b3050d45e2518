// The decoder and the oracle agree, register for register, on good and on broken data.
#include <algorithm>
#include <random>

#include <gtest/gtest.h>

#include "tests/support/JbigCompare.h"

namespace vox::test {
namespace {

class Oracle : public testing::TestWithParam<int> {
 protected:
  std::minstd_rand m_random{static_cast<unsigned>(GetParam()) * 7919u + 1};

  unsigned Below(unsigned limit) { return static_cast<unsigned>(m_random() >> 4) % limit; }

  JbigShape AnyShape() {
    JbigShape shape{1 + Below(200), 1 + Below(40), 1 + Below(45), 2 + static_cast<int>(Below(2))};
    shape.tp = Below(2);
    shape.vlength = Below(3) == 0;
    shape.msb_first = Below(2);
    shape.tx = Below(2) ? 0 : Below(128);
    return shape;
  }
  Picture AnyPicture(const JbigShape& shape) {
    const unsigned kind = Below(4);
    if (kind == 0) return RandomDots(shape.width, shape.height, Below(257), Below(1000));
    if (kind == 1) return Halftone(shape.width, shape.height, 2 + Below(20));
    if (kind == 2) return Picture(shape.width, shape.height);
    return Blobs(shape.width, shape.height, Below(1000));
  }
  Bytes Code(const JbigShape& shape) {
    const Bytes bie = Encode(AnyPicture(shape), shape);
    return Bytes(bie.begin() + kBihSize, bie.end());
  }
  void Compare(const JbigShape& shape, const Bytes& code) {
    const Sizes piece = Below(3) == 0 ? Sizes{} : RandomSizes(1 + Below(30), Below(1000));
    EXPECT_EQ(CompareWithOracle(shape, code, RandomSizes(1 + Below(50), Below(1000)), piece), "")
        << shape;
  }
};

TEST_P(Oracle, AgreesOnGoodImages) {
  for (int i = 0; i < 40; ++i) {
    const JbigShape shape = AnyShape();
    Compare(shape, Code(shape));
  }
}

TEST_P(Oracle, AgreesOnImagesWithBytesChanged) {
  for (int i = 0; i < 40; ++i) {
    const JbigShape shape = AnyShape();
    Bytes code = Code(shape);
    for (unsigned n = 1 + Below(6); n > 0; --n)
      code[Below(static_cast<unsigned>(code.size()))] =
          static_cast<std::uint8_t>(Below(3) ? Below(256) : 0xFF);
    Compare(shape, code);
  }
}

// Markers strewn over the data: every code, with contents that may be cut or make no sense.
TEST_P(Oracle, AgreesOnMarkersAnywhere) {
  for (int i = 0; i < 40; ++i) {
    JbigShape shape = AnyShape();
    if (Below(6) == 0) shape.strip = 0xFFFFFFFF;
    Bytes code = shape.strip == 0xFFFFFFFF ? Bytes{1, 2, 3} : Code(shape);
    for (unsigned n = 1 + Below(5); n > 0; --n) {
      const Bytes marker = {0xFF,
                            static_cast<std::uint8_t>(Below(9)),
                            0,
                            0,
                            0,
                            static_cast<std::uint8_t>(Below(40)),
                            static_cast<std::uint8_t>(Below(140)),
                            0};
      code.insert(code.begin() + Below(static_cast<unsigned>(code.size())), marker.begin(),
                  marker.begin() + 1 + Below(8));
    }
    shape.msb_first = true;
    Compare(shape, code);
  }
}

TEST_P(Oracle, AgreesOnNoise) {
  for (int i = 0; i < 40; ++i) {
    Bytes code(Below(300));
    for (auto& byte : code) byte = static_cast<std::uint8_t>(Below(4) ? Below(256) : 0xFF);
    Compare(AnyShape(), code);
  }
}

INSTANTIATE_TEST_SUITE_P(Seeds, Oracle, testing::Range(0, 12));

// Runs of either colour longer than any picture above, through every renormalisation of the
// narrowest states, and broken off by single dots. A pitch of 65535 is short of a byte, so lines
// come one at a time.
TEST(OracleRuns, AgreesOnWideLines) {
  for (const unsigned width : {4095u, 65535u})
    for (const int lines : {2, 3})
      for (const unsigned tx : {0u, 5u, 127u})
        for (const bool black : {false, true}) {
          Picture picture(width, 6);
          if (black) std::fill(picture.bits.begin(), picture.bits.end(), std::uint8_t{0xFF});
          for (unsigned y = 2; y < 6; ++y) {
            const unsigned x = width - 1 - y * (y == 5 ? 500 : 1);
            picture.Line(y)[x / 8] ^= static_cast<std::uint8_t>(0x80 >> x % 8);
          }
          JbigShape shape{width, picture.height, 4, lines};
          shape.tx = tx;
          const Bytes bie = Encode(picture, shape);
          const Bytes code(bie.begin() + kBihSize, bie.end());
          EXPECT_EQ(CompareWithOracle(shape, code, Always(1), {}), "")
              << shape << (black ? " black" : " white");
        }
}

// A stripe whose code starts with the largest numbers: C is just below A, which has 17 bits then.
TEST(OracleStart, AgreesOnCodeAtTheTopOfTheInterval) {
  for (const int lines : {2, 3})
    for (const std::uint8_t third : {0x00, 0x01, 0x7F, 0xFE}) {
      const Bytes code = {0xFF, 0x00, 0xFF, 0x00, third, 0x12, 0x34, 0x56, 0x78, 0x9A, 0xFF, 0x02};
      EXPECT_EQ(CompareWithOracle({64, 4, 2, lines}, code, Always(1), nullptr), "") << third * 1;
    }
}

// A stripe may end before, with or behind its last line, with any marker next, and with the end of
// a piece anywhere.
class OracleStripes : public testing::TestWithParam<int> {
 protected:
  static void Append(Bytes& bytes, const Bytes& more) {
    bytes.insert(bytes.end(), more.begin(), more.end());
  }
  static void CompareInPieces(const JbigShape& shape, const Bytes& code) {
    for (unsigned piece = 1; piece <= code.size(); ++piece)
      EXPECT_EQ(CompareWithOracle(shape, code, Always(1), Always(piece)), "")
          << shape << ", pieces of " << piece << " of " << testing::PrintToString(code);
  }
};

TEST_P(OracleStripes, AgreesOnEveryWayInWhichTheyEnd) {
  const Bytes first[] = {{0x12, 0x9A, 0x55, 0xE3, 0x07}, {0xFF, 0x06, 0, 0, 0, 50, 9, 0, 0x41}};
  const Bytes next[] = {{},
                        {0xFF, 0x05, 0, 0, 0, 2},
                        {0xFF, 0x05, 0, 0, 0, 200},
                        {0xFF, 0x06, 0, 0, 0, 1, 3, 0},
                        {0xFF, 0x07, 0, 0, 0, 2, 0xFF, 0xFF},
                        {0xFF},
                        {0x33, 0x44}};
  for (const std::uint32_t height : {1u, 2u, 5u})
    for (const std::uint32_t strip : {1u, 3u, 0xFFFFFFFFu})
      for (const Bytes& code : first)
        for (std::size_t cut = 0; cut <= 5; ++cut)
          for (const std::uint8_t marker : {0x02, 0x03})
            for (const Bytes& follows : next) {
              Bytes all(code.begin(), code.end() - static_cast<std::ptrdiff_t>(cut % code.size()));
              Append(all, {0xFF, marker});
              Append(all, follows);
              JbigShape shape{16, height, strip, GetParam()};
              shape.vlength = true;
              CompareInPieces(shape, all);
            }
}

INSTANTIATE_TEST_SUITE_P(Templates, OracleStripes, testing::Values(2, 3));

// Every AT offset on a picture where it matters.
TEST(OracleAt, AgreesForEveryOffset) {
  for (unsigned tx = 0; tx < 128; ++tx)
    for (const int lines : {2, 3}) {
      JbigShape shape{150, 12, 5, lines};
      shape.tx = tx;
      const Bytes bie = Encode(Halftone(150, 12, 7), shape);
      EXPECT_EQ(CompareWithOracle(shape, std::span(bie).subspan(kBihSize), Always(5), nullptr), "")
          << shape;
    }
}

}  // namespace
}  // namespace vox::test
