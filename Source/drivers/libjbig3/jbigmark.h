// The marker codes of T.82 6.2.6, each preceded by 0xFF, and the values of the state fields that go
// with them.
#pragma once

#include "vox/drivers/libjbig3/codec32s.h"

namespace vox {

inline constexpr BYTE kMarkerPrefix = 0xFF;

enum JBIG_MARKER : BYTE {
  kSTUFF = 0x00,    // the data byte 0xFF
  kRESERVE = 0x01,  // ignored
  kSDNORM = 0x02,   // end of stripe; contexts and reference lines stay
  kSDRST = 0x03,    // end of stripe; the next one starts afresh
  kABORT = 0x04,    // the coded data end here
  kNEWLEN = 0x05,   // 4 bytes: height of the image
  kATMOVE = 0x06,   // 4 bytes: line in the stripe; tx; ty
  kCOMMENT = 0x07,  // 4 bytes: length; as many bytes
};

// BYTEW::Atmf
inline constexpr BYTE kAtWaits = 1;    // a move waits for line Yat
inline constexpr BYTE kAtMoved = 2;    // the AT pixel is tx to the left
inline constexpr BYTE kAtWriting = 2;  // encoder: an ATMOVE marker is being written

// BYTEW::nlsd
inline constexpr BYTE kPrefixTaken = 0xFF;  // the look-ahead has taken a marker's 0xFF
inline constexpr BYTE kNewlenWaits = 1;     // the look-ahead waits for data

inline constexpr DWORD kNoNewlen = 0xFFFFFFFF;  // BYTEW::Nwln before any NEWLEN

}  // namespace vox
