#include "vox/drivers/libjbig3/codec32s.h"

#include <array>

#include "vox/drivers/libjbig3/jbig2rf.h"
#include "vox/drivers/libjbig3/jbigtbl.h"
#include "vox/drivers/libjbig3/rf2jbig.h"
#include "vox/platform/Bytes.h"

namespace vox {
namespace {

// The image header, T.82 6.2.4: offsets of its fields and bits of its options.
enum BIH_FIELD {
  kDl = 0,
  kD = 1,
  kP = 2,
  kXd = 4,
  kYd = 8,
  kL0 = 12,
  kMx = 16,
  kOrder = 18,
  kOptions = 19
};
constexpr BYTE kLRLTWO = 0x40;
constexpr BYTE kVLENGTH = 0x20;
constexpr BYTE kTPBON = 0x08;
constexpr BYTE kOutsideProfile = 0x97;  // reserved, TPDON, DPON, DPPRIV, DPLAST

using BIH = std::array<BYTE, kBihSize>;

bool is_good_mode(BYTE mode) {
  return (mode & 0x7F) <= 1;
}

BIH header_of(const CODECCSTR* codec) {
  BIH bih{};
  bih[kP] = 1;
  StoreBe32(&bih[kXd], codec->ImageWidth);
  StoreBe32(&bih[kYd], codec->Vln ? 0xFFFFFFFF : codec->ImageHeight);
  StoreBe32(&bih[kL0], codec->Strip);
  bih[kMx] = codec->Atm;
  bih[kOptions] = static_cast<BYTE>((codec->Tpv == 2 ? kLRLTWO : 0) | (codec->Tpb ? kTPBON : 0) |
                                    (codec->Vln ? kVLENGTH : 0));
  return bih;
}

}  // namespace

int DECOMPRESS(CODECCSTR* codec) {
  return is_good_mode(codec->Mode) ? DEC_JBIG(codec) : CODEC_BAD_PARAM;
}

int COMPRESS(CODECCSTR* codec) {
  return is_good_mode(codec->Mode) ? CMP_JBIG(codec) : CODEC_BAD_PARAM;
}

int Get_BIE(CODECCSTR* codec) {
  if (!codec->lpCBuff || codec->szCBuff < kBihSize) return 1;
  BIH bih;
  for (DWORD i = 0; i < kBihSize; ++i)
    bih[i] = (codec->Mode & 1) ? codec->lpCBuff[i] : LSBMSB[codec->lpCBuff[i]];
  if (bih[kDl] != 0 || bih[kD] != 0 || bih[kP] != 1 || bih[kOrder] != 0) return 1;
  if (bih[kOptions] & kOutsideProfile) return 1;
  codec->ImageWidth = static_cast<WORD>(LoadBe32(&bih[kXd]));
  codec->ImageHeight = LoadBe32(&bih[kYd]);
  codec->Strip = LoadBe32(&bih[kL0]);
  codec->Tpv = (bih[kOptions] & kLRLTWO) ? 2 : 3;
  codec->Tpb = (bih[kOptions] & kTPBON) ? 1 : 0;
  codec->Vln = (bih[kOptions] & kVLENGTH) ? 1 : 0;
  return 0;
}

int Put_BIE(CODECCSTR* codec) {
  if (!codec->lpCBuff || codec->szCBuff < kBihSize || codec->Atm > kMaxAtOffset) return 1;
  const BIH bih = header_of(codec);
  for (DWORD i = 0; i < kBihSize; ++i)
    codec->lpCBuff[i] = (codec->Mode & 1) ? bih[i] : LSBMSB[bih[i]];
  return 0;
}

}  // namespace vox
