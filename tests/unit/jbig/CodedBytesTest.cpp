// The reader of coded bytes: each marker acts when it is reached.
#include <gtest/gtest.h>

#include "tests/support/JbigDriver.h"
#include "vox/drivers/libjbig3/jbig2rf.h"
#include "vox/drivers/libjbig3/jbigtbl.h"

namespace vox::test {
namespace {

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

}  // namespace
}  // namespace vox::test
