// The encoder's call protocol, its header and markers, and its limits.
#include <algorithm>
#include <cstring>

#include "tests/unit/jbig/EncoderBlock.h"

namespace vox::test {
namespace {

unsigned Count(const Bytes& bie, const Bytes& part) {
  unsigned count = 0;
  for (auto at = bie.begin();; ++at) {
    at = std::search(at, bie.end(), part.begin(), part.end());
    if (at == bie.end()) return count;
    ++count;
  }
}

bool EndsWith(const Bytes& bie, const Bytes& end) {
  return bie.size() >= end.size() && std::equal(end.rbegin(), end.rend(), bie.rbegin());
}

TEST_F(Encoder, WritesTheHeader) {
  m_codec.Strip = 0x01020304;
  EXPECT_EQ(Call(CODEC_START), CODEC_DONE);
  const Bytes bih = {0, 0, 1, 0, 0, 0, 0, 50, 0, 0, 0, 12, 1, 2, 3, 4, 0, 0, 0, 0};
  EXPECT_EQ(Bytes(m_out.begin(), m_out.begin() + 20), bih);
}

TEST_F(Encoder, WritesTheOptionsIntoTheHeader) {
  const struct {
    BYTE lines, tp, vlength;
    unsigned options;
  } cases[] = {{3, 0, 0, 0x00}, {2, 0, 0, 0x40}, {3, 1, 0, 0x08},
               {3, 0, 1, 0x20}, {2, 1, 1, 0x68}, {3, 1, 1, 0x28}};
  for (const auto& one : cases) {
    m_codec.Tpv = one.lines;
    m_codec.Tpb = one.tp;
    m_codec.Vln = one.vlength;
    EXPECT_EQ(Put_BIE(&m_codec), 0);
    EXPECT_EQ(m_out[19], one.options);
    EXPECT_EQ(Bytes(m_out.begin() + 8, m_out.begin() + 12),
              one.vlength ? Bytes(4, 0xFF) : (Bytes{0, 0, 0, 12}));
    EXPECT_EQ(m_codec.lpCBuff, m_out.data());
  }
}

TEST_F(Encoder, WritesTheHeaderBitReversed) {
  m_codec.Mode = 0;
  EXPECT_EQ(Put_BIE(&m_codec), 0);
  EXPECT_EQ(m_out[2], 0x80);
  EXPECT_EQ(m_out[7], 0x4C);  // 50 = 0x32
}

TEST_F(Encoder, ReadsBackItsHeader) {
  m_codec.Tpv = 2;
  m_codec.Vln = m_codec.Tpb = 1;
  EXPECT_EQ(Put_BIE(&m_codec), 0);
  CODECCSTR codec{};
  codec.Mode = 1;
  codec.lpCBuff = m_out.data();
  codec.szCBuff = 20;
  EXPECT_EQ(Get_BIE(&codec), 0);
  EXPECT_EQ(codec.ImageWidth, 50);
  EXPECT_EQ(codec.ImageHeight, 0xFFFFFFFFu);
  EXPECT_EQ(codec.Strip, 1000u);
  EXPECT_EQ(codec.Tpv, 2);
}

TEST_F(Encoder, CountsTheHeaderAsCode) {
  EXPECT_EQ(Call(CODEC_START), CODEC_DONE);
  EXPECT_EQ(Written(), Encode(kPicture, ShapeOf(kPicture)));
}

TEST_F(Encoder, PutsTheAtOffsetIntoTheHeaderAndInFrontOfEveryStripe) {
  JbigShape shape = ShapeOf(kPicture, 4);
  shape.tx = 127;
  const Bytes bie = Encode(kPicture, shape);
  EXPECT_EQ(bie[16], 127);
  EXPECT_EQ(bie[17], 0);
  const Bytes move = {0xFF, 0x06, 0, 0, 0, 0, 127, 0};
  EXPECT_TRUE(std::equal(move.begin(), move.end(), bie.begin() + 20));
  EXPECT_EQ(Count(bie, move), 3u);
  EXPECT_EQ(Decode(shape, std::span(bie).subspan(20)), kPicture.bits);
}

// Seen from the callback in the middle of the marker.
TEST_F(Encoder, KnowsThatItWritesAnAtMove) {
  m_codec.Atm = 8;
  m_codec.szCBuff = 23;
  m_codec.CCallBack = [](CODECCSTR* codec) {
    EXPECT_EQ(codec->work.bytew.Atmf, codec->user_i1++ == 0 ? 2 : 0);
    codec->lpCBuff += codec->CodeSize;
    codec->szCBuff = 10;
  };
  EXPECT_EQ(Call(CODEC_START), CODEC_DONE);
  EXPECT_GT(m_codec.user_i1, 1u);
  JbigShape shape = ShapeOf(kPicture);
  shape.tx = 8;
  const Bytes bie = Encode(kPicture, shape);
  EXPECT_TRUE(std::equal(bie.begin(), bie.end(), m_out.begin()));
}

TEST_F(Encoder, RefusesAtOffsetsBeyond127) {
  m_codec.Atm = 128;
  EXPECT_EQ(Put_BIE(&m_codec), 1);
  EXPECT_EQ(Call(CODEC_START), CODEC_BAD_PARAM);
  EXPECT_EQ(m_out[0], 0xA5);
}

TEST_F(Encoder, RefusesRoomBelowTheHeader) {
  m_codec.szCBuff = 19;
  EXPECT_EQ(Put_BIE(&m_codec), 1);
  EXPECT_EQ(Call(CODEC_START), CODEC_BAD_PARAM);
  EXPECT_EQ(m_out[0], 0xA5);
}

TEST_F(Encoder, RefusesBadParameters) {
  for (int command = 0; command < 256; ++command) {
    if (command == CODEC_START || command == CODEC_NEXT_DATA || command == CODEC_END) continue;
    EXPECT_EQ(Call(command), CODEC_BAD_PARAM) << command;
  }
  EXPECT_EQ(Call(CODEC_NEXT_DATA), CODEC_BAD_PARAM) << "never started";
  EXPECT_EQ(Call(CODEC_END), CODEC_BAD_PARAM) << "never started";
  m_codec.Mode = 2;
  EXPECT_EQ(Call(CODEC_START), CODEC_BAD_PARAM);
  EXPECT_EQ(m_codec.Command, CODEC_START) << "a bad mode touches nothing";
  m_codec.Mode = 0x81;
  m_codec.Tpv = 4;
  EXPECT_EQ(Call(CODEC_START), CODEC_BAD_PARAM);
  m_codec.Tpv = 3;
  m_codec.Strip = 0;
  EXPECT_EQ(Call(CODEC_START), CODEC_BAD_PARAM);
  m_codec.Strip = 5;
  m_codec.lpIBuff = nullptr;
  EXPECT_EQ(Call(CODEC_START), CODEC_BAD_PARAM);
  m_codec.lpIBuff = m_lines.data();
  EXPECT_EQ(Call(CODEC_START), CODEC_DONE);
}

TEST_F(Encoder, AsksForLinesUntilTheHeightIsThere) {
  m_codec.HeightIBuff = 5;
  EXPECT_EQ(Call(CODEC_START), CODEC_NEXT_DATA);
  EXPECT_EQ(m_codec.OutputHeight, 5u);
  m_codec.lpIBuff += 5 * kPicture.LineBytes();
  EXPECT_EQ(Call(CODEC_NEXT_DATA), CODEC_NEXT_DATA);
  m_codec.lpIBuff += 5 * kPicture.LineBytes();
  EXPECT_EQ(Call(CODEC_NEXT_DATA), CODEC_DONE);  // of the last five lines two are the image's
  EXPECT_EQ(m_codec.OutputHeight, 12u);
  EXPECT_EQ(Written(), Encode(kPicture, ShapeOf(kPicture)));
}

TEST_F(Encoder, StaysCompleteWhenItIsCalledAgain) {
  EXPECT_EQ(Call(CODEC_START), CODEC_DONE);
  const Bytes written = Written();
  EXPECT_EQ(Call(CODEC_NEXT_DATA), CODEC_DONE);
  EXPECT_EQ(Call(CODEC_END), CODEC_DONE);
  EXPECT_EQ(Written(), written);
}

TEST_F(Encoder, EndsAnImageOfNoLinesAtOnce) {
  m_codec.ImageHeight = 0;
  EXPECT_EQ(Call(CODEC_START), CODEC_DONE);
  EXPECT_EQ(m_codec.CodeSize, 22u);
  EXPECT_TRUE(EndsWith(Written(), {0xFF, 0x02}));
}

TEST_F(Encoder, AnImageOfExactlyOneStripeEndsWithOneSdnorm) {
  const Bytes bie = Encode(kPicture, ShapeOf(kPicture, 12));
  EXPECT_EQ(Count(bie, {0xFF, 0x02}), 1u);
  EXPECT_TRUE(EndsWith(bie, {0xFF, 0x02}));
  EXPECT_EQ(bie.size(), Encode(kPicture, ShapeOf(kPicture, 13)).size());
}

TEST_F(Encoder, WithVlengthTheHeightStandsBetweenTwoSdnorms) {
  JbigShape shape = ShapeOf(kPicture, 12);
  shape.vlength = true;
  const Bytes bie = Encode(kPicture, shape);
  EXPECT_TRUE(EndsWith(bie, {0xFF, 0x02, 0xFF, 0x05, 0, 0, 0, 12, 0xFF, 0x02}));
  EXPECT_EQ(Count(bie, {0xFF, 0x02}), 2u);
}

TEST_F(Encoder, EveryStripeEndsWithSdnorm) {
  const Bytes bie = Encode(kPicture, ShapeOf(kPicture, 5));
  EXPECT_EQ(Count(bie, {0xFF, 0x02}), 3u);
  EXPECT_EQ(Count(bie, {0xFF, 0x03}), 0u);
}

TEST_F(Encoder, MarkersAreReversedLikeTheData) {
  JbigShape shape = ShapeOf(kPicture, 5);
  shape.msb_first = false;
  shape.vlength = true;
  const Bytes bie = Encode(kPicture, shape);
  EXPECT_EQ(Count(bie, {0xFF, 0x40}), 4u);
  EXPECT_TRUE(EndsWith(bie, {0xFF, 0x40, 0xFF, 0xA0, 0, 0, 0, 0x30, 0xFF, 0x40}));
  EXPECT_EQ(Decode(shape, std::span(bie).subspan(20)), kPicture.bits);
}

TEST_F(Encoder, EndsEarlyOnRequest) {
  for (unsigned lines = 1; lines < 12; ++lines)
    for (const bool vlength : {false, true}) {
      JbigShape shape = ShapeOf(kPicture, 4);
      shape.vlength = vlength;
      const Bytes bie =
          Encode(kPicture, shape, {.lines = Always(3), .room = nullptr, .end_after = lines});
      const auto count = static_cast<std::uint8_t>(lines);
      EXPECT_TRUE(
          EndsWith(bie, vlength ? Bytes{0xFF, 5, 0, 0, 0, count, 0xFF, 2} : Bytes{0xFF, 2}));
      if (!vlength) shape.height = lines;
      const Bytes decoded = Decode(shape, std::span(bie).subspan(20));
      EXPECT_EQ(decoded,
                Bytes(kPicture.bits.begin(), kPicture.bits.begin() + lines * kPicture.LineBytes()));
    }
}

TEST_F(Encoder, IgnoresBitsBeyondTheWidth) {
  const Bytes clean = Encode(kPicture, ShapeOf(kPicture));
  for (unsigned y = 0; y < kPicture.height; ++y)
    m_lines[(y + 1) * kPicture.LineBytes() - 1] |= 0x3F;
  for (const BYTE tp : {0, 1}) {
    m_codec.Tpb = tp;
    EXPECT_EQ(Call(CODEC_START), CODEC_DONE);
    JbigShape shape = ShapeOf(kPicture);
    shape.tp = tp;
    EXPECT_EQ(Written(), Encode(kPicture, shape));
  }
}

TEST_F(Encoder, DropsTheRestWhenTheCallbackEnds) {
  m_codec.szCBuff = 25;
  m_codec.CCallBack = [](CODECCSTR* codec) {
    EXPECT_EQ(codec->Command, CODEC_NEXT_BUFFER);
    EXPECT_EQ(codec->CodeSize, 25u);
    ++codec->user_i1;
    codec->Command = CODEC_END;
  };
  EXPECT_EQ(Call(CODEC_START), CODEC_DONE);
  EXPECT_EQ(m_codec.user_i1, 1u);
  EXPECT_EQ(m_out[25], 0xA5);
}

TEST_F(Encoder, DropsTheRestWithoutACallback) {
  m_codec.szCBuff = 20;
  EXPECT_EQ(Call(CODEC_START), CODEC_DONE);
  EXPECT_EQ(m_codec.CodeSize, 20u);
  EXPECT_EQ(m_out[20], 0xA5);
}

TEST_F(Encoder, AsksForNoRoomThatItDoesNotNeed) {
  const Bytes bie = Encode(kPicture, ShapeOf(kPicture));
  m_codec.szCBuff = static_cast<DWORD>(bie.size());
  m_codec.CCallBack = [](CODECCSTR*) { FAIL(); };
  EXPECT_EQ(Call(CODEC_START), CODEC_DONE);
  EXPECT_EQ(Written(), bie);
}

// Whatever the last image left in block, reference lines and contexts.
TEST_F(Encoder, StartsAfreshInAUsedBlock) {
  const Bytes wanted = Encode(kPicture, ShapeOf(kPicture, 5));
  m_codec.Strip = 5;
  for (const int left : {0x01, 0xA5, 0xFF}) {
    std::memset(&m_codec.work, left, sizeof m_codec.work);
    for (WORD* line : {m_codec.lpABuff, m_codec.lpBBuff})
      std::memset(line, left, kPicture.LineBytes());
    std::memset(m_codec.ContextBuff, left, kContexts * sizeof(CntxTbl));
    m_codec.OutputHeight = 0xA5A5A5A5;
    EXPECT_EQ(Call(CODEC_START), CODEC_DONE) << left;
    EXPECT_EQ(Written(), wanted) << left;
  }
}

TEST_F(Encoder, ComesBackForEveryWidth) {
  for (unsigned width = 1; width <= 70; ++width)
    for (const int lines : {2, 3})
      for (const bool tp : {false, true}) {
        const Picture picture = RandomDots(width, 9, 60, width);
        JbigShape shape = ShapeOf(picture, 4, lines);
        shape.tp = tp;
        const Bytes bie = Encode(picture, shape);
        EXPECT_EQ(Decode(shape, std::span(bie).subspan(20)), picture.bits) << width;
      }
}

}  // namespace
}  // namespace vox::test
