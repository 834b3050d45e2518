// The codec and libjbig read each other's images, and write the same bytes where T.82 leaves no
// choice.
#include "tests/interop/jbig/LibjbigPeer.h"

#include <algorithm>
#include <array>
#include <tuple>

#include <gtest/gtest.h>

#include "vox/drivers/libjbig3/jbigtbl.h"

namespace vox::test {
namespace {

std::span<const std::uint8_t> Coded(const Bytes& bie) {
  return std::span(bie).subspan(kBihSize);
}

// Two- or three-line template, with or without typical prediction.
class Libjbig : public testing::TestWithParam<std::tuple<int, bool>> {
 protected:
  JbigShape Shape(const Picture& picture, std::uint32_t strip) const {
    return {picture.width, picture.height, strip, std::get<0>(GetParam()), std::get<1>(GetParam())};
  }
  static std::vector<Picture> Pictures(unsigned width, unsigned height) {
    return {RandomDots(width, height, 100, width), Blobs(width, height, width),
            Halftone(width, height, 8), Picture(width, height)};
  }
};

TEST_P(Libjbig, WritesTheSameBytesForEveryWidthAndStripeHeight) {
  for (unsigned width = 1; width <= 70; ++width)
    for (const Picture& picture : Pictures(width, 21))
      for (const std::uint32_t strip : {1u, 2u, 5u, 21u, 1000u}) {
        const JbigShape shape = Shape(picture, strip);
        const Bytes ours = Encode(picture, shape);
        EXPECT_EQ(ours, PeerEncode(picture, shape)) << "width " << width << " strip " << strip;
        EXPECT_EQ(PeerDecode(ours), picture.bits) << "width " << width << " strip " << strip;
        EXPECT_EQ(Decode(shape, Coded(ours)), picture.bits) << "width " << width;
      }
}

TEST_P(Libjbig, WritesTheSameBytesForWidePictures) {
  for (const unsigned width : {255u, 256u, 1000u, 4961u}) {
    for (const Picture& picture : Pictures(width, 60)) {
      const JbigShape shape = Shape(picture, 60);
      const Bytes ours = Encode(picture, shape);
      EXPECT_EQ(ours, PeerEncode(picture, shape)) << "width " << width;
      EXPECT_EQ(Decode(shape, Coded(ours)), picture.bits) << "width " << width;
    }
  }
}

TEST_P(Libjbig, WritesStripesWithSdrst) {
  for (unsigned width = 1; width <= 70; ++width)
    for (const Picture& picture : Pictures(width, 21))
      for (const std::uint32_t strip : {1u, 4u, 20u}) {
        const JbigShape shape = Shape(picture, strip);
        const Bytes theirs = PeerEncode(picture, shape, {.sdrst = true});
        EXPECT_EQ(Decode(shape, Coded(theirs)), picture.bits) << width << " strip " << strip;
      }
}

TEST_P(Libjbig, MovesAtInTheMiddleOfAnImage) {
  unsigned moves = 0;
  for (unsigned period = 3; period <= 40; ++period)
    for (const bool delay : {false, true}) {
      const Picture picture = Halftone(1200, 64, period);
      const JbigShape shape = Shape(picture, 16);
      const Bytes theirs = PeerEncode(picture, shape, {.most_at = 127, .delay_at = delay});
      moves += std::search(theirs.begin(), theirs.end(), std::begin(kAtMove), std::end(kAtMove)) !=
               theirs.end();
      EXPECT_EQ(Decode(shape, Coded(theirs)), picture.bits) << "period " << period;
    }
  EXPECT_GT(moves, 50u);
}

TEST_P(Libjbig, ReadsOurMovedAt) {
  for (unsigned tx = 1; tx <= 127; ++tx)
    for (const unsigned width : {5u, 70u, 500u}) {
      const Picture picture = Halftone(width, 20, 8);
      JbigShape shape = Shape(picture, 7);
      shape.tx = tx;
      const Bytes ours = Encode(picture, shape);
      EXPECT_EQ(Decode(shape, Coded(ours)), picture.bits) << "tx " << tx;
      EXPECT_EQ(PeerDecode(ours), picture.bits) << "tx " << tx << " width " << width;
    }
}

TEST_P(Libjbig, AnnouncesTheHeightLate) {
  for (unsigned height = 1; height <= 40; ++height)
    for (const std::uint32_t announced : {height, height + 1, height + 30, 0xFFFFFFFFu}) {
      const Picture picture = Blobs(90, height, height);
      JbigShape shape = Shape(picture, 8);
      const Bytes theirs = PeerEncode(picture, shape, {.announced = announced});
      shape.height = announced;
      shape.vlength = true;
      Decoding decoding(shape, Coded(theirs));
      EXPECT_EQ(decoding.Run(Always(100)), CODEC_DONE) << height << " of " << announced;
      EXPECT_EQ(decoding.Lines(), picture.bits) << height << " of " << announced;
      EXPECT_EQ(decoding.Codec().Error, 0);
    }
}

TEST_P(Libjbig, ReadsOurLateHeight) {
  for (unsigned height = 1; height <= 40; ++height) {
    const Picture picture = Blobs(90, height, height);
    JbigShape shape = Shape(picture, 8);
    shape.vlength = true;
    Bytes ours = Encode(picture, shape);
    ASSERT_TRUE(PeerSettleHeight(ours)) << height;
    EXPECT_EQ(PeerDecode(ours), picture.bits) << height;
  }
}

TEST_P(Libjbig, WritesCommentsOfAnyLength) {
  const Picture picture = Blobs(90, 30, 7);
  const JbigShape shape = Shape(picture, 10);
  for (const std::size_t length : {1u, 2u, 255u, 256u, 70000u}) {
    const Bytes theirs = PeerEncode(picture, shape, {.comment = std::string(length, '\xFF')});
    EXPECT_GT(theirs.size(), length);
    EXPECT_EQ(Decode(shape, Coded(theirs)), picture.bits) << length;
  }
}

// All that the standard offers in one stream, given in pieces of every size, into image buffers of
// every height, in both orders of bits.
TEST_P(Libjbig, IsReadInAnyPieces) {
  const Picture picture = Halftone(300, 40, 12);
  JbigShape shape = Shape(picture, 9);
  const Bytes theirs = PeerEncode(
      picture, shape, {.most_at = 40, .announced = 0xFFFFFFFF, .comment = std::string(20, 'c')});
  Bytes reversed = theirs;
  for (auto& byte : reversed) byte = LSBMSB[byte];
  shape.height = 0xFFFFFFFF;
  shape.vlength = true;
  for (unsigned size = 1; size < 60; ++size) {
    shape.msb_first = size % 2 == 0;
    Decoding decoding(shape, Coded(shape.msb_first ? theirs : reversed), Always(size));
    EXPECT_EQ(decoding.Run(Always(1 + size % 41)), CODEC_DONE) << "pieces of " << size;
    EXPECT_EQ(decoding.Lines(), picture.bits) << "pieces of " << size;
  }
}

INSTANTIATE_TEST_SUITE_P(AsPeer, Libjbig, testing::Combine(testing::Values(2, 3), testing::Bool()));

}  // namespace
}  // namespace vox::test
