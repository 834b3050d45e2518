// The image header (BIH) as the decoder reads it.
#include <gtest/gtest.h>

#include "tests/support/JbigDriver.h"

namespace vox::test {
namespace {

class ImageHeader : public testing::Test {
 protected:
  // XD 0x00012345, YD 0x01020304, L0 0x80, options LRLTWO | VLENGTH | TPBON.
  Bytes m_bih = {0, 0, 1, 0x99, 0, 1, 0x23, 0x45, 1, 2, 3, 4, 0, 0, 0, 0x80, 8, 9, 0, 0x68};

  int Read(CODECCSTR& codec, BYTE mode = 1) {
    codec.Mode = mode;
    codec.lpCBuff = m_bih.data();
    codec.szCBuff = static_cast<DWORD>(m_bih.size());
    return Get_BIE(&codec);
  }
};

TEST_F(ImageHeader, SetsTheParametersAndLeavesTheDataPointer) {
  CODECCSTR codec{};
  EXPECT_EQ(Read(codec), 0);
  EXPECT_EQ(codec.ImageWidth, 0x2345);  // cut to 16 bits
  EXPECT_EQ(codec.ImageHeight, 0x01020304u);
  EXPECT_EQ(codec.Strip, 0x80u);
  EXPECT_EQ(codec.Tpv, 2);
  EXPECT_EQ(codec.Tpb, 1);
  EXPECT_EQ(codec.Vln, 1);
  EXPECT_EQ(codec.lpCBuff, m_bih.data());
  EXPECT_EQ(codec.szCBuff, 20u);
}

TEST_F(ImageHeader, WithoutOptionsHasThreeLines) {
  m_bih[19] = 0;
  CODECCSTR codec{};
  EXPECT_EQ(Read(codec), 0);
  EXPECT_EQ(codec.Tpv, 3);
  EXPECT_EQ(codec.Tpb, 0);
  EXPECT_EQ(codec.Vln, 0);
}

TEST_F(ImageHeader, IsReadBitReversed) {
  for (auto& byte : m_bih) {
    unsigned reversed = 0;
    for (int bit = 0; bit < 8; ++bit) reversed |= (byte >> bit & 1u) << (7 - bit);
    byte = static_cast<std::uint8_t>(reversed);
  }
  CODECCSTR codec{};
  EXPECT_EQ(Read(codec, 0), 0);
  EXPECT_EQ(codec.ImageHeight, 0x01020304u);
}

TEST_F(ImageHeader, OutsideTheProfileIsRefused) {
  const struct {
    std::size_t at;
    std::uint8_t value;
    const char* reason;
  } bad[] = {
      {0, 1, "lowest layer is not the first"},
      {1, 1, "more layers"},
      {2, 0, "no plane"},
      {2, 2, "two planes"},
      {18, 1, "order SMID"},
      {18, 8, "order HITOLO"},
      {19, 0x80, "reserved"},
      {19, 0x10, "TPDON"},
      {19, 0x04, "DPON"},
      {19, 0x02, "DPPRIV"},
      {19, 0x01, "DPLAST"},
  };
  for (const auto& one : bad) {
    const std::uint8_t good = m_bih[one.at];
    m_bih[one.at] = one.value;
    CODECCSTR codec{};
    EXPECT_EQ(Read(codec), 1) << one.reason;
    EXPECT_EQ(codec.ImageWidth, 0) << one.reason;
    m_bih[one.at] = good;
  }
}

TEST_F(ImageHeader, NeedsTwentyBytes) {
  m_bih.pop_back();
  CODECCSTR codec{};
  EXPECT_EQ(Read(codec), 1);
}

}  // namespace
}  // namespace vox::test
