// The parts of the encoder that are exported by themselves.
#include <cstring>

#include "tests/unit/jbig/EncoderBlock.h"
#include "vox/drivers/libjbig3/rf2jbig.h"

namespace vox::test {
namespace {

using EncoderParts = Encoder;

TEST_F(EncoderParts, CanWriteSdrstOnRequest) {
  BYTEW& work = m_codec.work.bytew;
  work.codecstr = &m_codec;
  work.fillorder = 1;
  work.c_addr = m_out.data();
  work.c_rsize = 10;
  SCD_SDRST(&work);
  EXPECT_EQ(Bytes(m_out.begin(), m_out.begin() + 3), (Bytes{0xFF, 0x03, 0xA5}));
}

// A million stacked 0xFF bytes leave in a loop when the byte behind them decides about the carry.
TEST_F(EncoderParts, WritesStacksOfAnyHeight) {
  for (const bool carry : {false, true}) {
    BYTEW& work = m_codec.work.bytew;
    work = BYTEW{};
    work.codecstr = &m_codec;
    work.fillorder = 1;
    work.Breg = 0x12;
    work.SCreg = 1000000;
    work.Creg = (carry ? 0x101u : 0x34u) << 19 | 0x7FFFF;
    m_codec.user_i1 = m_codec.user_i2 = 0;
    m_codec.lpCBuff = m_out.data();
    m_codec.szCBuff = 1000;
    m_codec.CCallBack = [](CODECCSTR* codec) { ++codec->user_i1; };
    EXPECT_EQ(Byte_out(&work), 0);
    EXPECT_EQ(work.SCreg, 0);
    EXPECT_EQ(work.CTreg, 8);
    EXPECT_EQ(work.Creg, 0x7FFFFu);
    EXPECT_EQ(work.Breg, carry ? 0x01 : 0x34);
    EXPECT_EQ(work.Zeros, carry ? 1000000u : 0u);
    EXPECT_EQ(m_codec.user_i1, carry ? 1u : 2001u);
    EXPECT_EQ(m_out[0], carry ? 0x13 : 0x00);  // otherwise the last byte of many buffers
  }
}

// With Sdrst contexts and reference lines are cleared, and Sdrst is; all else is set in either
// case.
TEST_F(EncoderParts, StartsStripes) {
  for (const BYTE afresh : {0, 1}) {
    BYTEW& work = m_codec.work.bytew;
    std::memset(&m_codec.work, 0xA5, sizeof m_codec.work);
    for (WORD* words : {m_codec.lpABuff, m_codec.lpBBuff, m_codec.ContextBuff})
      std::memset(words, 0xA5, kPicture.LineBytes());
    for (auto* mark : {&nag_Tbyte_dec, &nag_index, &nag_16_in, &nag_Tbyte_enc}) *mark = 77;
    m_codec.Atm = 9;
    work.codecstr = &m_codec;
    work.Sdrst = afresh;
    init_jbig_c(&work);
    for (const WORD* words : {m_codec.lpABuff, m_codec.lpBBuff, m_codec.ContextBuff})
      EXPECT_EQ(*words, afresh ? 0 : 0xA5A5);
    EXPECT_EQ(work.Areg, 0x10000);
    EXPECT_EQ(work.CTreg, 11);
    EXPECT_EQ(work.Creg, 0u);
    EXPECT_EQ(work.SCreg, 0);
    EXPECT_EQ(work.First, 1);
    for (const unsigned field : {+work.Sdrst, +work.Sdnm, +work.Error}) EXPECT_EQ(field, 0u);
    EXPECT_EQ(work.Stripc, 0u);
    EXPECT_EQ(work.Yat, 0u);
    EXPECT_EQ(work.Atm, 9);
    EXPECT_EQ(nag_Tbyte_dec, 3);
    for (const auto* mark : {&nag_index, &nag_16_in, &nag_Tbyte_enc}) EXPECT_EQ(*mark, 0);
  }
}

TEST_F(EncoderParts, KeepsRoomForTheMarksForCutting) {
  EXPECT_EQ(sizeof nag_KeepByte, 4096u);
  EXPECT_EQ(sizeof nag_KeepByte2, 4096u);
  EXPECT_EQ(sizeof nag_line, 4096u);
}

TEST_F(EncoderParts, ComparesLinesWithinTheWidth) {
  BYTE one[3] = {0x12, 0x34, 0x80};
  BYTE other[3] = {0x12, 0x34, 0x80};
  m_codec.ImageWidth = 17;
  EXPECT_EQ(cmp_line(&m_codec, one, other), 0);
  other[2] = 0xFF;
  EXPECT_EQ(cmp_line(&m_codec, one, other), 0);
  m_codec.ImageWidth = 18;
  EXPECT_EQ(cmp_line(&m_codec, one, other), 1);
  other[1] = 0x35;
  m_codec.ImageWidth = 15;
  EXPECT_EQ(cmp_line(&m_codec, one, other), 0);
  m_codec.ImageWidth = 16;
  EXPECT_EQ(cmp_line(&m_codec, one, other), 1);
  m_codec.ImageWidth = 0;
  EXPECT_EQ(cmp_line(&m_codec, one, other), 0);
}

}  // namespace
}  // namespace vox::test
