#include "tests/support/PlainRequest.h"

#include <algorithm>

namespace vox::test {
namespace {

std::uint32_t RoundedUnsigned(float value) {
  return static_cast<std::uint32_t>(value + 0.5f);
}

std::uint32_t RoundedSigned(float value) {
  return static_cast<std::uint32_t>(static_cast<std::int32_t>(value + 0.5f));
}

}  // namespace

sim::ScanInfo DeviceRequest(const tagTWSCANPARAM& request, const ResolutionRange& range,
                            bool preview) {
  sim::ScanInfo info;
  const std::uint32_t x = RoundedUnsigned(request.fXResolution),
                      y = RoundedUnsigned(request.fYResolution);
  info.x_resolution = std::clamp(x, range.x_min, range.x_max);
  info.y_resolution = std::clamp(y, range.y_min, range.y_max);
  const bool within = info.x_resolution == x && info.y_resolution == y;
  const std::uint32_t bilevel = within ? sim::kBilevel : sim::kGrey;
  info.data_type = request.wBitsPerPixel == 24  ? sim::kColour
                   : request.wBitsPerPixel == 8 ? sim::kGrey
                                                : bilevel;
  info.intensity = RoundedSigned(request.fBrightness);
  info.contrast = RoundedSigned(request.fContrast);
  const auto x_dpi = static_cast<float>(info.x_resolution);
  const auto y_dpi = static_cast<float>(info.y_resolution);
  info.x_pos = static_cast<std::uint32_t>(request.fLeft * x_dpi);
  info.y_pos = static_cast<std::uint32_t>(request.fTop * y_dpi);
  const bool own_pixels = info.x_resolution == x;  // of the client; decides for both directions
  info.x_extent =
      own_pixels ? request.dwImageWidth : RoundedUnsigned((request.fRight - request.fLeft) * x_dpi);
  info.y_extent = own_pixels ? request.dwImageLength
                             : RoundedUnsigned((request.fBottom - request.fTop) * y_dpi);
  info.data_alignment = request.wIsUserDefineSize == 1 ? 1 : 0;
  info.unit_mode = request.dwDuplex == 1 ? 0x302 : request.dwDuplex == 2 ? 0x10302 : 0;
  info.preview = preview ? 1 : 0;
  info.encode_type = 1;
  return info;
}

}  // namespace vox::test
