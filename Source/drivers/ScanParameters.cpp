#include "vox/drivers/ScanParameters.h"

#include <limits>

#include "vox/DSDebugging.h"

namespace vox {
namespace {

constexpr float kTwoTo31 = 2147483648.0f;
constexpr std::uint32_t kTopBit = 0x80000000u;

// The conversion to a signed integer is undefined outside its range, so the ends are cut first.
std::int32_t truncate_signed(float value) {
  if (value != value) return 0;
  if (value >= kTwoTo31) return std::numeric_limits<std::int32_t>::max();
  if (value <= -kTwoTo31) return std::numeric_limits<std::int32_t>::min();
  return static_cast<std::int32_t>(value);
}

std::uint32_t clamp_resolution(std::uint32_t wanted, std::uint32_t least, std::uint32_t most) {
  if (wanted < least) return least;
  if (wanted > most) return most;
  return wanted;
}

float scaled(float inches, std::uint32_t resolution) {
  return inches * static_cast<float>(resolution);
}

// The requested and the device's resolution of both axes.
struct RESOLUTIONS {
  std::uint32_t x, y;
  std::uint32_t dev_x, dev_y;
  bool convert() const { return dev_x != x || dev_y != y; }
};

RESOLUTIONS resolve(const tagTWSCANPARAM& param, const tagSCANDEVINFO& device) {
  RESOLUTIONS r{};
  r.x = round32(param.fXResolution);
  r.y = round32(param.fYResolution);
  r.dev_x = clamp_resolution(r.x, device.dwXResMin, device.dwXResMax);
  r.dev_y = clamp_resolution(r.y, device.dwYResMin, device.dwYResMax);
  return r;
}

// A bilevel page that will be rescaled is scanned in grey and reduced to bilevel afterwards.
bool data_type(std::uint32_t& type, const tagTWSCANPARAM& param, const RESOLUTIONS& r) {
  switch (param.wBitsPerPixel) {
    case 24:
      type = 3;
      return true;
    case 8:
      type = 2;
      return true;
    case 1:
      type = r.convert() ? 2 : 0;
      return true;
    default:
      return false;
  }
}

void set_window(_SCANWINDOW& window, const tagTWSCANPARAM& param, const RESOLUTIONS& r) {
  window.xPos = truncate32(scaled(param.fLeft, r.dev_x));
  window.yPos = truncate32(scaled(param.fTop, r.dev_y));
  DS_LogText("!!! User XRes = %d, Dev Xres = %d\n", r.x, r.dev_x);
  if (r.dev_x == r.x) {
    window.xExtent = param.dwImageWidth;
    window.yExtent = param.dwImageLength;
  } else {
    window.xExtent = round32(scaled(param.fRight - param.fLeft, r.dev_x));
    window.yExtent = round32(scaled(param.fBottom - param.fTop, r.dev_y));
  }
  DS_LogText("!!! xExtent = %d\n", window.xExtent);
  DS_LogText("!!! yExtent = %d\n", window.yExtent);
}

std::uint32_t scan_unit_mode(std::uint32_t dwDuplex) {
  switch (dwDuplex) {
    case 1:
      return 0x302;
    case 2:
      return 0x10302;
    default:
      return 0;
  }
}

void set_frame(tagDVSCANPARAM& dv, const tagTWSCANPARAM& param, const RESOLUTIONS& r) {
  dv.dwXResolution = r.dev_x;
  dv.dwYResolution = r.dev_y;
  dv.dwLeft = round32(scaled(param.fLeft, r.dev_x));
  dv.dwTop = round32(scaled(param.fTop, r.dev_y));
  dv.dwRight = round32(scaled(param.fRight, r.dev_x));
  dv.dwBottom = round32(scaled(param.fBottom, r.dev_y));
  dv.dwImageWidth = round32(scaled(param.fRight - param.fLeft, r.dev_x));
  // Unlike the width, the length is the client's where its resolution, cut and not rounded, is the
  // device's.
  dv.dwImageLength = truncate32(param.fYResolution) == r.dev_y
                         ? param.dwImageLength
                         : round32(scaled(param.fBottom - param.fTop, r.dev_y));
  dv.fXResConv = param.fXResolution / static_cast<float>(r.dev_x);
  dv.fYResConv = param.fYResolution / static_cast<float>(r.dev_y);
}

// Sets dwPixelType and returns the bits of a device pixel.
std::uint32_t set_pixel_type(tagDVSCANPARAM& dv, const tagTWSCANPARAM& param, bool convert) {
  std::uint32_t bits = param.wBitsPerPixel;
  switch (param.wPixelType) {
    case 0:
      if (param.wBitDepthReduction != 0) {
        dv.dwPixelType = 1;
      } else if (convert) {
        dv.dwPixelType = 2;
        bits = 8;
      } else {
        dv.dwPixelType = 0;
      }
      break;
    case 1:
      dv.dwPixelType = 2;
      break;
    case 2:
      dv.dwPixelType = 3;
      break;
    default:
      break;
  }
  return bits;
}

}  // namespace

std::uint32_t truncate32(float value) {
  if (value >= kTwoTo31) {
    return static_cast<std::uint32_t>(truncate_signed(value - kTwoTo31)) ^ kTopBit;
  }
  return static_cast<std::uint32_t>(truncate_signed(value));
}

std::uint32_t round32(float value) {
  return truncate32(value + 0.5f);
}

std::int16_t round16(float value) {
  return static_cast<std::int16_t>(truncate_signed(value + 0.5f));
}

bool prepare_scan_info(_SCANINFO& info, const tagTWSCANPARAM& param, const tagSCANDEVINFO& device,
                       bool bPrescan) {
  info = _SCANINFO{};
  DS_LogText("%s %d: rParam.dwDuplex= %d\n", "PrepareScan", __LINE__, param.dwDuplex);
  const RESOLUTIONS r = resolve(param, device);
  info.Xresolution = r.dev_x;
  info.Yresolution = r.dev_y;
  if (!data_type(info.DataType, param, r)) return false;
  info.Intensity = round32(param.fBrightness);
  info.Contrast = round32(param.fContrast);
  set_window(info.Window, param, r);
  if (param.wIsUserDefineSize == 1) info.bNeedDataAlignment |= 1;
  info.dwPreScanFlag = bPrescan ? 1 : 0;
  info.dwScanUnitMode = scan_unit_mode(param.dwDuplex);
  DS_LogText("!!! dwScanUnitMode = %x\n", info.dwScanUnitMode);
  return true;
}

void compute_scan_param(tagDVSCANPARAM& dv, const tagTWSCANPARAM& param,
                        const tagSCANDEVINFO& device) {
  const RESOLUTIONS r = resolve(param, device);
  set_frame(dv, param, r);
  const std::uint32_t bits = set_pixel_type(dv, param, r.convert());
  dv.dwLineSize = dv.dwImageWidth * bits;
  dv.dwRemainSize = dv.dwLineSize * dv.dwImageLength;
  dv.wIsUserDefineSize = param.wIsUserDefineSize;
  dv.wPlaneOrder = 0;
  dv.dwLineIndex = 0;
  dv.wNegative = 0;
  dv.wMirror = 0;
  dv.iLeftOfst = 0;
  dv.nBrightness = round16(param.fBrightness);
  dv.nContrast = round16(param.fContrast);
}

}  // namespace vox
