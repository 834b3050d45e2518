// Ask writes scan requests: Ask::Grey().Dpi(150).Frame(0, 0, 2, 1.5). Pixels and lines are those of
// the frame at the asked resolution unless they are given.
//
// Units: dots per inch, inches. Thread rule: plain values.
#pragma once

#include <cstdint>
#include <optional>

#include "vox/drivers/ScanRecords.h"

namespace vox::test {

class Ask {
 public:
  static Ask Lineart() { return Ask(0, 1); }
  static Ask Grey() { return Ask(1, 8); }
  static Ask Colour() { return Ask(2, 24); }
  static Ask Depth(unsigned bits) { return bits == 1 ? Lineart() : bits == 8 ? Grey() : Colour(); }

  Ask& Dpi(float both) { return Dpi(both, both); }
  Ask& Dpi(float x, float y) {
    record_.fXResolution = x;
    record_.fYResolution = y;
    return *this;
  }
  Ask& Frame(float left, float top, float right, float bottom) {
    record_.fLeft = left;
    record_.fTop = top;
    record_.fRight = right;
    record_.fBottom = bottom;
    return *this;
  }
  Ask& Lines(std::uint32_t lines) {
    lines_ = lines;
    return *this;
  }
  Ask& PlaneOrder(unsigned order) {
    record_.wPlaneOrder = static_cast<std::uint16_t>(order);
    return *this;
  }
  Ask& Duplex(std::uint32_t mode) {
    record_.dwDuplex = mode;
    return *this;
  }
  Ask& Brightness(float value) {
    record_.fBrightness = value;
    return *this;
  }
  Ask& UserSize() {
    record_.wIsUserDefineSize = 1;
    return *this;
  }

  operator tagTWSCANPARAM() const {  // NOLINT(google-explicit-constructor): a request is the record
    tagTWSCANPARAM record = record_;
    record.dwImageWidth = Pixels(record.fRight - record.fLeft, record.fXResolution);
    record.dwImageLength =
        lines_.value_or(Pixels(record.fBottom - record.fTop, record.fYResolution));
    record.dwLineSize = (record.dwImageWidth * record.wBitsPerPixel + 7) / 8;
    return record;
  }

 private:
  Ask(unsigned pixel_type, unsigned bits) {
    record_.wPixelType = static_cast<std::uint16_t>(pixel_type);
    record_.wBitsPerPixel = static_cast<std::uint16_t>(bits);
    record_.wSamplesPerPixel = bits == 24 ? 3 : 1;
    Dpi(150).Frame(0, 0, 2, 1.5);
  }
  static std::uint32_t Pixels(float inches, float dpi) {
    return static_cast<std::uint32_t>(inches * dpi + 0.5f);
  }

  tagTWSCANPARAM record_{};
  std::optional<std::uint32_t> lines_;
};

}  // namespace vox::test
