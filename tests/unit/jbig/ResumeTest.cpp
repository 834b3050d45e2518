// A decoding that is interrupted anywhere goes on as if it had not been: image buffers of every
// height, coded data in pieces of every size, in both orders of bits.
#include <gtest/gtest.h>

#include "tests/support/JbigDriver.h"

namespace vox::test {
namespace {

struct Case {
  const char* name;
  JbigShape shape;
};

const Case kCases[] = {
    {"ThreeLines", {77, 30, 1000, 3}},
    {"TwoLines", {77, 30, 1000, 2}},
    {"ThreeLinesStripes", {77, 30, 7, 3, true}},
    {"TwoLinesStripes", {77, 30, 7, 2, true}},
    {"ThreeLinesReversedMoved", {77, 30, 8, 3, true, false, false, 12}},
    {"TwoLinesReversedMoved", {77, 30, 8, 2, false, false, false, 3}},
    {"LateHeight", {77, 30, 8, 3, false, true}},
};

class Resume : public testing::TestWithParam<Case> {
 protected:
  const JbigShape& m_shape = GetParam().shape;
  const Picture m_picture = Halftone(m_shape.width, m_shape.height, 12);
  const Bytes m_bie = Encode(m_picture, m_shape);
  const std::span<const std::uint8_t> m_coded = std::span(m_bie).subspan(kBihSize);
};

TEST_P(Resume, IntoImageBuffersOfEveryHeight) {
  for (unsigned height = 1; height <= m_picture.height + 1; ++height) {
    Decoding decoding(m_shape, m_coded);
    EXPECT_EQ(decoding.Run(Always(height)), CODEC_DONE) << height;
    EXPECT_EQ(decoding.Lines(), m_picture.bits) << height;
  }
}

TEST_P(Resume, FromPiecesOfEverySize) {
  for (unsigned size = 1; size <= m_coded.size(); ++size) {
    Decoding decoding(m_shape, m_coded, Always(size));
    EXPECT_EQ(decoding.Run(Always(1000)), CODEC_DONE) << size;
    EXPECT_EQ(decoding.Lines(), m_picture.bits) << size;
  }
}

TEST_P(Resume, FromRandomPiecesIntoRandomBuffers) {
  for (std::uint32_t seed = 0; seed < 100; ++seed) {
    Decoding decoding(m_shape, m_coded, RandomSizes(20, seed));
    EXPECT_EQ(decoding.Run(RandomSizes(9, seed)), CODEC_DONE) << seed;
    EXPECT_EQ(decoding.Lines(), m_picture.bits) << seed;
  }
}

TEST_P(Resume, EncodesTheSameFromLinesInAnyPortions) {
  for (unsigned lines = 1; lines <= m_picture.height; ++lines)
    EXPECT_EQ(Encode(m_picture, m_shape, {Always(lines), nullptr}), m_bie) << lines;
}

TEST_P(Resume, EncodesTheSameIntoBuffersOfEverySize) {
  for (unsigned room = 1; room <= m_bie.size() + 1; ++room)
    EXPECT_EQ(Encode(m_picture, m_shape, {nullptr, Always(room)}), m_bie) << room;
}

INSTANTIATE_TEST_SUITE_P(Images, Resume, testing::ValuesIn(kCases),
                         [](const auto& one) { return one.param.name; });

}  // namespace
}  // namespace vox::test
