// The arithmetic coder alone, against published sequences.
#include <string>

#include <gtest/gtest.h>

#include "tests/support/JbigDriver.h"
#include "vox/drivers/libjbig3/arithdec.h"
#include "vox/drivers/libjbig3/arithenc.h"
#include "vox/drivers/libjbig3/jbig2rf.h"
#include "vox/drivers/libjbig3/rf2jbig.h"

namespace vox::test {
namespace {

// A sequence of pixels, each with its context.
struct Sequence {
  const char* name;
  const char* pixels;    // hex, most significant bit first
  const char* contexts;  // likewise; empty: all 0
  const char* code;      // hex, without the marker at the end
};

const Sequence kSequences[] = {
    {"T.82 7.1",
     "05E000008B0001C4170000347FFF1A3F951B05D81D17E770000000000656"
     "0E6A",
     "0FE000000F0000F0FF0000000000000000000000000000000000000000000000",
     "6989995C32EAFAA0D5FF00527FFF00FF00FF00C00000003FFF002D208291"},
    {"T.81 K.4.1, one context", "00020051000000C00352872AAAAAAAAA82C02000FCD79EF674EAABF7697EE74C",
     "", "655B5144F7969D517855BFFF00FC5184C7CEF93900287D46708ECBC0F6"},
};

Bytes FromHex(const std::string& hex) {
  Bytes bytes;
  for (std::size_t i = 0; i + 1 < hex.size(); i += 2)
    bytes.push_back(static_cast<std::uint8_t>(std::stoi(hex.substr(i, 2), nullptr, 16)));
  return bytes;
}

unsigned BitOf(const Bytes& bytes, std::size_t i) {
  return i / 8 < bytes.size() ? bytes[i / 8] >> (7 - i % 8) & 1u : 0;
}

class Arithmetic : public testing::TestWithParam<Sequence> {
 protected:
  // Sets the state up to start a stripe in these bytes.
  void Open(Bytes& bytes) {
    m_work.codecstr = &m_codec;
    m_work.fillorder = 1;
    m_work.c_addr = bytes.data();
    m_work.c_rsize = static_cast<DWORD>(bytes.size());
    m_work.Sdrst = 1;
  }

  // A block whose lines do not matter.
  CodecBlock m_block{JbigShape{8, 1, 1}};
  CODECCSTR& m_codec = m_block.codec;
  BYTEW& m_work = m_block.codec.work.bytew;
  Bytes m_pixels = FromHex(GetParam().pixels);
  Bytes m_contexts = FromHex(GetParam().contexts);
  Bytes m_code = FromHex(GetParam().code);
};

TEST_P(Arithmetic, Encodes) {
  Bytes out(100);
  Open(out);
  init_jbig_c(&m_work);
  ENCODER encoder;
  encoder.load(&m_work);
  encoder.load_contexts<3>(m_codec.ContextBuff);
  for (std::size_t i = 0; i < 256; ++i)
    encoder.regs.code(encoder, 2 * BitOf(m_contexts, i) + BitOf(m_pixels, i));
  encoder.store();
  Flush(&m_work);
  out.resize(100 - m_work.c_rsize);
  EXPECT_EQ(out, m_code);
}

TEST_P(Arithmetic, Decodes) {
  Bytes data = m_code;
  data.insert(data.end(), {0xFF, 0x02});
  Open(data);
  init_jbig_d(&m_work);
  DECODER decoder;
  decoder.load(&m_work);
  cx_clear(decoder.cx);
  for (std::size_t i = 0; i < 256; ++i)
    ASSERT_EQ(decoder.regs.decide(decoder, decoder.cx.word[BitOf(m_contexts, i)]),
              BitOf(m_pixels, i))
        << i;
}

INSTANTIATE_TEST_SUITE_P(Published, Arithmetic, testing::ValuesIn(kSequences));

}  // namespace
}  // namespace vox::test
