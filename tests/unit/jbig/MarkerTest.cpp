// Markers in whole images: what each does to the lines.
#include <algorithm>

#include <gtest/gtest.h>

#include "tests/support/JbigDriver.h"

namespace vox::test {
namespace {

Bytes Join(std::initializer_list<Bytes> parts) {
  Bytes all;
  for (const Bytes& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

class MarkersInImages : public testing::TestWithParam<int> {
 protected:
  JbigShape Shape(unsigned height, std::uint32_t strip) const {
    return {m_upper.width, height, strip, GetParam()};
  }
  // One picture's stripe data without the end marker.
  Bytes Stripe(const Picture& picture) const {
    const Bytes bie = Encode(picture, {picture.width, picture.height, 1000, GetParam()});
    return Bytes(bie.begin() + kBihSize, bie.end() - 2);
  }
  const Picture m_upper = Blobs(90, 16, 1), m_lower = Blobs(90, 16, 2);
  const Bytes m_sdnorm = {0xFF, 0x02}, m_sdrst = {0xFF, 0x03};
};

TEST_P(MarkersInImages, SdrstStartsTheNextStripeAfresh) {
  const Bytes code = Join({Stripe(m_upper), m_sdrst, Stripe(m_lower), m_sdnorm});
  EXPECT_EQ(Decode(Shape(32, 16), code), Join({m_upper.bits, m_lower.bits}));
}

TEST_P(MarkersInImages, SdnormKeepsContextsAndTheLineAbove) {
  Picture both(m_upper.width, 32);
  both.bits = Join({m_upper.bits, m_lower.bits});
  const Bytes bie = Encode(both, Shape(32, 16));
  const Bytes code(bie.begin() + kBihSize, bie.end());
  EXPECT_EQ(Decode(Shape(32, 16), code), both.bits);
  // The same stripe data behind SDRST give another picture.
  EXPECT_NE(code, Join({Stripe(m_upper), m_sdnorm, Stripe(m_lower), m_sdnorm}));
}

// A white end of a stripe needs no code: its marker is read many lines before its last line.
TEST_P(MarkersInImages, SdrstThatIsReachedEarlyActsAtTheNextStripe) {
  Picture upper = m_upper;
  std::fill(upper.bits.begin() + 5 * upper.LineBytes(), upper.bits.end(), std::uint8_t{0});
  const Bytes code = Join({Stripe(upper), m_sdrst, Stripe(m_lower), m_sdnorm});
  EXPECT_EQ(Decode(Shape(32, 16), code), Join({upper.bits, m_lower.bits}));
}

TEST_P(MarkersInImages, CommentsOfAnyLengthHaveNoEffect) {
  for (const std::uint32_t length : {0u, 1u, 2u, 300u, 70000u}) {
    Bytes comment = {0xFF,
                     0x07,
                     0,
                     static_cast<std::uint8_t>(length >> 16),
                     static_cast<std::uint8_t>(length >> 8),
                     static_cast<std::uint8_t>(length)};
    comment.insert(comment.end(), length, 0xFF);
    const Bytes code = Stripe(m_upper);
    for (const std::size_t at : {std::size_t{0}, std::size_t{1}, std::size_t{3}, code.size()}) {
      if (at > 0 && code[at - 1] == 0xFF) continue;  // not between a stuffed byte's two
      const auto middle = code.begin() + static_cast<std::ptrdiff_t>(at);
      const Bytes all =
          Join({Bytes(code.begin(), middle), comment, Bytes(middle, code.end()), m_sdnorm});
      EXPECT_EQ(Decode(Shape(16, 1000), all), m_upper.bits) << length << " at " << at;
    }
  }
}

TEST_P(MarkersInImages, NewlenShortensTheImageOnlyWithVlength) {
  const Bytes code = Join({Stripe(m_upper), m_sdnorm, {0xFF, 0x05, 0, 0, 0, 16}, m_sdnorm});
  JbigShape shape = Shape(100, 16);
  Decoding ignoring(shape, code);
  EXPECT_EQ(ignoring.Run(Always(100)), CODEC_DATA_ERROR);
  EXPECT_GE(ignoring.Lines().size(), m_upper.bits.size());
  shape.vlength = true;
  Decoding honouring(shape, code);
  EXPECT_EQ(honouring.Run(Always(100)), CODEC_DONE);
  EXPECT_EQ(honouring.Lines(), m_upper.bits);
  EXPECT_EQ(honouring.Codec().Error, 0);
  EXPECT_EQ(honouring.Codec().LineIBuff, 16);
  EXPECT_EQ(honouring.Callbacks(), 0u);
  EXPECT_EQ(honouring.Call(10), CODEC_DONE) << "and stays complete";
  EXPECT_EQ(honouring.Codec().LineIBuff, 0);
}

// Only the two bytes behind the end of a stripe are looked at: another marker hides the NEWLEN
// until the next stripe, which is too late for its first lines.
TEST_P(MarkersInImages, NewlenBehindAnotherMarkerIsReadWithTheNextStripe) {
  const Bytes code = Join({Stripe(m_upper),
                           m_sdnorm,
                           {0xFF, 0x06, 0, 0, 0, 0, 9, 0},
                           {0xFF, 0x05, 0, 0, 0, 16},
                           m_sdnorm});
  JbigShape shape = Shape(100, 16);
  shape.vlength = true;
  Decoding decoding(shape, code);
  EXPECT_EQ(decoding.Run(Always(100)), CODEC_DONE);
  EXPECT_EQ(decoding.Codec().OutputHeight, 17u);
  EXPECT_EQ(decoding.Codec().Error, 1);
  EXPECT_TRUE(std::equal(m_upper.bits.begin(), m_upper.bits.end(), decoding.Lines().begin()));
}

TEST_P(MarkersInImages, NewlenBelowTheLinesDecodedIsCountedAsError) {
  const Bytes code = Join({Stripe(m_upper), m_sdnorm, {0xFF, 0x05, 0, 0, 0, 5}, m_sdnorm});
  JbigShape shape = Shape(100, 16);
  shape.vlength = true;
  Decoding decoding(shape, code);
  EXPECT_EQ(decoding.Run(Always(100)), CODEC_DONE);
  EXPECT_GT(decoding.Codec().Error, 0);
  EXPECT_EQ(decoding.Codec().Error, decoding.Codec().OutputHeight - 5);
  EXPECT_EQ(decoding.Codec().work.bytew.Error, 1);
}

// Of the lines too many the low 16 bits are told.
TEST_P(MarkersInImages, NewlenFarBelowTheLinesDecodedIsCountedModulo65536) {
  Picture picture(8, 70050);  // white; only the last lines have code, and the marker behind it
  const Picture dots = RandomDots(8, 50, 128, 1);
  std::copy(dots.bits.begin(), dots.bits.end(), picture.bits.end() - 50);
  JbigShape shape{8, 70050, 70050, GetParam()};
  const Bytes bie = Encode(picture, shape, {.lines = Always(35025), .room = nullptr});
  const Bytes code = Join({Bytes(bie.begin() + kBihSize, bie.end()), {0xFF, 0x05, 0, 0, 0, 5}});
  shape.vlength = true;
  shape.height = 100000;
  Decoding decoding(shape, code);
  EXPECT_EQ(decoding.Run(Always(35025)), CODEC_DONE);
  const DWORD lines = decoding.Codec().OutputHeight;
  EXPECT_GT(lines, 65541u);
  EXPECT_LE(lines, 70050u);
  EXPECT_EQ(decoding.Codec().Error, lines - 5 - 65536);
}

TEST_P(MarkersInImages, ACompleteVlengthImageIsFoundInPiecesOfEverySize) {
  const Bytes code = Join({Stripe(m_upper), m_sdnorm, {0xFF, 0x05, 0, 0, 0, 16}, m_sdnorm});
  JbigShape shape = Shape(0xFFFFFFFF, 16);
  shape.vlength = true;
  for (unsigned size = 1; size <= code.size(); ++size) {
    Decoding decoding(shape, code, Always(size));
    EXPECT_EQ(decoding.Run(Always(3)), CODEC_DONE) << size;
    EXPECT_EQ(decoding.Lines(), m_upper.bits) << size;
    EXPECT_EQ(decoding.Codec().Error, 0) << size;
  }
}

TEST_P(MarkersInImages, AVlengthImageThatEndsWithItsHeightAsksForNothing) {
  JbigShape shape = Shape(16, 16);
  shape.vlength = true;
  Picture picture = m_upper;
  picture.Set(89, 15);  // code until the last pixel
  const Bytes code = Join({Stripe(picture), m_sdnorm});
  Decoding decoding(shape, code);
  EXPECT_EQ(decoding.Run(Always(16)), CODEC_DONE);
  EXPECT_EQ(decoding.Lines(), picture.bits);
  EXPECT_EQ(decoding.Callbacks(), 0u);
}

TEST_P(MarkersInImages, EndlessStripesWithoutNewlenAreADataError) {
  JbigShape shape = Shape(100, 0xFFFFFFFF);
  shape.vlength = true;
  for (const unsigned piece : {1u, 2u, 1000u}) {
    Decoding decoding(shape, Join({Stripe(m_upper), m_sdnorm, {0x11, 0x22}}), Always(piece));
    EXPECT_EQ(decoding.Run(Always(100)), CODEC_DATA_ERROR);
    EXPECT_LE(decoding.Codec().LineIBuff, 16);
  }
}

TEST_P(MarkersInImages, AnAtMoveBeyond127EndsWithTheGoodLines) {
  const Bytes code = Join(
      {Stripe(m_upper), m_sdnorm, {0xFF, 0x06, 0, 0, 0, 0, 200, 0}, Stripe(m_lower), m_sdnorm});
  Decoding decoding(Shape(32, 16), code);
  EXPECT_EQ(decoding.Run(Always(100)), CODEC_DATA_ERROR);
  EXPECT_EQ(decoding.Codec().LineIBuff, 16);
  EXPECT_EQ(decoding.Lines(), m_upper.bits);
}

TEST_P(MarkersInImages, AnAtMoveToZeroGoesBackToTheDefaultPlace) {
  const Bytes code = Join(
      {{0xFF, 0x06, 0, 0, 0, 0, 9, 0, 0xFF, 0x06, 0, 0, 0, 0, 0, 0}, Stripe(m_upper), m_sdnorm});
  EXPECT_EQ(Decode(Shape(16, 16), code), m_upper.bits);
}

TEST_P(MarkersInImages, AnAtMoveForALineThatNeverComesHasNoEffect) {
  const Bytes code = Join({{0xFF, 0x06, 0, 0, 0, 50, 9, 0}, Stripe(m_upper), m_sdnorm});
  EXPECT_EQ(Decode(Shape(16, 16), code), m_upper.bits);
}

INSTANTIATE_TEST_SUITE_P(Templates, MarkersInImages, testing::Values(2, 3));

}  // namespace
}  // namespace vox::test
