// Markers among the coded bytes: what each does, and that it does it when it is reached.
#include <gtest/gtest.h>

#include "tests/support/JbigDriver.h"
#include "vox/drivers/libjbig3/jbig2rf.h"
#include "vox/drivers/libjbig3/jbigtbl.h"

namespace vox::test {
namespace {

Bytes Join(std::initializer_list<Bytes> parts) {
  Bytes all;
  for (const Bytes& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

// A reader over bytes, in both orders of bits.
class CodedBytes : public testing::TestWithParam<bool> {
 protected:
  // Starts reading these bytes, given here most significant bit first.
  void Give(Bytes bytes) {
    m_bytes = std::move(bytes);
    if (!GetParam())
      for (auto& byte : m_bytes) byte = LSBMSB[byte];
    m_block.codec.Strip = 5;
    m_work = BYTEW{};
    m_work.codecstr = &m_block.codec;
    m_work.fillorder = GetParam();
    m_work.c_addr = m_bytes.data();
    m_work.c_rsize = static_cast<DWORD>(m_bytes.size());
    m_work.Nwln = 0xFFFFFFFF;
  }
  int Next() {
    Byte_in(&m_work);
    return m_work.Breg;
  }

  CodecBlock m_block{JbigShape{8, 1, 5}};
  BYTEW& m_work = m_block.codec.work.bytew;
  Bytes m_bytes;
};

TEST_P(CodedBytes, ComeAsTheyAre) {
  Give({0x12, 0x80, 0xFE});
  EXPECT_EQ(Next(), 0x12);
  EXPECT_EQ(Next(), 0x80);
  EXPECT_EQ(Next(), 0xFE);
  EXPECT_FALSE(m_work.Fend);
  EXPECT_EQ(Next(), 0);
  EXPECT_TRUE(m_work.Fend);
}

TEST_P(CodedBytes, StuffedIsTheByteFF) {
  Give({0xFF, 0x00, 0x33});
  EXPECT_EQ(Next(), 0xFF);
  EXPECT_EQ(Next(), 0x33);
}

TEST_P(CodedBytes, ReserveAndUnknownCodesAreSkipped) {
  for (const int code : {0x01, 0x08, 0x40, 0x80, 0xFE, 0xFF}) {
    Give({0xFF, static_cast<std::uint8_t>(code), 0x33});
    EXPECT_EQ(Next(), 0x33) << "code " << code;
    EXPECT_EQ(m_work.c_rsize, 0u);
  }
}

TEST_P(CodedBytes, MarkersFollowEachOther) {
  Give({0xFF, 0x01, 0xFF, 0x07, 0, 0, 0, 1, 9, 0xFF, 0x00, 0x33});
  EXPECT_EQ(Next(), 0xFF);
  EXPECT_EQ(Next(), 0x33);
}

TEST_P(CodedBytes, EndMarkersGiveZerosFromThenOn) {
  for (const int code : {0x02, 0x03, 0x04}) {
    Give({0xFF, static_cast<std::uint8_t>(code), 0x33, 0x44});
    EXPECT_EQ(Next(), 0);
    EXPECT_EQ(Next(), 0);
    EXPECT_EQ(m_work.Sdnm, 1);
    EXPECT_EQ(m_work.Sdrst, code == 0x02 ? 0 : 1);
    EXPECT_EQ(m_work.Fend, code == 0x04 ? 1 : 0);
    EXPECT_EQ(m_work.c_rsize, 2u);
  }
}

TEST_P(CodedBytes, NewlenIsFourBytes) {
  Give({0xFF, 0x05, 1, 2, 3, 4, 0x33});
  EXPECT_EQ(Next(), 0x33);
  EXPECT_EQ(m_work.Nwln, 0x01020304u);
}

TEST_P(CodedBytes, AtMoveWaitsForItsLine) {
  Give({0xFF, 0x06, 0, 0, 1, 2, 100, 55, 0x33});
  EXPECT_EQ(Next(), 0x33);
  EXPECT_EQ(m_work.Yat, 0x0102u);
  EXPECT_EQ(m_work.Atm2, 100);
  EXPECT_EQ(m_work.Atmf, 1);
  EXPECT_EQ(m_work.Error, 0);
}

TEST_P(CodedBytes, AtMoveKeepsTheMovedPixelUntilThen) {
  Give({0xFF, 0x06, 0, 0, 1, 2, 127, 0, 0x33});
  m_work.Atmf = 2;
  Next();
  EXPECT_EQ(m_work.Atmf, 3);
  EXPECT_EQ(m_work.Error, 0);
}

TEST_P(CodedBytes, AtMoveBeyond127IsAnError) {
  Give({0xFF, 0x06, 0, 0, 0, 0, 128, 0, 0x33});
  EXPECT_EQ(Next(), 0x33);
  EXPECT_EQ(m_work.Error, 1);
}

TEST_P(CodedBytes, CommentsEndWithTheData) {
  Give({0xFF, 0x07, 0xFF, 0xFF, 0xFF, 0xFF, 1, 2, 3});
  EXPECT_EQ(Next(), 0);
  EXPECT_TRUE(m_work.Fend);
}

TEST_P(CodedBytes, NewlenBehindAnEndMarkerIsReadAtOnceWithVlength) {
  for (const int code : {0x02, 0x03}) {
    const Bytes bytes = {0xFF, static_cast<std::uint8_t>(code), 0xFF, 0x05, 0, 0, 0, 7, 0xFF, 0x02};
    Give(bytes);
    EXPECT_EQ(Next(), 0);
    EXPECT_EQ(m_work.Nwln, 0xFFFFFFFFu);
    Give(bytes);
    m_work.Vln = 1;
    EXPECT_EQ(Next(), 0);
    EXPECT_EQ(m_work.Nwln, 7u);
    EXPECT_EQ(m_work.c_rsize, 2u);
  }
}

TEST_P(CodedBytes, OtherBytesBehindAnEndMarkerStay) {
  Give({0xFF, 0x02, 0xFF, 0x06, 0, 0});
  m_work.Vln = 1;
  Next();
  EXPECT_EQ(m_work.c_rsize, 4u);
  EXPECT_EQ(m_work.Error, 0);
}

TEST_P(CodedBytes, EndlessStripesNeedANewlen) {
  Give({0xFF, 0x02, 0x11, 0x22});
  m_work.Vln = 1;
  m_block.codec.Strip = 0xFFFFFFFF;
  Next();
  EXPECT_EQ(m_work.Error, 1);
}

// The look-ahead meets the end of a piece behind the 0xFF: it keeps that in mind.
TEST_P(CodedBytes, TheLookAheadRemembersAPrefixAtTheEndOfAPiece) {
  Give({0xFF, 0x02, 0xFF});
  Bytes second = {0x06, 0, 0, 0, 3, 9, 0, 0x33};
  if (!GetParam())
    for (auto& byte : second) byte = LSBMSB[byte];
  m_block.codec.user_p1 = &second;
  m_block.codec.CCallBack = [](CODECCSTR* codec) {
    auto* bytes = static_cast<Bytes*>(codec->user_p1);
    codec->lpCBuff = bytes->data();
    codec->szCBuff = static_cast<DWORD>(bytes->size());
  };
  m_work.Vln = 1;
  EXPECT_EQ(Next(), 0);
  EXPECT_EQ(m_work.nlsd, 0xFF);
  m_work.Sdnm = 0;  // the next stripe starts
  EXPECT_EQ(Next(), 0x33);
  EXPECT_EQ(m_work.nlsd, 0);
  EXPECT_EQ(m_work.Yat, 3u);
  EXPECT_EQ(m_work.Atm2, 9);
}

INSTANTIATE_TEST_SUITE_P(BothOrders, CodedBytes, testing::Bool(),
                         [](const auto& order) { return order.param ? "MsbFirst" : "Reversed"; });

// ---- in whole images

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
}

TEST_P(MarkersInImages, NewlenBelowTheLinesDecodedIsCountedAsError) {
  const Bytes code = Join({Stripe(m_upper), m_sdnorm, {0xFF, 0x05, 0, 0, 0, 5}, m_sdnorm});
  JbigShape shape = Shape(100, 16);
  shape.vlength = true;
  Decoding decoding(shape, code);
  EXPECT_EQ(decoding.Run(Always(100)), CODEC_DONE);
  EXPECT_GT(decoding.Codec().Error, 0);
  EXPECT_EQ(decoding.Codec().Error, decoding.Codec().OutputHeight - 5);
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
