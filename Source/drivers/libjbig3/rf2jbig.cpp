#include "vox/drivers/libjbig3/rf2jbig.h"

#include <cstring>

#include "vox/drivers/libjbig3/arithenc.h"
#include "vox/drivers/libjbig3/enclines.h"
#include "vox/drivers/libjbig3/jbigmark.h"
#include "vox/drivers/libjbig3/reflines.h"

namespace vox {
namespace {

// The bits of a line's last byte that are pixels.
BYTE last_mask(const CODECCSTR* codec) {
  const unsigned used = codec->ImageWidth % 8u;
  return static_cast<BYTE>(used == 0 ? 0xFF : 0xFF00 >> used);
}

// One call of CMP_JBIG2 or CMP_JBIG3.
template <int LINES>
class IMAGEENC {
 public:
  explicit IMAGEENC(CODECCSTR* codec)
      : m_codec(codec), m_work(&codec->work.bytew), m_lines(codec), m_src(codec->lpIBuff) {}

  int run();

 private:
  void start_image();
  int encode();
  void next_stripe();
  bool is_typical();
  void line();
  void end_image();
  int finish(int status);

  CODECCSTR* m_codec;
  BYTEW* m_work;
  REFLINES<LINES> m_lines;
  const BYTE* m_src;
  ENCODER m_encoder;
};

template <int LINES>
void IMAGEENC<LINES>::start_image() {
  m_codec->OutputHeight = 0;
  m_work->fillorder = m_codec->Mode & 1;
  m_work->c_addr = m_codec->lpCBuff + kBihSize;
  m_work->c_rsize = m_codec->szCBuff - kBihSize;
  m_work->Nwln = kNoNewlen;
  m_work->Sdrst = m_work->Lntpc = 1;
  m_work->Fend = m_work->Atmf = m_work->Breg = 0;
  m_work->Zeros = 0;
  init_jbig_c(m_work);
  if (m_work->Atm != 0) SCD_ATMOVE(m_work);
}

template <int LINES>
int IMAGEENC<LINES>::run() {
  const BYTE command = m_codec->Command;
  m_work->codecstr = m_codec;
  if (command == CODEC_START) start_image();
  m_encoder.load(m_work);
  m_encoder.load_contexts<LINES>(m_codec->ContextBuff);
  return finish(command == CODEC_END ? CODEC_DONE : encode());
}

// Encodes the lines at hand. Returns CODEC_DONE when they complete the image.
template <int LINES>
int IMAGEENC<LINES>::encode() {
  for (unsigned i = 0; m_codec->OutputHeight < m_codec->ImageHeight; ++i) {
    if (i == m_codec->HeightIBuff) return CODEC_NEXT_DATA;
    if (m_work->Stripc >= m_codec->Strip) next_stripe();
    line();
    m_src += m_codec->PitchIBuff / 8;
    ++m_codec->OutputHeight;
    ++m_work->Stripc;
  }
  return CODEC_DONE;
}

template <int LINES>
void IMAGEENC<LINES>::next_stripe() {
  m_encoder.store();
  Flush(m_work);
  SCD_SDNORM(m_work);
  init_jbig_c(m_work);
  if (m_work->Atm != 0) SCD_ATMOVE(m_work);
  m_encoder.load(m_work);
}

// T.82 6.5: the pseudo-pixel says whether "typical" has changed from the previous line.
template <int LINES>
bool IMAGEENC<LINES>::is_typical() {
  if (!m_codec->Tpb) return false;
  const BYTE lntp = cmp_line(m_codec, m_src, m_lines.above()) != 0 ? 1 : 0;
  m_encoder.regs.code(m_encoder, 2 * kTpRaster<LINES> + (lntp == m_work->Lntpc ? 1 : 0));
  m_work->Lntpc = lntp;
  return lntp == 0;
}

template <int LINES>
void IMAGEENC<LINES>::line() {
  if (is_typical()) {
    m_lines.repeat();
    return;
  }
  enc_line<LINES>(m_encoder, m_src, m_lines.above(), m_lines.above2(), m_codec->ImageWidth,
                  m_work->Atm);
  m_lines.push(m_src, last_mask(m_codec));
}

template <int LINES>
void IMAGEENC<LINES>::end_image() {
  m_work->Nwln = m_codec->OutputHeight;
  Flush(m_work);
  SCD_SDNORM(m_work);
  if (m_codec->Vln) {
    SCD_NEWLEN(m_work);
    SCD_SDNORM(m_work);
  }
  m_work->Sdnm = 1;
}

template <int LINES>
int IMAGEENC<LINES>::finish(int status) {
  m_encoder.store();
  m_encoder.store_contexts<LINES>(m_codec->ContextBuff);
  m_lines.settle();
  if (status == CODEC_DONE) end_image();
  if (!m_work->Fend) m_codec->CodeSize = m_codec->szCBuff - m_work->c_rsize;
  return status;
}

bool has_lines(const CODECCSTR* codec) {
  return codec->lpIBuff || codec->HeightIBuff == 0 || codec->Command == CODEC_END;
}

bool can_start(const CODECCSTR* codec) {
  return codec->lpCBuff && codec->szCBuff >= kBihSize && codec->Atm <= kMaxAtOffset;
}

// The registers of a block in which no image was started, or which was overwritten, are refused.
bool is_encoding(const BYTEW& work) {
  return work.Areg >= 0x8000 && work.Areg <= 0x10000 && work.CTreg >= 1 && work.CTreg <= 11;
}

template <int LINES>
int cmp_jbig(CODECCSTR* codec) {
  const BYTE command = codec->Command;
  if (!has_scratch<LINES>(codec) || !has_lines(codec) || codec->Strip == 0) return CODEC_BAD_PARAM;
  if (command == CODEC_START) {
    if (!can_start(codec)) return CODEC_BAD_PARAM;
  } else {
    if (command != CODEC_NEXT_DATA && command != CODEC_END) return CODEC_BAD_PARAM;
    if (!is_encoding(codec->work.bytew)) return CODEC_BAD_PARAM;
    if (codec->work.bytew.Sdnm) return CODEC_DONE;  // the image has ended already
  }
  return IMAGEENC<LINES>(codec).run();
}

template <int LINES>
int cmp_call(CODECCSTR* codec) {
  const int status = cmp_jbig<LINES>(codec);
  codec->Command = static_cast<BYTE>(status);
  return status;
}

void rest_nag_marks() {
  nag_Tbyte_dec.store(3, std::memory_order_relaxed);
  nag_index.store(0, std::memory_order_relaxed);
  nag_16_in.store(0, std::memory_order_relaxed);
  nag_Tbyte_enc.store(0, std::memory_order_relaxed);
}

}  // namespace

void init_jbig_c(BYTEW* work) {
  if (work->Sdrst) {
    start_afresh(work->codecstr);
    work->Sdrst = 0;
  }
  work->Areg = 0x10000;
  work->CTreg = 11;
  work->Creg = 0;
  work->SCreg = 0;
  work->First = 1;
  work->Sdnm = work->Error = 0;
  work->Stripc = work->Yat = 0;
  work->Atm = work->codecstr->Atm;
  rest_nag_marks();
}

int cmp_line(CODECCSTR* codec, const BYTE* src, const BYTE* dst) {
  const unsigned whole = codec->ImageWidth / 8u;
  if (whole > 0 && std::memcmp(src, dst, whole) != 0) return 1;
  if (codec->ImageWidth % 8 == 0) return 0;
  return ((src[whole] ^ dst[whole]) & last_mask(codec)) != 0 ? 1 : 0;
}

int CMP_JBIG2(CODECCSTR* codec) {
  return cmp_call<2>(codec);
}

int CMP_JBIG3(CODECCSTR* codec) {
  return cmp_call<3>(codec);
}

int CMP_JBIG(CODECCSTR* codec) {
  const bool refused = codec->Command == CODEC_START && Put_BIE(codec) != 0;
  if (!refused && codec->Tpv == 2) return CMP_JBIG2(codec);
  if (!refused && codec->Tpv == 3) return CMP_JBIG3(codec);
  codec->Command = CODEC_BAD_PARAM;
  return CODEC_BAD_PARAM;
}

}  // namespace vox
