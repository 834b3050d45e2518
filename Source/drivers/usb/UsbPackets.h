// The packets that a scanner at USB takes and gives, and the steps between them and the host's
// numbers; no pipe. docs/wire/usb-scan.md has the exchange, byte for byte.
//
// Records whose fields are bytes lie in memory as they go over the pipe. Those with numbers are in
// host order: what converts them stands below. Numbers on the wire have their low byte first.
//
// Thread rule: pure functions.
#pragma once

#include <cstddef>
#include <cstdint>

#include "vox/drivers/ScanRecords.h"
#include "vox/platform/Bytes.h"

namespace vox {

constexpr std::uint8_t USB_APPCODE = 0x32;

enum USB_COMMAND : std::uint8_t {
  USB_CMD_STANDBY = 0x10,
  USB_CMD_GETINF = 0x22,
  USB_CMD_SCAN = 0x41,
  USB_CMD_ABORT = 0x50,
  USB_CMD_END_JOB = 0x51,  // has a job id too; never sent from here
  USB_CMD_REQ_PAGE = 0x62,
};
enum USB_ANSWER : std::uint8_t {
  USB_RSP_ACCEPTED = 0x43,
  USB_RSP_BUSY = 0x47,
  USB_RSP_NO_DOCUMENT = 0x49,
};

// ---- commands, as they lie on the wire

struct _MFPPKTHDR {
  std::uint8_t dwPktCode[4];    // "MFPP"
  std::uint8_t wMajVer[2];      // "02"
  std::uint8_t wMinVer[2];      // "00"
  std::uint8_t dwModelCode[4];  // "ML01"
  std::uint8_t byCliSeqIdH, byCliSeqIdL;
  std::uint8_t byAppCode;    // USB_APPCODE
  std::uint8_t byCmdCode;    // command, or the code of an answer
  std::uint8_t byParamSize;  // bytes of the parameter behind this header
  std::uint8_t byReserved[3];
};
static_assert(sizeof(_MFPPKTHDR) == 20);
static_assert(offsetof(_MFPPKTHDR, wMajVer) == 4);
static_assert(offsetof(_MFPPKTHDR, wMinVer) == 6);
static_assert(offsetof(_MFPPKTHDR, dwModelCode) == 8);
static_assert(offsetof(_MFPPKTHDR, byCliSeqIdH) == 12);
static_assert(offsetof(_MFPPKTHDR, byCliSeqIdL) == 13);
static_assert(offsetof(_MFPPKTHDR, byAppCode) == 14);
static_assert(offsetof(_MFPPKTHDR, byCmdCode) == 15);
static_assert(offsetof(_MFPPKTHDR, byParamSize) == 16);
static_assert(offsetof(_MFPPKTHDR, byReserved) == 17);

struct _MFPCMDSTBYSCAN {
  _MFPPKTHDR hdr;
};
static_assert(sizeof(_MFPCMDSTBYSCAN) == 20);

struct _MFPCMDGETINF {
  _MFPPKTHDR hdr;
  std::uint8_t dwInfCode[4];
};
static_assert(sizeof(_MFPCMDGETINF) == 24);
static_assert(offsetof(_MFPCMDGETINF, dwInfCode) == 20);

struct _MFPCMDSCAN {
  _MFPPKTHDR hdr;
  _SCANINFO scan;  // of scaninfo2le
};
static_assert(sizeof(_MFPCMDSCAN) == 148);
static_assert(offsetof(_MFPCMDSCAN, scan) == 20);

// Also the answer to the scan command.
struct _MFPCMDJOBID {
  _MFPPKTHDR hdr;
  _SCANJOBID jobId;
};
static_assert(sizeof(_MFPCMDJOBID) == 28);
static_assert(offsetof(_MFPCMDJOBID, jobId) == 20);

// ---- what the device says of itself

enum USB_INFORMATION : std::uint32_t {
  USB_INF_SOURCE = 0xA201,
  USB_INF_EXTRA = 0xA204,
  USB_INF_IMAGE_FORMAT = 0xA206,
  USB_INF_SOURCE2 = 0xA207,
  USB_INF_PRODUCT_SPEC = 0xA208,
};
constexpr unsigned int USB_INF_REPLY_MAX = 512;  // bytes that are read at once

// tagUSBSCANINFOHEADER stands before each reply, as it lies on the wire.
struct tagUSBSCANINFOHEADER {
  std::uint8_t Dummy1;
  std::uint8_t Dummy2;
  std::uint8_t Length[4];  // bytes of information that follow
  std::uint8_t Dummy3[2];
};
static_assert(sizeof(tagUSBSCANINFOHEADER) == 8);
static_assert(offsetof(tagUSBSCANINFOHEADER, Length) == 2);
static_assert(offsetof(tagUSBSCANINFOHEADER, Dummy3) == 6);

// Resolutions in 1/10000 dpi, sizes and margins in 1/10000 inch. Of these records only what has a
// comment is used.
struct _SCNSRCINF {
  std::uint32_t dwType;  // 3 feeder, 5 flatbed
  std::uint32_t dwUnit;
  std::uint32_t dwMaxWidth, dwMaxHeight;  // scannable
  std::uint32_t dwMaxCount;
  std::uint32_t dwMaxYResolution, dwMaxXResolution;  // range
  std::uint32_t dwMinYResolution, dwMinXResolution;
  std::uint32_t dwMonoPreYReso, dwMonoPreXReso;
  std::uint32_t dwColorPreYReso, dwColorPreXReso;
};
struct _SCANINFSOURCE {
  _SCNSRCINF src[2];
};
struct _SCANINFIMGFMT {
  std::uint32_t dwFormat[3];  // 1 bilevel, 0x16 grey, 0x3D colour
};
struct _SCNINFEXTRA {
  std::uint32_t dwExtraInfoSupportBitFlg;   // bit 1: the tables below are there
  std::uint32_t dwSupportScanExTableInfo1;  // bit 0: USB_INF_SOURCE2 can be asked for
  std::uint32_t dwSupportScanExTableInfo2, dwSupportScanExTableInfo3, dwSupportScanExTableInfo4,
      dwSupportScanExTableInfo5, dwSupportScanExTableInfo6, dwSupportScanExTableInfo7,
      dwSupportScanExTableInfo8;
};
struct _SCNSRCINF2 {
  std::uint32_t dwDefTopMargin, dwDefBottomMargin;  // that cannot be scanned
  std::uint32_t dwDefLeftMargin, dwDefRightMargin;
};
struct _SCANINFSOURCE2 {
  _SCNSRCINF2 src[2];
};
struct _SCANPRODUCTSPEC {
  std::uint32_t Reserved1;
  std::uint32_t dwSupportPaper;  // bit set of paper sizes
  std::uint32_t dwScanCapInfo;   // 3: scans both sides
  std::uint32_t Reserv2[14];
};
static_assert(sizeof(_SCNSRCINF) == 52);
static_assert(offsetof(_SCNSRCINF, dwMaxWidth) == 8);
static_assert(offsetof(_SCNSRCINF, dwMaxYResolution) == 20);
static_assert(offsetof(_SCNSRCINF, dwMinXResolution) == 32);
static_assert(offsetof(_SCNSRCINF, dwColorPreXReso) == 48);
static_assert(sizeof(_SCANINFSOURCE) == 104);
static_assert(sizeof(_SCANINFIMGFMT) == 12);
static_assert(sizeof(_SCNINFEXTRA) == 36);
static_assert(offsetof(_SCNINFEXTRA, dwSupportScanExTableInfo1) == 4);
static_assert(sizeof(_SCNSRCINF2) == 16);
static_assert(offsetof(_SCNSRCINF2, dwDefRightMargin) == 12);
static_assert(sizeof(_SCANINFSOURCE2) == 32);
static_assert(sizeof(_SCANPRODUCTSPEC) == 68);
static_assert(offsetof(_SCANPRODUCTSPEC, dwSupportPaper) == 4);
static_assert(offsetof(_SCANPRODUCTSPEC, dwScanCapInfo) == 8);

// _SCANINF1 holds whichever of them was asked for.
union _SCANINF1 {
  _SCANINFSOURCE source;
  _SCANINFIMGFMT format;
  _SCNINFEXTRA extra;
  _SCANINFSOURCE2 source2;
  _SCANPRODUCTSPEC spec;
};
static_assert(sizeof(_SCANINF1) == 104);

// ---- a page's data

// tagUSBSCANDATAHEADER stands before each block of data. Host order.
struct tagUSBSCANDATAHEADER {
  std::uint32_t dwLength;  // bytes of data that follow; 0 ends the page's data
  std::uint8_t byAppCode;  // USB_APPCODE: the next two mean what USB_NOTE says
  std::uint8_t byCommand;
  std::uint8_t byParam0;  // of USB_NOTE_PAGE_END: 1, another page of the job follows
  std::uint8_t byParam1;
};
static_assert(sizeof(tagUSBSCANDATAHEADER) == 8);
static_assert(offsetof(tagUSBSCANDATAHEADER, byAppCode) == 4);
static_assert(offsetof(tagUSBSCANDATAHEADER, byCommand) == 5);
static_assert(offsetof(tagUSBSCANDATAHEADER, byParam0) == 6);

enum USB_NOTE : std::uint8_t {
  USB_NOTE_PAGE_END = 2,
  USB_NOTE_CHECK_ERROR = 3,
  USB_NOTE_PENDING = 4,  // the data are not ready yet; another header follows
};

// MakeMfpHeader fills all of a command's header.
void MakeMfpHeader(_MFPPKTHDR* hdr, char command);

// scaninf2cpu turns a record that was received, of whichever kind, into host order in place.
void scaninf2cpu(_SCANINF1* inf);

// scandatahdr2cpu takes the eight bytes of a block's header apart.
tagUSBSCANDATAHEADER scandatahdr2cpu(const std::uint8_t* wire);

inline std::uint32_t scaninf_length(const tagUSBSCANINFOHEADER& hdr) {
  return LoadLe32(hdr.Length);
}

}  // namespace vox
