// All that a stream may combine, between the codec and libjbig in both directions: template,
// typical prediction, stripe height, AT moves, a height that comes late, comments, both ends of
// stripes, and every width up to 70.
#include <algorithm>
#include <array>
#include <tuple>

#include <gtest/gtest.h>

#include "tests/interop/jbig/LibjbigPeer.h"
#include "vox/drivers/libjbig3/jbigtbl.h"

namespace vox::test {
namespace {

// Two- or three-line template, with or without typical prediction.
class Combinations : public testing::TestWithParam<std::tuple<int, bool>> {
 protected:
  JbigShape Shape(const Picture& picture, std::uint32_t strip) const {
    return {picture.width, picture.height, strip, std::get<0>(GetParam()), std::get<1>(GetParam())};
  }
  // Another kind of picture for every number.
  static Picture AnyPicture(unsigned width, unsigned height, unsigned number) {
    if (number % 4 == 0) return RandomDots(width, height, 100, number);
    if (number % 4 == 1) return Blobs(width, height, number);
    if (number % 4 == 2) return Halftone(width, height, 2 + number % 11);
    return Picture(width, height);
  }

  // Decodes what libjbig writes with every combination of the other options: at once, and with the
  // bits of each byte reversed, in pieces and image buffers of any size.
  void ReadTheirs(const Picture& picture, std::uint32_t strip, PeerOptions options) {
    for (unsigned bits = 0; bits < 8; ++bits) {
      JbigShape shape = Shape(picture, strip);
      shape.vlength = bits & 1;
      options.announced = shape.vlength ? 0xFFFFFFFF : 0;
      options.sdrst = bits & 2;
      // A delayed AT move that waits for a stripe which never comes would stand before the NEWLEN.
      if (shape.vlength && options.sdrst) options.delay_at = false;
      options.comment = std::string(bits & 4 ? bits + strip % 5 : 0, '\xFF');
      Bytes theirs = PeerEncode(picture, shape, options);
      m_moves +=
          std::search(theirs.begin(), theirs.end(), kAtMove.begin(), kAtMove.end()) != theirs.end();
      if (shape.vlength) shape.height = 0xFFFFFFFF;
      const auto coded = std::span(theirs).subspan(kBihSize);
      Decoding whole(shape, coded);
      EXPECT_EQ(whole.Run(Always(1000)), CODEC_DONE) << shape << ", options " << bits;
      EXPECT_EQ(whole.Lines(), picture.bits) << shape << ", options " << bits;
      EXPECT_EQ(whole.Callbacks(), 0u) << shape << ", options " << bits;
      for (auto& byte : theirs) byte = LSBMSB[byte];
      shape.msb_first = false;
      Decoding pieces(shape, coded, RandomSizes(20, picture.width + bits));
      EXPECT_EQ(pieces.Run(RandomSizes(30, strip + bits)), CODEC_DONE) << shape << ", " << bits;
      EXPECT_EQ(pieces.Lines(), picture.bits) << shape << ", options " << bits;
    }
  }

  unsigned m_moves = 0;  // images in which libjbig moved AT
};

TEST_P(Combinations, OfTheirsForEveryWidth) {
  for (unsigned width = 1; width <= 70; ++width)
    for (const std::uint32_t strip : {1u, 2u, 9u, 1000u})
      ReadTheirs(AnyPicture(width, 21, width + strip), strip, {});
}

// libjbig moves AT where a stripe has some 2,000 pixels to judge by.
TEST_P(Combinations, OfTheirsWithAtMoves) {
  for (unsigned width = 31; width <= 70; width += 2)
    for (const std::uint32_t strip : {90u, 1000u})
      ReadTheirs(Halftone(width, 120, 3 + width % 6), strip, {.most_at = 8});
  for (unsigned width = 1200; width < 1208; ++width)
    ReadTheirs(Halftone(width, 40, 3 + 5 * (width % 8)), 9,
               {.most_at = 127, .delay_at = width % 2 == 0});
  EXPECT_GT(m_moves, 80u);
}

// An AT pixel that lies on one of the template is outside T.82's field; libjbig leaves its bit 0.
TEST_P(Combinations, OfOursForEveryWidth) {
  for (unsigned width = 1; width <= 70; ++width)
    for (const std::uint32_t strip : {1u, 2u, 9u, 1000u})
      for (const unsigned tx : {0u, 5u, 7u, 8u, 30u, 127u})
        for (const bool vlength : {false, true}) {
          const Picture picture = AnyPicture(width, 21, width + strip + tx);
          JbigShape shape = Shape(picture, strip);
          shape.tx = tx;
          shape.vlength = vlength;
          Bytes ours = Encode(picture, shape);
          if (vlength) {
            ASSERT_TRUE(PeerSettleHeight(ours)) << shape;
          }
          EXPECT_EQ(PeerDecode(ours), picture.bits) << shape;
        }
}

INSTANTIATE_TEST_SUITE_P(WithPeer, Combinations,
                         testing::Combine(testing::Values(2, 3), testing::Bool()));

}  // namespace
}  // namespace vox::test
