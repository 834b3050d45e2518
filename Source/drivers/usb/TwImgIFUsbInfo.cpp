// What a device at USB says of itself: the capabilities of its two scanning units.
#include <algorithm>
#include <cstring>

#include "vox/drivers/DeviceUnits.h"
#include "vox/drivers/usb/TwImgIFUsb.h"

namespace vox {
namespace {

constexpr int INFORMATION_MS = 15'000, REMAINDER_MS = 300;
constexpr std::uint32_t DPI = 10'000;  // resolutions come in 1/10000 dpi
constexpr std::uint32_t PREVIEW_DPI[2] = {75, 150};
constexpr std::uint32_t EXTRA_HAS_TABLES = 0x02;    // of dwExtraInfoSupportBitFlg
constexpr std::uint32_t TABLE1_HAS_MARGINS = 0x01;  // of dwSupportScanExTableInfo1
constexpr std::uint32_t CAPABILITY_DUPLEX = 3;      // of dwScanCapInfo
constexpr std::uint32_t DUPLEX = 2;                 // of tagSCANDEVINFO

void take_source(tagSCANDEVINFO* unit, const _SCNSRCINF& source) {
  unit->byPaperSources = paper_source_of(source.dwType);
  unit->dwXResMin = unit->dwXResMinCmn = source.dwMinXResolution / DPI;
  unit->dwYResMin = unit->dwYResMinCmn = source.dwMinYResolution / DPI;
  unit->dwXResMax = unit->dwXResMaxCmn = source.dwMaxXResolution / DPI;
  unit->dwYResMax = unit->dwYResMaxCmn = source.dwMaxYResolution / DPI;
  unit->dwPhysicalHeight = source.dwMaxHeight;
  unit->dwPhysicalWidth = source.dwMaxWidth;
  for (int i = 0; i < 2; ++i) unit->dwXResPre[i] = unit->dwYResPre[i] = PREVIEW_DPI[i];
}

void take_margins(tagSCANDEVINFO* unit, const _SCNSRCINF2& source) {
  set_regular_margin(unit, MARGIN_TOP, source.dwDefTopMargin);
  set_regular_margin(unit, MARGIN_BOTTOM, source.dwDefBottomMargin);
  set_regular_margin(unit, MARGIN_LEFT, source.dwDefLeftMargin);
  set_regular_margin(unit, MARGIN_RIGHT, source.dwDefRightMargin);
}

// Models whose device says that it scans both sides and cannot.
bool never_duplex(int product) {
  return (product >= 0x1502 && product <= 0x1511) || product == 0x0F05;
}

}  // namespace

bool CTwImgIFUsb::GetDevInfo(tagSCANDEVINFO* pDevInf) {
  MutexLock lock(m_infoMutex);
  m_wakeInfo.Clear();
  if (m_aborting > 0) m_wakeInfo.Raise();
  const UsbInterrupt interrupt(m_wakeInfo.Get());
  enter_info();
  const bool opened = Open();
  const bool known = opened && read_capabilities(pDevInf);
  if (!known) fail(opened ? IF_ERR_STS_DEVICE_COMM_ERR : IF_ERR_STS_INTERNAL);
  leave_info();
  return known;
}

bool CTwImgIFUsb::read_capabilities(tagSCANDEVINFO* pDevInf) {
  *pDevInf = {};
  m_DevInfoAll[0] = m_DevInfoAll[1] = {};
  m_DevInfoAllCount = 0;
  std::uint32_t duplex = 0;
  if (!read_sources() || !read_formats() || !read_margins() || !read_product(&duplex)) return false;
  m_DevInfoAllCount = 1;
  if (m_DevInfoAll[1].byPaperSources != 0) {
    if (m_DevInfoAll[0].byPaperSources != 0) m_DevInfoAllCount = 2;
    if (m_DevInfoAllCount == 1) m_DevInfoAll[0] = m_DevInfoAll[1];
  }
  *pDevInf = merge_units(m_DevInfoAll, m_DevInfoAllCount);
  pDevInf->dwDuplex = duplex;
  m_DevInfo = *pDevInf;
  return true;
}

bool CTwImgIFUsb::read_sources() {
  _SCANINF1 record{};
  if (!SendCmdGetInf(USB_INF_SOURCE, &record, sizeof record.source, nullptr)) return false;
  scaninf2cpu(&record);
  for (int i = 0; i < kMaxScanUnits; ++i) take_source(&m_DevInfoAll[i], record.source.src[i]);
  return true;
}

bool CTwImgIFUsb::read_formats() {
  _SCANINF1 record{};
  if (!SendCmdGetInf(USB_INF_IMAGE_FORMAT, &record, sizeof record.format, nullptr)) return false;
  scaninf2cpu(&record);
  std::uint8_t types = 0;
  for (const std::uint32_t format : record.format.dwFormat) types |= image_type_bit(format);
  for (tagSCANDEVINFO& unit : m_DevInfoAll) unit.byImageTypes = types;
  return true;
}

// Margins are asked for only of a device that says it knows them.
bool CTwImgIFUsb::read_margins() {
  _SCANINF1 record{};
  unsigned int got = 0;
  if (!SendCmdGetInf(USB_INF_EXTRA, &record, sizeof record.extra, &got)) return false;
  scaninf2cpu(&record);
  if (got != sizeof record.extra ||
      (record.extra.dwExtraInfoSupportBitFlg & EXTRA_HAS_TABLES) == 0 ||
      (record.extra.dwSupportScanExTableInfo1 & TABLE1_HAS_MARGINS) == 0)
    return true;
  if (!SendCmdGetInf(USB_INF_SOURCE2, &record, sizeof record.source2, nullptr)) return false;
  scaninf2cpu(&record);
  for (int i = 0; i < kMaxScanUnits; ++i) take_margins(&m_DevInfoAll[i], record.source2.src[i]);
  return true;
}

bool CTwImgIFUsb::read_product(std::uint32_t* duplex) {
  _SCANINF1 record{};
  if (!SendCmdGetInf(USB_INF_PRODUCT_SPEC, &record, sizeof record.spec, nullptr)) return false;
  scaninf2cpu(&record);
  for (tagSCANDEVINFO& unit : m_DevInfoAll) unit.dwSupportPaper = record.spec.dwSupportPaper;
  const bool both_sides = record.spec.dwScanCapInfo == CAPABILITY_DUPLEX;
  *duplex = both_sides && !never_duplex(product_id()) ? DUPLEX : 0;
  return true;
}

// The record comes with its header, or by itself behind it.
bool CTwImgIFUsb::SendCmdGetInf(unsigned int code, _SCANINF1* out, unsigned int size,
                                unsigned int* got) {
  constexpr unsigned int HEADER = sizeof(tagUSBSCANINFOHEADER);
  *out = {};
  _MFPCMDGETINF packet{};
  MakeMfpHeader(&packet.hdr, USB_CMD_GETINF);
  StoreLe32(packet.dwInfCode, code);
  if (!send_packet(&packet, sizeof packet, INFORMATION_MS, INFORMATION_MS)) return false;
  std::uint8_t reply[USB_INF_REPLY_MAX] = {};
  const USB_READ first = read_pipe(reply, sizeof reply, INFORMATION_MS);
  if (first.size < HEADER) return false;
  tagUSBSCANINFOHEADER hdr{};
  std::memcpy(&hdr, reply, HEADER);
  const std::uint32_t length = scaninf_length(hdr);
  if (length > size || size > sizeof reply - HEADER) return false;
  unsigned int count = first.size - HEADER;
  if (count == 0 && length != 0) {
    count = read_pipe(reply + HEADER, length, REMAINDER_MS).size;
    if (count != length) return false;
  }
  if (got != nullptr) *got = count;
  std::memcpy(out, reply + HEADER, std::min({count, size, unsigned{sizeof *out}}));
  return true;
}

}  // namespace vox
