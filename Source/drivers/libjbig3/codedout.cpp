// The writer of coded bytes and markers (T.82 6.2.6 and 6.8).
#include "vox/drivers/libjbig3/jbigmark.h"
#include "vox/drivers/libjbig3/jbigtbl.h"
#include "vox/drivers/libjbig3/rf2jbig.h"

namespace vox {

std::atomic<std::int32_t> nag_ct, nag_pe, nag_sc;
std::atomic<std::int32_t> nag_16_in, nag_16_in_pre, nag_16bit, nag_8bit;
std::atomic<std::int32_t> nag_Tbyte_enc, nag_Tbyte_dec;
std::atomic<std::int32_t> nag_index, nag_stuff, nag_pixel, nag_i;
BYTE nag_KeepByte[kNagEntries], nag_KeepByte2[kNagEntries], nag_line[kNagEntries];
BYTE nag_freeze[kNagEntries];

namespace {

// Hands the full buffer over and takes the room that the callback gives. No room ends the output.
void hand_over(BYTEW* work) {
  CODECCSTR* codec = work->codecstr;
  codec->CodeSize = codec->szCBuff;
  codec->Command = codec->CCallBack ? CODEC_NEXT_BUFFER : CODEC_END;
  if (codec->CCallBack) codec->CCallBack(codec);
  work->Fend = codec->Command == CODEC_END || !codec->lpCBuff || codec->szCBuff == 0;
  work->c_addr = codec->lpCBuff;
  work->c_rsize = work->Fend ? 0 : codec->szCBuff;
}

// One byte of the code. 0x00 bytes wait for the next other byte, since a stripe must not end with
// them; 0xFF is stuffed. A stripe's first byte is the BUFFER that was empty, and is dropped.
void put_code(BYTEW* work, BYTE byte) {
  if (work->First) {
    work->First = 0;
    return;
  }
  if (byte == 0) {
    ++work->Zeros;
    return;
  }
  for (; work->Zeros > 0; --work->Zeros) Put_Byte(work, 0);
  Put_Byte(work, byte);
  if (byte == kMarkerPrefix) Put_Byte(work, kSTUFF);
}

// Writes BUFFER and the 0xFF bytes stacked behind it, which no carry can reach any more.
void put_stack(BYTEW* work) {
  put_code(work, work->Breg);
  for (; work->SCreg > 0; --work->SCreg) put_code(work, 0xFF);
}

void put_marker(BYTEW* work, BYTE code) {
  Put_Byte(work, kMarkerPrefix);
  Put_Byte(work, code);
}

void put_be32(BYTEW* work, DWORD value) {
  for (int shift = 24; shift >= 0; shift -= 8) Put_Byte(work, static_cast<BYTE>(value >> shift));
}

}  // namespace

void Put_Byte(BYTEW* work, BYTE byte) {
  if (work->c_rsize == 0 && !work->Fend) hand_over(work);
  if (work->Fend) return;
  *work->c_addr++ = work->fillorder ? byte : LSBMSB[byte];
  --work->c_rsize;
}

int Byte_out(BYTEW* work) {
  const DWORD top = work->Creg >> 19;
  work->Creg &= 0x7FFFF;
  work->CTreg = 8;
  if (top == 0xFF) {
    ++work->SCreg;
    return 0;
  }
  if (top > 0xFF) {  // the carry turns the stacked 0xFF bytes into 0x00
    put_code(work, static_cast<BYTE>(work->Breg + 1));
    for (; work->SCreg > 0; --work->SCreg) put_code(work, 0);
  } else {
    put_stack(work);
  }
  work->Breg = static_cast<BYTE>(top);
  return 0;
}

// Of the numbers in [C, C + A) the one with most zeros at its end is written.
void Flush(BYTEW* work) {
  const DWORD low = work->Creg;
  DWORD code = (static_cast<DWORD>(work->Areg) - 1 + low) & 0xFFFF0000;
  if (code < low) code += 0x8000;
  work->Creg = code << work->CTreg;
  Byte_out(work);
  work->Creg <<= 8;
  Byte_out(work);
  put_stack(work);
  work->Zeros = 0;
}

void SCD_SDNORM(BYTEW* work) {
  put_marker(work, kSDNORM);
}

void SCD_SDRST(BYTEW* work) {
  put_marker(work, kSDRST);
}

void SCD_NEWLEN(BYTEW* work) {
  put_marker(work, kNEWLEN);
  put_be32(work, work->Nwln);
}

void SCD_ATMOVE(BYTEW* work) {
  work->Atmf = kAtWriting;
  put_marker(work, kATMOVE);
  put_be32(work, work->Yat);
  Put_Byte(work, work->Atm);
  Put_Byte(work, 0);  // ty
  work->Atmf = 0;
}

}  // namespace vox
