// The decoder's call protocol, its limits, and what it does with data that end too early or too
// late.
#include <algorithm>
#include <cstring>

#include <gtest/gtest.h>

#include "tests/support/JbigDriver.h"
#include "tests/unit/jbig/EncoderBlock.h"
#include "vox/drivers/libjbig3/jbig2rf.h"

namespace vox::test {
namespace {

// The data behind the BIH.
Bytes CodeOf(const Picture& picture, const JbigShape& shape) {
  const Bytes bie = Encode(picture, shape);
  return Bytes(bie.begin() + kBihSize, bie.end());
}

Bytes Append(Bytes first, const Bytes& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

// Both templates behave alike: every test runs with each.
class Decoder : public testing::TestWithParam<int> {
 protected:
  JbigShape m_shape = ShapeOf(kPicture, 1000, GetParam());
  Bytes m_code = CodeOf(kPicture, m_shape);
};

TEST_P(Decoder, GivesOneLineBuffersBackFullUntilTheLastLine) {
  Decoding decoding(m_shape, m_code);
  for (unsigned y = 1; y < kPicture.height; ++y) {
    EXPECT_EQ(decoding.Call(1), CODEC_NEXT_BUFFER) << "line " << y;
    EXPECT_EQ(decoding.Codec().Command, CODEC_NEXT_BUFFER);
    EXPECT_EQ(decoding.Codec().LineIBuff, 1);
    EXPECT_EQ(decoding.Codec().OutputHeight, y);
  }
  EXPECT_EQ(decoding.Call(1), CODEC_DONE);
  EXPECT_EQ(decoding.Codec().Command, CODEC_DONE);
  EXPECT_EQ(decoding.Codec().LineIBuff, 1);
  EXPECT_EQ(decoding.Lines(), kPicture.bits);
}

TEST_P(Decoder, EndsExactlyWhenTheBufferAndTheImageEndTogether) {
  Decoding decoding(m_shape, m_code);
  EXPECT_EQ(decoding.Call(kPicture.height), CODEC_DONE);
}

TEST_P(Decoder, CountsTheLinesOfTheLastCallOnly) {
  Decoding decoding(m_shape, m_code);
  EXPECT_EQ(decoding.Call(9), CODEC_NEXT_BUFFER);
  EXPECT_EQ(decoding.Call(9), CODEC_DONE);
  EXPECT_EQ(decoding.Codec().LineIBuff, 3);
}

TEST_P(Decoder, LeavesTheBitsBeyondTheWidthZero) {
  for (unsigned width = 1; width <= 16; ++width) {
    Picture black(width, 5);
    for (unsigned y = 0; y < 5; ++y)
      for (unsigned x = 0; x < width; ++x) black.Set(x, y);
    const JbigShape shape = ShapeOf(black, 1000, GetParam());
    EXPECT_EQ(Decode(shape, CodeOf(black, shape)), black.bits) << "width " << width;
  }
}

TEST_P(Decoder, FinishesAtAnyTimeWithoutALine) {
  for (unsigned calls = 0; calls < 3; ++calls) {
    Decoding decoding(m_shape, m_code);
    for (unsigned i = 0; i < calls; ++i) decoding.Call(2);
    decoding.Codec().Command = CODEC_END;
    decoding.Codec().LineIBuff = 77;
    EXPECT_EQ(DECOMPRESS(&decoding.Codec()), CODEC_DONE);
    EXPECT_EQ(decoding.Codec().LineIBuff, 0);
    EXPECT_EQ(decoding.Codec().Command, CODEC_DONE);
  }
}

TEST_P(Decoder, AsksForNothingWhenTheImageIsThere) {
  Decoding decoding(m_shape, m_code);
  EXPECT_EQ(decoding.Run(Always(5)), CODEC_DONE);
  EXPECT_EQ(decoding.Callbacks(), 0u);
}

TEST_P(Decoder, AsksForNothingWhateverEndsTheImage) {
  for (const std::uint8_t marker : {0x02, 0x03, 0x04}) {  // SDNORM, SDRST, ABORT
    m_code.back() = marker;
    Decoding decoding(m_shape, m_code);
    EXPECT_EQ(decoding.Run(Always(5)), CODEC_DONE);
    EXPECT_EQ(decoding.Lines(), kPicture.bits);
    EXPECT_EQ(decoding.Callbacks(), 0u) << "marker " << int{marker};
  }
}

// Whatever the last image, or nothing at all, left in block, reference lines and contexts.
TEST_P(Decoder, StartsAfreshInAUsedBlock) {
  for (const int left : {0x01, 0xA5, 0xFF})
    for (const bool vlength : {false, true}) {
      m_shape.vlength = vlength;
      Decoding decoding(m_shape, m_code);
      CODECCSTR& codec = decoding.Codec();
      std::memset(&codec.work, left, sizeof codec.work);
      for (WORD* line : {codec.lpABuff, codec.lpBBuff})
        std::memset(line, left, m_shape.LineBytes());
      std::memset(codec.ContextBuff, left, kContexts * sizeof(CntxTbl));
      codec.Error = codec.LineIBuff = 0xA5A5;
      codec.OutputHeight = 0xA5A5A5A5;
      EXPECT_EQ(decoding.Run(Always(5)), CODEC_DONE) << left;
      EXPECT_EQ(decoding.Lines(), kPicture.bits) << left;
      EXPECT_EQ(codec.Error, 0) << left;
      EXPECT_EQ(codec.work.bytew.Error, 0) << left;
    }
}

TEST_P(Decoder, IgnoresBit7OfTheMode) {
  Decoding decoding(m_shape, m_code);
  decoding.Codec().Mode = 0x81;
  EXPECT_EQ(decoding.Run(Always(12)), CODEC_DONE);
  EXPECT_EQ(decoding.Lines(), kPicture.bits);
}

TEST_P(Decoder, RefusesOtherModesAndTouchesNothing) {
  for (const BYTE mode : {2, 3, 0x40, 0x7F, 0x82}) {
    Decoding decoding(m_shape, m_code);
    decoding.Codec().Mode = mode;
    decoding.Codec().Command = 0x55;
    const CODECCSTR before = decoding.Codec();
    EXPECT_EQ(DECOMPRESS(&decoding.Codec()), CODEC_BAD_PARAM);
    EXPECT_EQ(std::memcmp(&before, &decoding.Codec(), sizeof before), 0);
  }
}

TEST_P(Decoder, RefusesOtherCommands) {
  for (int command = 0; command < 256; ++command) {
    if (command == CODEC_START || command == CODEC_NEXT_BUFFER || command == CODEC_END) continue;
    Decoding decoding(m_shape, m_code);
    decoding.Codec().Command = static_cast<BYTE>(command);
    EXPECT_EQ(DECOMPRESS(&decoding.Codec()), CODEC_BAD_PARAM);
    EXPECT_EQ(decoding.Codec().Command, CODEC_BAD_PARAM);
  }
}

TEST_P(Decoder, RefusesToContinueWhatWasNeverStarted) {
  CodecBlock block(m_shape);
  BYTE line[16];
  block.codec.lpIBuff = line;
  block.codec.HeightIBuff = 1;
  block.codec.Command = CODEC_NEXT_BUFFER;
  EXPECT_EQ(DECOMPRESS(&block.codec), CODEC_BAD_PARAM);
}

TEST_P(Decoder, RefusesToContinueWithRegistersThatCannotBe) {
  const struct {
    std::int32_t a;
    DWORD c;
    std::int32_t ct;
    const char* reason;
  } bad[] = {{0x7FFF, 0, 4, "A below its range"},
             {0x10001, 0, 4, "A above its range"},
             {-1, 0, 4, "A negative"},
             {0x8000, 0x80000000, 4, "C at A"},
             {0x8000, 0xFFFFFFFF, 4, "C above A"},
             {0x8000, 0, -1, "CT negative"},
             {0x8000, 0, 9, "more shifts than a byte has"}};
  for (const auto& one : bad) {
    Decoding decoding(m_shape, m_code);
    EXPECT_EQ(decoding.Call(1), CODEC_NEXT_BUFFER);
    BYTEW& work = decoding.Codec().work.bytew;
    work.Areg = one.a;
    work.Creg = one.c;
    work.CTreg = one.ct;
    EXPECT_EQ(decoding.Call(100), CODEC_BAD_PARAM) << one.reason;
  }
}

TEST_P(Decoder, RefusesMissingBuffers) {
  const auto status_without = [&](auto&& forget) {
    Decoding decoding(m_shape, m_code);
    forget(decoding.Codec());
    decoding.Codec().HeightIBuff = 1;
    return DECOMPRESS(&decoding.Codec());
  };
  EXPECT_EQ(status_without([](CODECCSTR& codec) { codec.lpIBuff = nullptr; }), CODEC_BAD_PARAM);
  BYTE line[16];
  const auto refuses = [&](WORD* CODECCSTR::*buffer) {
    return status_without([&](CODECCSTR& codec) {
             codec.lpIBuff = line;
             codec.*buffer = nullptr;
           }) == CODEC_BAD_PARAM;
  };
  EXPECT_TRUE(refuses(&CODECCSTR::lpABuff));
  EXPECT_TRUE(refuses(&CODECCSTR::ContextBuff));
  EXPECT_EQ(refuses(&CODECCSTR::lpBBuff), GetParam() == 3);  // two lines do without B
}

TEST_P(Decoder, IsCompleteAtOnceWithoutLines) {
  m_shape.height = 0;
  Decoding decoding(m_shape, m_code);
  EXPECT_EQ(decoding.Call(1), CODEC_DONE);
  EXPECT_EQ(decoding.Codec().LineIBuff, 0);
}

TEST_P(Decoder, IsFullAtOnceWithoutRoom) {
  Decoding decoding(m_shape, m_code);
  EXPECT_EQ(decoding.Call(0), CODEC_NEXT_BUFFER);
  EXPECT_EQ(decoding.Codec().LineIBuff, 0);
  EXPECT_EQ(decoding.Run(Always(100)), CODEC_DONE);
  EXPECT_EQ(decoding.Lines(), kPicture.bits);
}

TEST_P(Decoder, CannotDecodeStripesOfNoLines) {
  m_shape.strip = 0;
  Decoding decoding(m_shape, m_code);
  EXPECT_EQ(decoding.Call(5), CODEC_DATA_ERROR);
  EXPECT_EQ(decoding.Codec().LineIBuff, 0);
}

TEST_P(Decoder, DecodesLinesOfNoPixels) {
  m_shape.width = 0;
  Decoding decoding(m_shape, m_code);
  EXPECT_EQ(decoding.Call(100), CODEC_DONE);
  EXPECT_EQ(decoding.Codec().LineIBuff, kPicture.height);
}

TEST_P(Decoder, StaysCompleteWhenItIsCalledAgain) {
  Decoding decoding(m_shape, m_code);
  EXPECT_EQ(decoding.Run(Always(100)), CODEC_DONE);
  EXPECT_EQ(decoding.Call(5), CODEC_DONE);
  EXPECT_EQ(decoding.Codec().LineIBuff, 0);
}

TEST_P(Decoder, DecodesTheWidestLines) {
  const Picture picture = Blobs(65535, 3, 5);
  const JbigShape shape = ShapeOf(picture, 1000, GetParam());
  CodecBlock block(shape);
  Bytes code = CodeOf(picture, shape);
  Bytes lines(picture.bits.size());
  for (unsigned y = 0; y < 3; ++y) {  // a pitch of 65,535 pixels is a byte short of a line
    block.codec.lpCBuff = code.data();
    block.codec.szCBuff = static_cast<DWORD>(code.size());
    block.codec.lpIBuff = lines.data() + std::size_t{y} * picture.LineBytes();
    block.codec.HeightIBuff = 1;
    block.codec.Command = y == 0 ? CODEC_START : CODEC_NEXT_BUFFER;
    DECOMPRESS(&block.codec);
  }
  EXPECT_EQ(lines, picture.bits);
}

// With a pitch below the line's bytes each line overwrites the end of the one before; the line that
// is decoded next must not see that.
TEST_P(Decoder, KeepsItsReferenceLinesWhenThePitchIsShort) {
  for (const unsigned width : {1u, 7u, 9u, 15u, 50u}) {
    const Picture picture = RandomDots(width, 20, 128, width);
    const JbigShape shape = ShapeOf(picture, 1000, GetParam());
    const Bytes code = CodeOf(picture, shape);
    Decoding decoding(shape, code);
    decoding.Codec().PitchIBuff = static_cast<WORD>(width);
    EXPECT_EQ(decoding.Call(20), CODEC_DONE);
    const Bytes& lines = decoding.Lines();
    const unsigned last = picture.LineBytes() * 19, whole = width / 8;
    for (unsigned y = 0; y < 20; ++y)
      EXPECT_TRUE(std::equal(picture.Line(y), picture.Line(y) + whole,
                             lines.begin() + y * picture.LineBytes()))
          << "width " << width << " line " << y;
    EXPECT_TRUE(
        std::equal(picture.Line(19), picture.Line(19) + picture.LineBytes(), lines.begin() + last))
        << "width " << width;
  }
}

TEST_P(Decoder, CompletesTheImageWithZerosWhenDataEndEarly) {
  const Bytes start(m_code.begin(), m_code.begin() + 10);
  Decoding zeros(m_shape, Append(start, Bytes(1000)));
  EXPECT_EQ(zeros.Run(Always(5)), CODEC_DONE);
  const struct {
    Bytes ending;
    unsigned callbacks;  // asked once, answered "no more"
  } cases[] = {{{}, 1}, {{0xFF, 0x04}, 0}, {{0xFF, 0x02}, 0}};
  for (const auto& one : cases) {
    Decoding decoding(m_shape, Append(start, one.ending));
    EXPECT_EQ(decoding.Run(Always(5)), CODEC_DONE);
    EXPECT_EQ(decoding.Lines(), zeros.Lines());
    EXPECT_EQ(decoding.Callbacks(), one.callbacks);
  }
}

TEST_P(Decoder, TakesAnyAnswerButTheEndForMoreData) {
  for (const int answer : {0, 130, 132, 192, 254}) {
    Decoding decoding(m_shape, Bytes(m_code.begin(), m_code.begin() + 10));
    Bytes rest(m_code.begin() + 10, m_code.end());
    CODECCSTR& codec = decoding.Codec();
    codec.user_p1 = &rest;
    codec.user_i1 = static_cast<DWORD>(answer);
    codec.CCallBack = [](CODECCSTR* asking) {
      EXPECT_EQ(asking->Command, CODEC_NEXT_DATA);
      auto* bytes = static_cast<Bytes*>(asking->user_p1);
      asking->lpCBuff = bytes->data();
      asking->szCBuff = static_cast<DWORD>(bytes->size());
      asking->Command = static_cast<BYTE>(asking->user_i1);
      ++asking->user_i2;
    };
    EXPECT_EQ(decoding.Run(Always(5)), CODEC_DONE) << answer;
    EXPECT_EQ(decoding.Lines(), kPicture.bits) << answer;
    EXPECT_EQ(codec.user_i2, 1u) << answer;
  }
}

TEST_P(Decoder, TakesAMissingCallbackForTheEndOfData) {
  const Bytes cut(m_code.begin(), m_code.begin() + 10);
  Decoding with(m_shape, cut), without(m_shape, cut);
  without.Codec().CCallBack = nullptr;
  EXPECT_EQ(with.Run(Always(5)), CODEC_DONE);
  EXPECT_EQ(without.Run(Always(5)), CODEC_DONE);
  EXPECT_EQ(without.Lines(), with.Lines());
}

TEST_P(Decoder, TakesAnEmptyAnswerForTheEndOfData) {
  const Bytes cut(m_code.begin(), m_code.begin() + 10);
  for (const bool null : {false, true}) {
    Decoding decoding(m_shape, cut);
    decoding.Codec().user_i1 = null;
    decoding.Codec().CCallBack = [](CODECCSTR* codec) {
      if (codec->user_i1) codec->lpCBuff = nullptr;
      codec->szCBuff = codec->user_i1 ? 5 : 0;
      ++codec->user_i2;
    };
    EXPECT_EQ(decoding.Run(Always(5)), CODEC_DONE);
    EXPECT_EQ(decoding.Codec().user_i2, 1u);
  }
}

TEST_P(Decoder, DecodesFromNoDataAtAll) {
  CodecBlock block(m_shape);
  Bytes lines(kPicture.bits.size());
  block.codec.lpIBuff = lines.data();
  block.codec.HeightIBuff = 12;
  EXPECT_EQ(DECOMPRESS(&block.codec), CODEC_DONE);
}

TEST_P(Decoder, MissesTheEndMarkerOfAStripe) {
  m_shape.strip = 6;
  Bytes code = CodeOf(kPicture, m_shape);
  const Bytes marker = {0xFF, 0x02};
  const auto at = std::search(code.begin(), code.end(), marker.begin(), marker.end());
  code.resize(static_cast<std::size_t>(at - code.begin()));
  Decoding decoding(m_shape, code);
  EXPECT_EQ(decoding.Run(Always(4)), CODEC_DATA_ERROR);
  EXPECT_EQ(decoding.Codec().LineIBuff, 2);  // 4 and 2 of the 6 good lines
  EXPECT_TRUE(std::equal(decoding.Lines().begin(), decoding.Lines().end(), kPicture.bits.begin()));
  EXPECT_EQ(decoding.Lines().size(), 6 * std::size_t{kPicture.LineBytes()});
}

TEST_P(Decoder, ReadsOneMoreByteForTheEndMarkerOfAStripe) {
  for (unsigned lines = 1; lines <= 12; ++lines) {
    m_shape.strip = lines;
    EXPECT_EQ(Decode(m_shape, CodeOf(kPicture, m_shape)), kPicture.bits) << "strip " << lines;
  }
}

INSTANTIATE_TEST_SUITE_P(Templates, Decoder, testing::Values(2, 3));

TEST(DecoderTemplate, IsTwoOrThreeLines) {
  for (const int lines : {0, 1, 4, 255}) {
    JbigShape shape = ShapeOf(kPicture);
    shape.lines = lines;
    Decoding decoding(shape, Bytes{1, 2, 3});
    EXPECT_EQ(decoding.Call(1), CODEC_BAD_PARAM);
    EXPECT_EQ(decoding.Codec().Command, CODEC_BAD_PARAM);
  }
}

}  // namespace
}  // namespace vox::test
