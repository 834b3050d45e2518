#include "vox/drivers/ScanRecords.h"

#include <iterator>

#include <endian.h>

namespace vox {
namespace {

const char* const kIfErrorText[] = {
    " no error",
    " internal error",
    " memory error",
    " communication error",
    " device busy error",
    " device responded with error",
    " device responded  cancel",
    " check error",
    " no document",
};

// Both directions swap the same fields, and swapping is its own inverse.
void convert_scaninfo(_SCANINFO* to, const _SCANINFO* from) {
  to->DataType = htole32(from->DataType);
  to->Intensity = htole32(from->Intensity);
  to->Contrast = htole32(from->Contrast);
  to->Xresolution = htole32(from->Xresolution);
  to->Yresolution = htole32(from->Yresolution);
  to->Window.xPos = htole32(from->Window.xPos);
  to->Window.yPos = htole32(from->Window.yPos);
  to->Window.xExtent = htole32(from->Window.xExtent);
  to->Window.yExtent = htole32(from->Window.yExtent);
  to->bNeedDataAlignment = htole32(from->bNeedDataAlignment);
  to->dwScanUnitMode = htole32(from->dwScanUnitMode);
  to->dwPreScanFlag = htole32(from->dwPreScanFlag);
  to->dwEncodeType = htole32(from->dwEncodeType);
  to->ADF = htole32(from->ADF);
  to->DitherPattern = htole32(from->DitherPattern);
  to->Negative = htole32(from->Negative);
  to->Mirror = htole32(from->Mirror);
  to->MaxBufferSize = htole32(from->MaxBufferSize);
  to->dwLeftCutMargin = htole32(from->dwLeftCutMargin);
  to->dwRightCutMargin = htole32(from->dwRightCutMargin);
  to->dwAngle = htole32(from->dwAngle);
  to->byJbigLineTemplate = from->byJbigLineTemplate;
  to->byJbigTpbTemplate = from->byJbigTpbTemplate;
  to->byEncodeHeaderSize = from->byEncodeHeaderSize;
  to->dwFirmSW = htole32(from->dwFirmSW);
  to->dwPrivateSize = htole32(from->dwPrivateSize);
}

}  // namespace

std::string IfErrorText(std::uint32_t status) {
  return status < std::size(kIfErrorText) ? kIfErrorText[status] : kIfErrorText[1];
}

void scaninfo2le(_SCANINFO* to, const _SCANINFO* from) {
  convert_scaninfo(to, from);
}
void scaninfo2cpu(_SCANINFO* to, const _SCANINFO* from) {
  convert_scaninfo(to, from);
}

}  // namespace vox
