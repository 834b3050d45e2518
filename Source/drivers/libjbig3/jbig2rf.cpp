#include "vox/drivers/libjbig3/jbig2rf.h"

#include "vox/drivers/libjbig3/arithdec.h"
#include "vox/drivers/libjbig3/declines.h"
#include "vox/drivers/libjbig3/jbigmark.h"
#include "vox/drivers/libjbig3/reflines.h"

namespace vox {
namespace {

// One call of DEC_JBIG2 or DEC_JBIG3.
template <int LINES>
class IMAGEDEC {
 public:
  explicit IMAGEDEC(CODECCSTR* codec)
      : m_codec(codec), m_work(&codec->work.bytew), m_lines(codec), m_dst(codec->lpIBuff) {}

  int run(bool start);

 private:
  void start_image();
  void resume();
  int decode();
  bool next_stripe();
  void move_at();
  bool is_typical();
  void line();
  int after_line();
  int finish(int status);

  CODECCSTR* m_codec;
  BYTEW* m_work;
  REFLINES<LINES> m_lines;
  BYTE* m_dst;
  WORD m_done = 0;  // lines of this call
  DECODER m_decoder;
};

template <int LINES>
void IMAGEDEC<LINES>::start_image() {
  m_codec->OutputHeight = 0;
  m_codec->Error = 0;
  m_work->fillorder = m_codec->Mode & 1;
  m_work->c_addr = m_codec->lpCBuff;
  m_work->c_rsize = m_codec->lpCBuff ? m_codec->szCBuff : 0;
  m_work->Vln = m_codec->Vln;
  m_work->Nwln = kNoNewlen;
  m_work->Fend = m_work->nlsd = 0;
  m_work->Lntpc = m_work->Sdrst = 1;
  init_jbig_d(m_work);
}

template <int LINES>
void IMAGEDEC<LINES>::resume() {
  m_decoder.load(m_work);
  cx_load<LINES>(m_decoder.cx, m_codec->ContextBuff);
}

template <int LINES>
int IMAGEDEC<LINES>::run(bool start) {
  m_work->codecstr = m_codec;
  if (start) start_image();
  resume();
  const bool passed_newlen = !start && m_work->Vln && m_codec->OutputHeight >= m_work->Nwln;
  if (m_codec->OutputHeight >= m_codec->ImageHeight || passed_newlen) return finish(CODEC_DONE);
  if (m_codec->Strip == 0) return finish(CODEC_DATA_ERROR);
  if (m_codec->HeightIBuff == 0) return finish(CODEC_NEXT_BUFFER);
  return finish(decode());
}

// Decodes lines until one of the reasons to return comes up.
template <int LINES>
int IMAGEDEC<LINES>::decode() {
  for (;;) {
    if (m_work->Stripc >= m_codec->Strip && !next_stripe()) return CODEC_DATA_ERROR;
    if ((m_work->Atmf & kAtWaits) && m_work->Stripc == m_work->Yat) move_at();
    line();
    if (const int status = after_line(); status != 0) return status;
  }
}

// The stripe's last decisions may not have needed the bytes up to its end marker: one more byte is
// read then. Returns false when that is no marker either.
template <int LINES>
bool IMAGEDEC<LINES>::next_stripe() {
  m_decoder.store();
  if (!m_work->Sdnm) Byte_in(m_work);
  if (!m_work->Sdnm) return false;
  if (m_work->nlsd == kNewlenWaits) Check_Newlen(m_work);
  const bool afresh = m_work->Sdrst;
  init_jbig_d(m_work);
  m_decoder.load(m_work);
  if (afresh) cx_clear(m_decoder.cx);
  return true;
}

template <int LINES>
void IMAGEDEC<LINES>::move_at() {
  m_work->Atm = m_work->Atm2;
  m_work->Atmf = m_work->Atm != 0 ? kAtMoved : 0;
}

// T.82 6.5: the pseudo-pixel says whether "typical" has changed from the previous line.
template <int LINES>
bool IMAGEDEC<LINES>::is_typical() {
  if (!m_codec->Tpb) return false;
  const DWORD sltp = m_decoder.regs.decide(m_decoder, m_decoder.cx.word[kTpRaster<LINES>]);
  m_work->Lntpc = sltp == m_work->Lntpc ? 1 : 0;
  return m_work->Lntpc == 0;
}

template <int LINES>
void IMAGEDEC<LINES>::line() {
  if (is_typical()) {
    if (m_lines.bytes() > 0) std::memcpy(m_dst, m_lines.above(), m_lines.bytes());
    m_lines.repeat();
    return;
  }
  const unsigned tx = (m_work->Atmf & kAtMoved) ? m_work->Atm : 0;
  dec_line<LINES>(m_decoder, m_dst, m_lines.above(), m_lines.above2(), m_codec->ImageWidth, tx);
  m_lines.push(m_dst);
}

// Counts the line. Returns the status to return, or 0 to go on.
template <int LINES>
int IMAGEDEC<LINES>::after_line() {
  const bool last = m_codec->OutputHeight + 1 == m_codec->ImageHeight;
  if (m_work->nlsd == kNewlenWaits && (!last || m_codec->Strip == 0xFFFFFFFF)) Check_Newlen(m_work);
  if (m_work->Error) return CODEC_DATA_ERROR;
  ++m_work->Stripc;
  ++m_codec->OutputHeight;
  ++m_done;
  m_dst += m_codec->PitchIBuff / 8;
  if (last) return CODEC_DONE;
  if (m_work->Vln && m_codec->OutputHeight >= m_work->Nwln) {
    m_codec->Error = static_cast<WORD>(m_codec->OutputHeight - m_work->Nwln);
    m_work->Error = m_codec->OutputHeight > m_work->Nwln;
    return CODEC_DONE;
  }
  return m_done == m_codec->HeightIBuff ? CODEC_NEXT_BUFFER : 0;
}

template <int LINES>
int IMAGEDEC<LINES>::finish(int status) {
  m_decoder.store();
  cx_store<LINES>(m_decoder.cx, m_codec->ContextBuff);
  m_lines.settle();
  m_codec->LineIBuff = m_done;
  return status;
}

// The registers of a block in which no image was started, or which was overwritten, are refused:
// the upper half of C is always below A.
bool is_decoding(const BYTEW& work) {
  return work.Areg >= 0x8000 && work.Areg <= 0x10000 && work.CTreg >= 0 && work.CTreg <= 8 &&
         work.Creg >> 16 < static_cast<DWORD>(work.Areg);
}

template <int LINES>
int dec_jbig(CODECCSTR* codec) {
  const bool start = codec->Command == CODEC_START;
  if (!start && codec->Command != CODEC_NEXT_BUFFER) return CODEC_BAD_PARAM;
  if (!has_scratch<LINES>(codec)) return CODEC_BAD_PARAM;
  if (!codec->lpIBuff && codec->HeightIBuff != 0) return CODEC_BAD_PARAM;
  if (!start && !is_decoding(codec->work.bytew)) return CODEC_BAD_PARAM;
  return IMAGEDEC<LINES>(codec).run(start);
}

template <int LINES>
int dec_call(CODECCSTR* codec) {
  int status = CODEC_DONE;
  if (codec->Command == CODEC_END)
    codec->LineIBuff = 0;
  else
    status = dec_jbig<LINES>(codec);
  codec->Command = static_cast<BYTE>(status);
  return status;
}

}  // namespace

int DEC_JBIG2(CODECCSTR* codec) {
  return dec_call<2>(codec);
}

int DEC_JBIG3(CODECCSTR* codec) {
  return dec_call<3>(codec);
}

int DEC_JBIG(CODECCSTR* codec) {
  if (codec->Tpv == 2) return DEC_JBIG2(codec);
  if (codec->Tpv == 3) return DEC_JBIG3(codec);
  codec->Command = CODEC_BAD_PARAM;
  return CODEC_BAD_PARAM;
}

}  // namespace vox
