// The picture and the parameter block of the encoder's tests.
#pragma once

#include <gtest/gtest.h>

#include "tests/support/JbigDriver.h"

namespace vox::test {

inline const Picture kPicture = RandomDots(50, 12, 60, 3);

inline JbigShape ShapeOf(const Picture& picture, std::uint32_t strip = 1000, int lines = 3) {
  return {picture.width, picture.height, strip, lines};
}

// A block with one output buffer and no callback.
class Encoder : public testing::Test {
 protected:
  explicit Encoder(JbigShape shape = ShapeOf(kPicture)) : m_block(shape) {
    m_codec.lpCBuff = m_out.data();
    m_codec.szCBuff = static_cast<DWORD>(m_out.size());
    m_codec.lpIBuff = m_lines.data();
    m_codec.HeightIBuff = static_cast<WORD>(kPicture.height);
  }
  int Call(int command) {
    m_codec.Command = static_cast<BYTE>(command);
    const int status = COMPRESS(&m_codec);
    if ((m_codec.Mode & 0x7F) <= 1) {
      EXPECT_EQ(m_codec.Command, status);
    }
    return status;
  }
  Bytes Written() const { return Bytes(m_out.begin(), m_out.begin() + m_codec.CodeSize); }

  Bytes m_out = Bytes(1000, 0xA5);
  Bytes m_lines = kPicture.bits;
  CodecBlock m_block;
  CODECCSTR& m_codec = m_block.codec;
};

}  // namespace vox::test
