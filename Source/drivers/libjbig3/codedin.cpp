// The reader of coded bytes and the markers among them (T.82 6.2.6).
#include <algorithm>

#include "vox/drivers/libjbig3/jbig2rf.h"
#include "vox/drivers/libjbig3/jbigmark.h"
#include "vox/drivers/libjbig3/jbigtbl.h"

namespace vox {
namespace {

// Takes the next byte, asking for more data when there is none; 0 after the end.
BYTE take(BYTEW* work) {
  if (work->c_rsize == 0) Get_Byte(work);
  if (work->Fend) return 0;
  --work->c_rsize;
  const BYTE byte = *work->c_addr++;
  return work->fillorder ? byte : LSBMSB[byte];
}

DWORD take_be32(BYTEW* work) {
  DWORD value = 0;
  for (int i = 0; i < 4; ++i) value = value << 8 | take(work);
  return value;
}

// Skips bytes in the pieces in which they come. The end of the data ends it, so that a comment of
// 4 GB in a short image costs nothing.
void skip(BYTEW* work, DWORD bytes) {
  while (bytes > 0 && !work->Fend) {
    if (work->c_rsize == 0) Get_Byte(work);
    if (work->Fend) return;
    const DWORD piece = std::min(bytes, work->c_rsize);
    work->c_addr += piece;
    work->c_rsize -= piece;
    bytes -= piece;
  }
}

void take_atmove(BYTEW* work) {
  work->Yat = take_be32(work);
  work->Atm2 = take(work);
  take(work);  // ty: moves to other lines are outside the profile
  work->Atmf = work->Atmf != 0 ? kAtWaits | kAtMoved : kAtWaits;
  if (work->Atm2 > kMaxAtOffset) work->Error = 1;
}

// The end of a stripe. Whether a NEWLEN follows must be known before the next line is counted; with
// no byte at hand the question waits, so that a complete image never asks for more data.
void take_stripe_end(BYTEW* work) {
  work->Sdnm = 1;
  if (!work->Vln) return;
  if (work->c_rsize == 0)
    work->nlsd = kNewlenWaits;
  else
    Check_Newlen(work);
}

// Returns true when the byte that follows the marker code is to be delivered.
bool act_on_marker(BYTEW* work, BYTE code) {
  switch (code) {
    case kSDNORM:
      take_stripe_end(work);
      return false;
    case kSDRST:
      work->Sdrst = 1;
      take_stripe_end(work);
      return false;
    case kABORT:
      work->Fend = work->Sdrst = work->Sdnm = 1;
      return false;
    case kNEWLEN:
      work->Nwln = take_be32(work);
      return true;
    case kATMOVE:
      take_atmove(work);
      return true;
    case kCOMMENT:
      skip(work, take_be32(work));
      return true;
    default:  // RESERVE and codes that T.82 does not define
      return true;
  }
}

// Looks at the next byte without taking it; -1 at the end of the data.
int peek(BYTEW* work) {
  if (work->c_rsize == 0 && !work->Fend) Get_Byte(work);
  if (work->Fend) return -1;
  return work->fillorder ? *work->c_addr : LSBMSB[*work->c_addr];
}

// Takes the two bytes that announce a NEWLEN if they come next. A 0xFF that is the last byte of its
// piece cannot be left for later: nlsd remembers it.
bool take_newlen_code(BYTEW* work) {
  if (peek(work) != kMarkerPrefix) return false;
  const BYTE wanted = work->fillorder ? BYTE{kNEWLEN} : LSBMSB[kNEWLEN];
  if (work->c_rsize >= 2) {
    if (work->c_addr[1] != wanted) return false;
    skip(work, 2);
    return true;
  }
  skip(work, 1);
  if (peek(work) == kNEWLEN) {
    skip(work, 1);
    return true;
  }
  work->nlsd = kPrefixTaken;
  return false;
}

}  // namespace

void Get_Byte(BYTEW* work) {
  CODECCSTR* codec = work->codecstr;
  codec->Command = codec->CCallBack ? CODEC_NEXT_DATA : CODEC_END;
  if (codec->CCallBack) codec->CCallBack(codec);
  const bool ended = codec->Command == CODEC_END || !codec->lpCBuff || codec->szCBuff == 0;
  work->Fend = ended;
  work->c_addr = codec->lpCBuff;
  work->c_rsize = ended ? 0 : codec->szCBuff;
}

void Byte_in(BYTEW* work) {
  if (work->Sdnm || work->Fend) {
    work->Breg = 0;
  } else if (work->Vln && work->nlsd == kPrefixTaken) {
    work->nlsd = 0;
    work->Breg = Check_Marker(work);
  } else {
    const BYTE byte = take(work);
    work->Breg = byte == kMarkerPrefix ? Check_Marker(work) : byte;
  }
}

BYTE Check_Marker(BYTEW* work) {
  for (;;) {
    const BYTE code = take(work);
    if (code == kSTUFF) return 0xFF;
    if (!act_on_marker(work, code)) return 0;
    const BYTE byte = take(work);
    if (byte != kMarkerPrefix) return byte;
  }
}

void Check_Newlen(BYTEW* work) {
  work->nlsd = 0;
  if (take_newlen_code(work))
    work->Nwln = take_be32(work);
  else if (work->codecstr->Strip == 0xFFFFFFFF)
    work->Error = 1;
}

}  // namespace vox
