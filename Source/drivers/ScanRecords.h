// The records of the scan road: the client's request, the same request in device terms, the block
// that goes to the device, the device's capabilities, the job identity and the interface error
// statuses.
//
// Units: resolutions in dots per inch; client frames in inches; device positions and extents in
// pixels at the device resolution; margins and physical sizes in 1/10000 inch. Thread rule: plain
// values.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "vox/platform/Export.h"

namespace vox {

using bool32 = std::uint32_t;  // 0 is false
using BYTE = std::uint8_t;
using WORD = std::uint16_t;
using DWORD = std::uint32_t;
using ULONG = std::uint32_t;
using LPBYTE = BYTE*;

// tagTWSCANPARAM: what the client asks for, in TWAIN terms. Natural alignment.
struct tagTWSCANPARAM {
  float fXResolution;           // dpi
  float fYResolution;           // dpi
  std::uint32_t dwImageWidth;   // pixels at the requested resolution
  std::uint32_t dwImageLength;  // lines at the requested resolution
  std::uint16_t wSamplesPerPixel;
  std::uint16_t wBitsPerSample[8];
  std::uint16_t wBitsPerPixel;  // 1, 8 or 24
  std::uint16_t wPlanar;
  std::uint16_t wPixelType;  // 0 black-and-white, 1 grey, 2 colour
  std::uint16_t wCompression;
  float fLeft, fTop, fRight, fBottom;  // frame, inches
  std::uint32_t dwDocumentNumber;
  std::uint32_t dwPageNumber;
  std::uint32_t dwFrameNumber;
  float fBrightness;
  float fContrast;
  float fGamma;
  float fThreshold;
  std::uint16_t wPixelFlavor;
  std::uint16_t wBitDepthReduction;  // 0 threshold, else halftone
  float fPhysicalWidth;              // inches
  float fPhysicalHeight;             // inches
  std::uint32_t dwLineSize;          // bytes of a client line
  std::uint16_t wPlaneOrder;         // 1 to 5: one of the byte orders of the line pipeline
  std::uint16_t wPalCols;
  std::uint16_t wIsUserDefineSize;  // 1: the frame is a user-defined size
  std::uint32_t dwDuplex;           // 0 none, 1 and 2 the two unit modes
};
using TWSCANPARAM = tagTWSCANPARAM;
static_assert(sizeof(tagTWSCANPARAM) == 116);
static_assert(offsetof(tagTWSCANPARAM, fLeft) == 44);
static_assert(offsetof(tagTWSCANPARAM, dwDuplex) == 112);

#pragma pack(push, 1)

// tagDVSCANPARAM: the request in device terms. Packed: take copies of fields, never references.
struct tagDVSCANPARAM {
  std::uint32_t dwXResolution, dwYResolution;      // dpi, after clamping
  std::uint32_t dwLeft, dwTop, dwRight, dwBottom;  // device pixels
  std::uint32_t dwImageWidth;                      // pixels of a line
  std::uint32_t dwImageLength;                     // lines
  std::uint32_t dwPixelType;                       // 0 bilevel, 1 halftone, 2 grey, 3 colour
  std::uint32_t dwLineSize;                        // bits of a line
  float fXResConv, fYResConv;                      // requested / device resolution
  std::int16_t nBrightness, nContrast;
  std::uint16_t wIsUserDefineSize;
  std::uint32_t dwBufSize;  // bytes
  std::uint16_t wADF;
  std::uint16_t wNegative;
  std::uint16_t wMirror;
  std::uint8_t byThreshhold;
  std::uint16_t wPlaneOrder;
  std::int32_t iLeftOfst;  // pixels
  std::uint32_t dwLineIndex;
  std::uint32_t dwRemainSize;                       // bits left, modulo 2^32
  std::uint32_t dwLeftCutMargin, dwRightCutMargin;  // pixels to be cut
  std::uint32_t dwFirmSW;
  std::uint32_t dwLineBytes;  // bytes of a transferred line
  bool32 bPrescan;
  std::uint16_t wXferMech;
  std::uint32_t dwAngle;  // degrees
  std::uint8_t byJbigLineTemplate, byJbigTpbTemplate, byEncodeHeaderSize;
};
static_assert(sizeof(tagDVSCANPARAM) == 108);
static_assert(offsetof(tagDVSCANPARAM, dwBufSize) == 54);
static_assert(offsetof(tagDVSCANPARAM, iLeftOfst) == 67);
static_assert(offsetof(tagDVSCANPARAM, dwAngle) == 101);

// tagSCANDEVINFO: what the device can do, filled by the transports. Packed.
struct tagSCANDEVINFO {
  std::uint32_t dwXResMin, dwYResMin, dwXResMax, dwYResMax;              // dpi
  std::uint32_t dwXResMinCmn, dwYResMinCmn, dwXResMaxCmn, dwYResMaxCmn;  // dpi, all modes
  std::uint8_t byImageTypes;    // bit 0x01 bilevel, 0x02 grey, 0x04 colour
  std::uint8_t byPaperSources;  // bits: 1 flatbed, 2 feeder
  std::uint8_t byAdfPaper;      // 1: paper lies in the feeder
  std::uint8_t byAutoFeed;
  std::uint8_t byAutoScan;
  std::uint32_t dwXResPre[2];         // dpi; entry 0 is used
  std::uint32_t dwYResPre[2];         // dpi; entry 0 is used
  std::uint8_t bySmallPaperSizeType;  // non-zero: an unscannable margin is reported
  std::uint32_t dwRegularLeftMargin, dwRegularTopMargin;      // 1/10000 inch
  std::uint32_t dwRegularRightMargin, dwRegularBottomMargin;  // 1/10000 inch
  std::uint32_t dwSupportPaper;                               // bit set of paper sizes
  std::uint32_t dwPhysicalHeight;                             // 1/10000 inch
  std::uint32_t dwPhysicalWidth;                              // 1/10000 inch
  std::uint32_t dwDuplex;
  std::uint32_t dwCompInfo;
};
static_assert(sizeof(tagSCANDEVINFO) == 90);

#pragma pack(pop)

struct _SCANWINDOW {
  std::uint32_t xPos, yPos, xExtent, yExtent;  // device pixels
};

// _SCANINFO: the scan-information block, 128 bytes, little-endian on the wire.
struct _SCANINFO {
  std::uint32_t DataType;  // 0 bilevel, 2 grey, 3 colour
  std::uint32_t Intensity;
  std::uint32_t Contrast;
  std::uint32_t Xresolution;  // dpi
  std::uint32_t Yresolution;  // dpi
  _SCANWINDOW Window;
  std::uint32_t bNeedDataAlignment;  // bit 0: user-defined size
  std::uint32_t dwScanUnitMode;      // 0, 0x302 or 0x10302
  std::uint32_t dwPreScanFlag;       // 1: preview
  std::uint32_t dwEncodeType;
  std::uint32_t dwHostReseved[7];  // zero
  std::uint32_t ADF;
  std::uint32_t DitherPattern;  // threshold of the bilevel reduction
  std::uint32_t Negative;
  std::uint32_t Mirror;
  std::uint32_t MaxBufferSize;      // bytes
  std::uint32_t dwLeftCutMargin;    // pixels
  std::uint32_t dwRightCutMargin;   // pixels
  std::uint32_t dwAngle;            // degrees
  std::uint8_t byJbigLineTemplate;  // 2 or 3
  std::uint8_t byJbigTpbTemplate;   // 1: typical prediction
  std::uint8_t byEncodeHeaderSize;  // 0: raw lines; else bytes before each block's coded data
  std::uint8_t byDevReserved;
  std::uint32_t dwDeviceReserved;
  std::uint32_t dwFirmSW;
  std::uint32_t dwPrivateSize;  // bytes
};
static_assert(sizeof(_SCANINFO) == 128);
static_assert(offsetof(_SCANINFO, Window) == 20);
static_assert(offsetof(_SCANINFO, dwEncodeType) == 48);
static_assert(offsetof(_SCANINFO, dwHostReseved) == 52);
static_assert(offsetof(_SCANINFO, ADF) == 80);
static_assert(offsetof(_SCANINFO, dwAngle) == 108);
static_assert(offsetof(_SCANINFO, byJbigLineTemplate) == 112);
static_assert(offsetof(_SCANINFO, dwDeviceReserved) == 116);
static_assert(offsetof(_SCANINFO, dwFirmSW) == 120);

// _SCANJOBID: eight opaque bytes, kept and sent in the order in which they came; only "dwJobNo is
// zero" is ever asked.
struct _SCANJOBID {
  std::uint32_t dwDevAdr;
  std::uint32_t dwJobNo;
};
static_assert(sizeof(_SCANJOBID) == 8);

// Interface error statuses; the first one that is stored stays.
enum IfErrorStatus : std::uint32_t {
  IF_ERR_STS_NONE = 0,
  IF_ERR_STS_INTERNAL = 1,
  IF_ERR_STS_MEMORY = 2,
  IF_ERR_STS_DEVICE_COMM_ERR = 3,
  IF_ERR_STS_DEVICE_BUSY = 4,
  IF_ERR_STS_DEVICE_ERROR = 5,
  IF_ERR_STS_DEVICE_CANCEL = 6,
  IF_ERR_STS_CHECK_ERROR = 7,
  IF_ERR_STS_NO_DOCUMENT = 8,
};

// IfErrorText gives the text of a status 0 to 8; each begins with a blank.
VOX_EXPORT std::string IfErrorText(std::uint32_t status);

// scaninfo2le and scaninfo2cpu convert between host order and the wire's little-endian order. They
// do not write dwHostReseved, byDevReserved and dwDeviceReserved of `to` (33 bytes); zero it first.
// `to` may be `from`.
VOX_EXPORT void scaninfo2le(_SCANINFO* to, const _SCANINFO* from);
VOX_EXPORT void scaninfo2cpu(_SCANINFO* to, const _SCANINFO* from);

}  // namespace vox
