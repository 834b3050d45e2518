// The JBIG decoder below DECOMPRESS: the line decoders, the stripe start and the reader of coded
// bytes with its markers (ITU-T T.82 6.2.6 and 6.5 to 6.8).
//
// Thread rule, owner and statuses: see codec32s.h.
#pragma once

#include "vox/drivers/libjbig3/codec32s.h"
#include "vox/platform/Export.h"

namespace vox {

// DEC_JBIG decodes with the template that Tpv names, by DEC_JBIG2 or DEC_JBIG3; other values of Tpv
// give CODEC_BAD_PARAM. Mode has been checked by DECOMPRESS.
VOX_EXPORT int DEC_JBIG(CODECCSTR* codec);
VOX_EXPORT int DEC_JBIG2(CODECCSTR* codec);
VOX_EXPORT int DEC_JBIG3(CODECCSTR* codec);

// init_jbig_d starts a stripe: with Sdrst set it clears the reference lines, the contexts and the
// AT and typical-prediction state; then it always reads the first three bytes into C (T.82
// INITDEC).
VOX_EXPORT void init_jbig_d(BYTEW* work);

// Byte_in delivers the next coded byte in Breg, acting on any markers before it; 0 after the
// stripe's end marker and after the end of the data.
VOX_EXPORT void Byte_in(BYTEW* work);

// Get_Byte asks the callback for more coded bytes. Fend is set when there are none: the callback is
// null, answers CODEC_END or supplies 0 bytes.
VOX_EXPORT void Get_Byte(BYTEW* work);

// Check_Marker acts on the marker whose 0xFF has just been read, and on those that follow it at
// once. Returns the data byte to deliver: 0xFF for STUFF, 0 after an end marker, else the next
// byte.
VOX_EXPORT BYTE Check_Marker(BYTEW* work);

// Check_Newlen looks for a NEWLEN directly behind SDNORM or SDRST (Vln set) and reads it. When
// there is none and Strip is 0xFFFFFFFF, Error is set.
VOX_EXPORT void Check_Newlen(BYTEW* work);

}  // namespace vox
