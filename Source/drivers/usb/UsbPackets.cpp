#include "vox/drivers/usb/UsbPackets.h"

#include <cstring>

namespace vox {
namespace {

constexpr char SIGNATURE[] = "MFPP0200ML01";  // dwPktCode, the versions and dwModelCode

std::uint8_t param_size(std::uint8_t command) {
  switch (command) {
    case USB_CMD_GETINF:
      return sizeof(_MFPCMDGETINF) - sizeof(_MFPPKTHDR);
    case USB_CMD_SCAN:
      return sizeof(_MFPCMDSCAN) - sizeof(_MFPPKTHDR);
    case USB_CMD_ABORT:
    case USB_CMD_END_JOB:
    case USB_CMD_REQ_PAGE:
      return sizeof(_MFPCMDJOBID) - sizeof(_MFPPKTHDR);
    default:
      return 0;
  }
}

}  // namespace

void MakeMfpHeader(_MFPPKTHDR* hdr, char command) {
  static_assert(sizeof SIGNATURE - 1 == offsetof(_MFPPKTHDR, byCliSeqIdH));
  *hdr = {};
  std::memcpy(hdr, SIGNATURE, sizeof SIGNATURE - 1);
  hdr->byAppCode = USB_APPCODE;
  hdr->byCmdCode = static_cast<std::uint8_t>(command);
  hdr->byParamSize = param_size(hdr->byCmdCode);
}

void scaninf2cpu(_SCANINF1* inf) {
  std::uint8_t wire[sizeof *inf];
  std::uint32_t numbers[sizeof *inf / sizeof(std::uint32_t)];
  std::memcpy(wire, inf, sizeof wire);
  for (std::size_t i = 0; i < sizeof wire / sizeof numbers[0]; ++i)
    numbers[i] = LoadLe32(wire + i * sizeof numbers[0]);
  std::memcpy(inf, numbers, sizeof numbers);
}

tagUSBSCANDATAHEADER scandatahdr2cpu(const std::uint8_t* wire) {
  return {LoadLe32(wire), wire[4], wire[5], wire[6], wire[7]};
}

}  // namespace vox
