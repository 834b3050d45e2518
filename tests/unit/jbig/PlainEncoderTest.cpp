// The encoder and a plain one agree, byte for byte and register for register, on any picture and
// coding, however the lines come in and the output buffers are cut.
#include <algorithm>
#include <random>

#include <gtest/gtest.h>

#include "tests/support/JbigDriver.h"
#include "tests/support/PlainJbigEncoder.h"

namespace vox::test {
namespace {

Picture Inverted(Picture picture) {
  for (unsigned y = 0; y < picture.height; ++y)
    for (unsigned x = 0; x < picture.width; ++x)
      picture.Line(y)[x / 8] ^= static_cast<std::uint8_t>(0x80 >> x % 8);
  return picture;
}

PlainJbigEncoder::Registers RegistersOf(const BYTEW& work) {
  return {static_cast<std::uint32_t>(work.Areg),
          work.Creg,
          work.CTreg,
          work.Breg,
          work.SCreg,
          work.Stripc,
          work.Lntpc};
}

// The plain registers as the fast encoder leaves them. A carry on top of C may have settled in the
// bytes before it in one of the two only; BUFFER and the stacked 0xFF bytes are then others, and so
// they are where BUFFER became 0xFF by a carry.
PlainJbigEncoder::Registers Settled(PlainJbigEncoder::Registers plain, const BYTEW& work) {
  const std::uint32_t carry = 1u << (27 - plain.ct);
  if (work.First || ((plain.c ^ work.Creg) & carry) != 0 || plain.buffer == 0xFF) {
    plain.buffer = work.Breg;
    plain.sc = work.SCreg;
  }
  plain.c = (plain.c & ~carry) | (work.Creg & carry);
  return plain;
}

std::array<PlainJbigEncoder::Context, 1024> ContextsOf(const CODECCSTR& codec) {
  std::array<PlainJbigEncoder::Context, 1024> contexts;
  const auto* entries = reinterpret_cast<const CntxTbl*>(codec.ContextBuff);
  for (std::size_t i = 0; i < contexts.size(); ++i) contexts[i] = {entries[i].mps, entries[i].st};
  return contexts;
}

class PlainEncoder : public testing::TestWithParam<int> {
 protected:
  std::minstd_rand m_random{static_cast<unsigned>(GetParam()) * 6151u + 3};

  unsigned Below(unsigned limit) { return static_cast<unsigned>(m_random() >> 4) % limit; }

  // Half of the pictures are a byte or a few wide.
  JbigShape AnyShape() {
    const unsigned width = 1 + Below(Below(2) ? 20 : 300);
    JbigShape shape{width, 1 + Below(40), 1 + Below(45), 2 + static_cast<int>(Below(2))};
    shape.tp = Below(2);
    shape.vlength = Below(3) == 0;
    shape.msb_first = Below(2);
    shape.tx = Below(2) ? 0 : Below(2) ? Below(10) : Below(128);
    return shape;
  }
  Picture AnyPicture(const JbigShape& shape) {
    const unsigned kind = Below(5);
    const Picture picture =
        kind == 0   ? RandomDots(shape.width, shape.height, Below(257), Below(999))
        : kind == 1 ? RandomDots(shape.width, shape.height, 1 + Below(3), Below(999))
        : kind == 2 ? Halftone(shape.width, shape.height, 2 + Below(20))
        : kind == 3 ? Picture(shape.width, shape.height)
                    : Blobs(shape.width, shape.height, Below(999));
    return Below(2) ? picture : Inverted(picture);
  }
};

TEST_P(PlainEncoder, AgreesOnEveryByte) {
  for (int i = 0; i < 60; ++i) {
    const JbigShape shape = AnyShape();
    const Picture picture = AnyPicture(shape);
    const Bytes wanted = PlainEncode(picture, shape);
    ASSERT_EQ(Encode(picture, shape), wanted) << shape;
    const EncodeHow cut{RandomSizes(1 + Below(12), Below(999)),
                        RandomSizes(1 + Below(30), Below(999))};
    ASSERT_EQ(Encode(picture, shape, cut), wanted) << shape;
  }
}

TEST_P(PlainEncoder, AgreesOnWhatACallerSeesBetweenCalls) {
  for (int i = 0; i < 30; ++i) {
    const JbigShape shape = AnyShape();
    Picture picture = AnyPicture(shape);
    PlainJbigEncoder plain(shape);
    CodecBlock block(shape);
    CODECCSTR& codec = block.codec;
    Bytes out(100000);
    codec.Atm = static_cast<BYTE>(shape.tx);
    codec.lpCBuff = out.data();
    codec.szCBuff = static_cast<DWORD>(out.size());
    codec.Command = CODEC_START;
    for (unsigned y = 0; y + 1 < picture.height;) {
      const unsigned lines = 1 + Below(std::min(4u, picture.height - 1 - y));
      for (unsigned line = y; line < y + lines; ++line) plain.Line(picture.Line(line));
      codec.lpIBuff = picture.Line(y);
      codec.HeightIBuff = static_cast<WORD>(lines);
      y += lines;
      ASSERT_EQ(COMPRESS(&codec), CODEC_NEXT_DATA) << shape;
      const BYTEW& work = codec.work.bytew;
      ASSERT_EQ(RegistersOf(work), Settled(plain.State(), work)) << shape << ", line " << y;
      ASSERT_EQ(ContextsOf(codec), plain.Contexts()) << shape << ", line " << y;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Seeds, PlainEncoder, testing::Range(0, 8));

// Runs longer than any picture above, through every renormalisation of the narrowest states.
TEST(PlainEncoderRuns, AgreeOnWideLines) {
  for (const unsigned width : {4095u, 65535u})
    for (const int lines : {2, 3})
      for (const unsigned tx : {0u, 5u, 127u}) {
        Picture picture(width, 5);
        for (unsigned y = 2; y < 5; ++y) picture.Set(width - 1 - y, y);
        JbigShape shape{width, picture.height, 4, lines};
        shape.tx = tx;
        ASSERT_EQ(Encode(picture, shape), PlainEncode(picture, shape)) << shape;
        ASSERT_EQ(Encode(Inverted(picture), shape), PlainEncode(Inverted(picture), shape)) << shape;
      }
}

}  // namespace
}  // namespace vox::test
