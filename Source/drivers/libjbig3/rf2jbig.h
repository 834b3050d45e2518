// The JBIG encoder below COMPRESS: the line encoders, the stripe start and the writer of coded
// bytes and markers (ITU-T T.82 6.2.6 and 6.5 to 6.8).
//
// Every stripe ends with SDNORM, so contexts and reference lines carry over from stripe to stripe.
// Thread rule, owner and statuses: see codec32s.h.
#pragma once

#include <atomic>
#include <cstdint>

#include "vox/drivers/libjbig3/codec32s.h"
#include "vox/platform/Export.h"

namespace vox {

// CMP_JBIG writes the BIH when an image starts and encodes with the template that Tpv names, by
// CMP_JBIG2 or CMP_JBIG3; other values of Tpv, a failed BIH and Strip 0 give CODEC_BAD_PARAM.
VOX_EXPORT int CMP_JBIG(CODECCSTR* codec);
VOX_EXPORT int CMP_JBIG2(CODECCSTR* codec);
VOX_EXPORT int CMP_JBIG3(CODECCSTR* codec);

// init_jbig_c starts a stripe: with Sdrst set it clears the reference lines and the contexts; then
// it sets the registers (T.82 INITENC).
VOX_EXPORT void init_jbig_c(BYTEW* work);

// cmp_line returns 1 when the lines differ within ImageWidth pixels, else 0.
VOX_EXPORT int cmp_line(CODECCSTR* codec, const BYTE* src, const BYTE* dst);

// Byte_out moves the top byte of C, and a carry, on to the output (T.82 BYTEOUT); the shifts until
// the next byte are 8 again. Returns: 0. (-1, a cut of the image, does not occur: see nag_ct.)
VOX_EXPORT int Byte_out(BYTEW* work);

// Put_Byte writes one byte to the output in the image's bit order. A full buffer is first handed to
// the callback; after CODEC_END, or no room again, the byte and all that follow are dropped.
VOX_EXPORT void Put_Byte(BYTEW* work, BYTE byte);

// Flush ends the coded data of a stripe (T.82 FLUSH), without trailing 0x00 bytes.
VOX_EXPORT void Flush(BYTEW* work);

// The markers (T.82 6.2.6). SCD_NEWLEN carries Nwln; SCD_ATMOVE carries line Yat and tx = Atm.
VOX_EXPORT void SCD_SDNORM(BYTEW* work);
VOX_EXPORT void SCD_SDRST(BYTEW* work);
VOX_EXPORT void SCD_NEWLEN(BYTEW* work);
VOX_EXPORT void SCD_ATMOVE(BYTEW* work);

// Marks for cutting an image short where coded bytes stack up. This encoder does not cut: it writes
// a stripe's stacked bytes out whatever their number. The marks are at rest, init_jbig_c sets the
// start values of four of them, and any number of images may be encoded at once.
extern VOX_EXPORT std::atomic<std::int32_t> nag_ct, nag_pe, nag_sc;
extern VOX_EXPORT std::atomic<std::int32_t> nag_16_in, nag_16_in_pre, nag_16bit, nag_8bit;
extern VOX_EXPORT std::atomic<std::int32_t> nag_Tbyte_enc, nag_Tbyte_dec;
extern VOX_EXPORT std::atomic<std::int32_t> nag_index, nag_stuff, nag_pixel, nag_i;
inline constexpr int kNagEntries = 4096;
extern VOX_EXPORT BYTE nag_KeepByte[kNagEntries], nag_KeepByte2[kNagEntries], nag_line[kNagEntries];
extern VOX_EXPORT BYTE nag_freeze[kNagEntries];

}  // namespace vox
