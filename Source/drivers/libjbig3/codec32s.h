// The JBIG codec's one entrance: the parameter and state block CODECCSTR, DECOMPRESS and COMPRESS,
// and the 20-byte image header (BIH) of ITU-T T.82 6.2.4.
//
// Profile: one bit plane, one layer, sequential stripes; two- or three-line template; AT moves on
// the current line; typical prediction of whole lines (TPBON); VLENGTH with NEWLEN.
//
// Lines: (ImageWidth + 7) / 8 bytes, the leftmost pixel in the top bit, bits beyond the width 0.
// Owner: the caller owns the block and every buffer it points to, and leaves block, reference lines
// and contexts alone between the calls of one image. Nothing is allocated and nothing is thrown.
// Thread: one block is used by one thread at a time; different blocks are independent.
#pragma once

#include <cstdint>

#include "vox/platform/Export.h"

namespace vox {

using BYTE = std::uint8_t;
using WORD = std::uint16_t;
using DWORD = std::uint32_t;

struct CODECCSTR;

// What CODECCSTR::Command holds: a call type on entry, the status on return.
enum CODEC_COMMAND : BYTE {
  CODEC_START = 0,          // in: a new image
  CODEC_NEXT_DATA = 130,    // to the callback: coded bytes ran out; encoder: lines ran out / go on
  CODEC_NEXT_BUFFER = 132,  // decoder: image buffer full / go on; to the callback: output is full
  CODEC_DONE = 192,         // out: the image is complete
  CODEC_BAD_PARAM = 193,    // out: Mode, Tpv, Command or a missing buffer
  CODEC_DATA_ERROR = 201,   // out: coded data error
  CODEC_END = 255,          // in: finish now; from the callback: there is no more
};

// One entry of CODECCSTR::ContextBuff, addressed by the 10-bit context of a pixel. The contexts'
// bits, most significant first (T.82 6.7; y-1 is the line above):
//   three lines: x-1, x, x+1 of y-2; x-2, x-1, x, x+1 of y-1; AT; x-2, x-1 of y
//   two lines:   x-3 of y-1; x-4, x-3 of y; x-2, x-1, x, x+1 of y-1; AT; x-2, x-1 of y
// AT is x+2 of y-1 until an AT move puts it tx pixels to the left on line y.
struct CntxTbl {
  BYTE mps;  // the more probable pixel, 0 or 1
  BYTE st;   // row of JbigTbl, 0 to 112
};
static_assert(sizeof(CntxTbl) == 2);

inline constexpr DWORD kContexts = 1024;    // entries of ContextBuff
inline constexpr DWORD kTpContext = 0x0E5;  // context of the pseudo-pixel SLNTP, both templates
inline constexpr DWORD kBihSize = 20;       // bytes of the image header
inline constexpr BYTE kMaxAtOffset = 127;   // largest tx

// BITW is the state of codings that work bit by bit; this codec has none and uses BYTEW.
struct BITW {
  CODECCSTR* codecstr;
};

// BYTEW: the state of the arithmetic coder and of the coded bytes. "dec" and "enc" say which of the
// two uses a field; the registers are those of T.82 6.8 between two pixels.
struct BYTEW {
  CODECCSTR* codecstr;  // the block that holds this state
  BYTE* c_addr;         // next coded byte, read or written
  DWORD c_rsize;        // bytes left at c_addr
  BYTE Atmf;            // dec: bit 0 a move waits for line Yat, bit 1 the AT pixel is moved;
                        // enc: 2 while an ATMOVE marker is written
  BYTE Fend;            // 1: end of coded data (dec: zeros are read; enc: output is dropped)
  BYTE fillorder;       // 1: coded bytes are most significant bit first; 0: reversed
  BYTE Breg;            // dec: last byte delivered; enc: T.82's BUFFER
  std::int32_t SCreg;   // enc: stacked 0xFF bytes behind Breg
  BYTE First;           // enc: 1: the next coded byte is dropped
  BYTE Error;           // 1: data error
  BYTE Sdnm;            // dec: 1: the stripe's end marker has been read
  BYTE Sdrst;           // 1: the next stripe starts with fresh contexts and white lines above
  BYTE Lntpc;           // LNTP of the previous line
  BYTE Atm;             // AT offset tx in use, pixels; 0 the default place
  BYTE Vln;             // dec: CODECCSTR::Vln
  BYTE nlsd;            // dec: 0xFF: the look-ahead for NEWLEN has taken a marker's 0xFF;
                        // 1: that look-ahead waits for data
  DWORD Stripc;         // line within the stripe
  DWORD Yat;            // line within the stripe at which the waiting AT move acts
  DWORD Nwln;           // height from NEWLEN, lines; 0xFFFFFFFF none
  std::int32_t Areg;    // interval A
  DWORD Creg;           // code register C
  std::int32_t CTreg;   // shifts until the next byte
  BYTE Atm2;            // dec: tx of the waiting move
  BYTE rsv;             // unused
  BYTE ucEx_Code;       // unused
  BYTE ucEx_Code_bfr;   // unused
  DWORD Zeros;          // enc: 0x00 bytes held back; they are dropped at the end of a stripe
};

struct CODECCSTR {
  BYTE Command;      // CODEC_COMMAND: call type in, status out
  BYTE Mode;         // bit 0: 1 coded bytes most significant bit first, 0 reversed; bit 7 ignored;
                     // the others must be 0
  BYTE Rtc;          // unused
  BYTE Kpara;        // unused
  WORD BitMin;       // unused
  WORD Error;        // dec, out: lines by which the height passed NEWLEN's, low 16 bits
  BYTE* lpCBuff;     // coded bytes: dec input, enc output
  DWORD szCBuff;     // bytes at lpCBuff
  DWORD CodeSize;    // enc, out: bytes in the current output buffer, the BIH included
  BYTE* lpIBuff;     // lines: dec output, enc input
  WORD PitchIBuff;   // pixels from line to line; PitchIBuff / 8 bytes, truncated. The last
                     // line takes (ImageWidth + 7) / 8 bytes whatever the pitch.
  WORD HeightIBuff;  // lines at lpIBuff
  WORD LineIBuff;    // dec, out: lines written by this call
  WORD DoubleErr;    // unused
  DWORD OutputHeight;  // out: lines since the start
  WORD ImageWidth;     // XD, pixels
  WORD Reserve2;       // unused
  DWORD ImageHeight;   // YD, lines
  WORD* lpABuff;       // reference line, (ImageWidth + 7) / 8 bytes: with two template lines the
                       // line above, with three the line two above
  WORD* lpBBuff;       // three template lines only: the line above, same size
  WORD* ContextBuff;   // 1024 CntxTbl entries
  BYTE Tpv;            // template lines, 2 or 3
  BYTE Atm;            // enc: AT offset tx, 0 (default place) to 127; dec: 0
  BYTE Tpb;            // 1: typical prediction (TPBON)
  BYTE Vln;            // 1: NEWLEN may shorten the image (VLENGTH)
  DWORD Strip;         // L0, lines per stripe, not 0
  void (*CCallBack)(CODECCSTR*);  // dec: more input, enc: more room; null answers CODEC_END
  void* user_p1;                  // for the callback
  void* user_p2;                  // for the callback
  DWORD user_i1;                  // for the callback
  DWORD user_i2;                  // for the callback
  union {
    BITW bitw;
    BYTEW bytew;
  } work;  // the codec's own
};

// DECOMPRESS decodes lines into lpIBuff until the image buffer is full or the image complete.
// Command in: CODEC_START a new image at lpCBuff (behind any BIH); CODEC_NEXT_BUFFER go on into a
// fresh image buffer; CODEC_END finish.
// Callback: when coded bytes run out, Command is CODEC_NEXT_DATA; point lpCBuff and szCBuff at more
// and return, or set Command to CODEC_END: zeros are read from then on. An image that is handed
// over whole, with its end marker, never calls back. Returns (also in Command): CODEC_DONE;
// CODEC_NEXT_BUFFER; CODEC_DATA_ERROR, the LineIBuff lines of this call being good; CODEC_BAD_PARAM
// (for a bad Mode the block stays untouched).
VOX_EXPORT int DECOMPRESS(CODECCSTR* codec);

// COMPRESS encodes the HeightIBuff lines at lpIBuff into lpCBuff; the BIH comes first.
// Command in: CODEC_START a new image; CODEC_NEXT_DATA the next lines; CODEC_END end the image here
// (with Vln the real height follows in a NEWLEN).
// Callback: when the output is full, Command is CODEC_NEXT_BUFFER and CodeSize its bytes; take them
// away and point lpCBuff and szCBuff at free room, or set Command to CODEC_END: the rest is
// dropped. Returns (also in Command): CODEC_DONE, CodeSize being the bytes in the last buffer;
// CODEC_NEXT_DATA when the lines are used up; CODEC_BAD_PARAM.
VOX_EXPORT int COMPRESS(CODECCSTR* codec);

// Get_BIE reads the BIH at lpCBuff into ImageWidth (low 16 bits), ImageHeight, Strip, Tpv, Tpb and
// Vln. It leaves lpCBuff: skip kBihSize bytes before decoding.
// Returns: 0; 1 when szCBuff is below 20 or the image is outside the profile (then nothing is set).
VOX_EXPORT int Get_BIE(CODECCSTR* codec);

// Put_BIE writes the BIH at lpCBuff, which it leaves.
// Returns: 0; 1 when szCBuff is below 20 or Atm above 127.
VOX_EXPORT int Put_BIE(CODECCSTR* codec);

}  // namespace vox
