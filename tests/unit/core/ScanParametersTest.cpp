// The request in device terms: rounding, clamping, and where extents and lengths come from.
#include "vox/drivers/ScanParameters.h"

#include <cmath>
#include <cstring>
#include <limits>

#include <gtest/gtest.h>

namespace vox {
namespace {

constexpr float kInfinity = std::numeric_limits<float>::infinity();

// A device of 200 to 600 dpi across and 100 to 400 dpi along the page.
tagSCANDEVINFO Device() {
  tagSCANDEVINFO device{};
  device.dwXResMin = 200;
  device.dwXResMax = 600;
  device.dwYResMin = 100;
  device.dwYResMax = 400;
  return device;
}

tagTWSCANPARAM A4(float x_resolution, float y_resolution, unsigned bits = 8) {
  tagTWSCANPARAM param{};
  param.fXResolution = x_resolution;
  param.fYResolution = y_resolution;
  param.dwImageWidth = 1111;
  param.dwImageLength = 2222;
  param.wBitsPerPixel = static_cast<std::uint16_t>(bits);
  param.wPixelType = bits == 1 ? 0 : bits == 8 ? 1 : 2;
  param.fRight = 8.27f;
  param.fBottom = 11.69f;
  return param;
}

_SCANINFO Prepared(const tagTWSCANPARAM& param, bool prescan = false) {
  _SCANINFO info;
  std::memset(&info, 0xA5, sizeof info);
  EXPECT_TRUE(prepare_scan_info(info, param, Device(), prescan));
  return info;
}

// Fields of the packed record are compared as copies, hence the unary plus below.
tagDVSCANPARAM Computed(const tagTWSCANPARAM& param) {
  tagDVSCANPARAM dv;
  std::memset(&dv, 0xA5, sizeof dv);
  compute_scan_param(dv, param, Device());
  return dv;
}

TEST(Round32, AddsAHalfInSinglePrecisionAndCuts) {
  const struct {
    float value;
    std::uint32_t rounded;
    const char* why;
  } rows[] = {
      {0.0f, 0, "nothing"},
      {299.5f, 300, "a half goes up"},
      {299.49f, 299, "less than a half goes down"},
      {0.49999997f, 1, "the sum itself rounds up to 1"},
      {-0.5f, 0, "toward zero"},
      {-1.0f, 0, "toward zero"},
      {-1.5f, 0xFFFFFFFF, "the pattern of -1"},
      {-50.0f, 0xFFFFFFCF, "the pattern of -49"},
      {8388609.0f, 8388610, "the sum has no room for a half"},
      {2147483648.0f, 0x80000000, "the top bit"},
      {3e9f, 0xB2D05E00, "above 2^31"},
      {4294967040.0f, 0xFFFFFF00, "the greatest that 32 bits hold"},
      {4294967296.0f, 0xFFFFFFFF, "2^32 is cut"},
      {kInfinity, 0xFFFFFFFF, "cut"},
      {-2147483648.0f, 0x80000000, "the least"},
      {-1e20f, 0x80000000, "cut"},
      {-kInfinity, 0x80000000, "cut"},
      {std::nanf(""), 0, "no number"},
      {8.27f * 300, 2481, "A4 across"},
      {11.69f * 300, 3507, "A4 along"},
  };
  for (const auto& row : rows) EXPECT_EQ(round32(row.value), row.rounded) << row.why;
}

TEST(Truncate32, DropsTheFraction) {
  EXPECT_EQ(truncate32(299.99f), 299u);
  EXPECT_EQ(truncate32(-0.9f), 0u);
  EXPECT_EQ(truncate32(-1.9f), 0xFFFFFFFFu);
  EXPECT_EQ(truncate32(3e9f), 0xB2D05E00u);
}

TEST(Round16, KeepsTheLowHalfOfTheSignedValue) {
  EXPECT_EQ(round16(12.5f), 13);
  EXPECT_EQ(round16(-50.0f), -49);
  EXPECT_EQ(round16(-1000.0f), -999);
  EXPECT_EQ(round16(65536.0f + 7), 7);
  EXPECT_EQ(round16(3e9f), -1) << "cut to 0x7FFFFFFF first";
  EXPECT_EQ(round16(std::nanf("")), 0);
}

TEST(PrepareScan, ClampsEachAxisIntoTheDevicesRange) {
  const _SCANINFO low = Prepared(A4(150, 50));
  EXPECT_EQ(low.Xresolution, 200u);
  EXPECT_EQ(low.Yresolution, 100u);
  const _SCANINFO high = Prepared(A4(1200, 1200));
  EXPECT_EQ(high.Xresolution, 600u);
  EXPECT_EQ(high.Yresolution, 400u);
  const _SCANINFO within = Prepared(A4(299.5f, 299.49f));
  EXPECT_EQ(within.Xresolution, 300u);
  EXPECT_EQ(within.Yresolution, 299u);
}

TEST(PrepareScan, NegativeResolutionIsHugeWhenUnsigned) {
  EXPECT_EQ(Prepared(A4(-300, 100)).Xresolution, 600u);
}

TEST(PrepareScan, BelowTheRangeTheExtentsComeFromTheFrame) {
  const _SCANINFO info = Prepared(A4(150, 150, 1));
  EXPECT_EQ(info.Xresolution, 200u);
  EXPECT_EQ(info.DataType, 2u) << "grey, reduced to bilevel later";
  EXPECT_EQ(info.Window.xExtent, 1654u);
  EXPECT_EQ(info.Window.yExtent, 1753u) << "11.69f in at 150 dpi are just under 1753.5";
}

TEST(PrepareScan, WithinTheRangeTheExtentsAreTheClients) {
  const _SCANINFO info = Prepared(A4(300, 300));
  EXPECT_EQ(info.Window.xExtent, 1111u);
  EXPECT_EQ(info.Window.yExtent, 2222u);
}

TEST(PrepareScan, YExtentFollowsTheTestOfX) {
  const _SCANINFO info = Prepared(A4(300, 600, 1));
  EXPECT_EQ(info.Yresolution, 400u);
  EXPECT_EQ(info.Window.yExtent, 2222u) << "the client's count though Y was clamped";
  EXPECT_EQ(info.DataType, 2u) << "either axis makes a bilevel page grey";
}

TEST(PrepareScan, DataTypeFollowsTheDepth) {
  EXPECT_EQ(Prepared(A4(300, 300, 1)).DataType, 0u);
  EXPECT_EQ(Prepared(A4(299.6f, 300, 1)).DataType, 0u) << "rounded, it was not clamped";
  EXPECT_EQ(Prepared(A4(300, 300, 8)).DataType, 2u);
  EXPECT_EQ(Prepared(A4(300, 300, 24)).DataType, 3u);
}

TEST(PrepareScan, OtherDepthIsRefusedWithTheResolutionsFilled) {
  for (const unsigned bits : {0u, 2u, 4u, 16u, 25u, 32u, 65535u}) {
    _SCANINFO info;
    std::memset(&info, 0xA5, sizeof info);
    tagTWSCANPARAM param = A4(300, 50, bits);
    param.dwDuplex = 1;
    EXPECT_FALSE(prepare_scan_info(info, param, Device(), true)) << bits;
    _SCANINFO expected{};
    expected.Xresolution = 300;
    expected.Yresolution = 100;
    EXPECT_EQ(std::memcmp(&info, &expected, sizeof info), 0) << bits;
  }
}

TEST(PrepareScan, PositionIsCutAndExtentsAreRounded) {
  tagTWSCANPARAM param = A4(75, 75);
  param.fLeft = 0.1f;
  param.fTop = 0.1f;
  tagSCANDEVINFO device = Device();
  device.dwXResMin = device.dwYResMin = 75;
  _SCANINFO info;
  ASSERT_TRUE(prepare_scan_info(info, param, device, false));
  EXPECT_EQ(info.Window.xPos, 7u) << "7.5 pixels";
  EXPECT_EQ(info.Window.yPos, 7u);
  tagDVSCANPARAM dv{};
  compute_scan_param(dv, param, device);
  EXPECT_EQ(+dv.dwLeft, 8u) << "the same 7.5 pixels";
  EXPECT_EQ(+dv.dwTop, 8u);
}

TEST(PrepareScan, BrightnessAndContrastAreTheirPatterns) {
  tagTWSCANPARAM param = A4(300, 300);
  param.fBrightness = -50;
  param.fContrast = 12.5f;
  const _SCANINFO info = Prepared(param);
  EXPECT_EQ(info.Intensity, 0xFFFFFFCFu);
  EXPECT_EQ(info.Contrast, 13u);
}

TEST(PrepareScan, UnitModeFollowsTheDuplexSelector) {
  const struct {
    std::uint32_t duplex, mode;
  } rows[] = {{0, 0}, {1, 0x302}, {2, 0x10302}, {3, 0}, {0xFFFFFFFF, 0}};
  for (const auto& row : rows) {
    tagTWSCANPARAM param = A4(300, 300);
    param.dwDuplex = row.duplex;
    EXPECT_EQ(Prepared(param).dwScanUnitMode, row.mode) << row.duplex;
  }
}

TEST(PrepareScan, OnlyAUserDefinedSizeOfOneAsksForAlignment) {
  tagTWSCANPARAM param = A4(300, 300);
  EXPECT_EQ(Prepared(param).bNeedDataAlignment, 0u);
  param.wIsUserDefineSize = 1;
  EXPECT_EQ(Prepared(param).bNeedDataAlignment, 1u);
  param.wIsUserDefineSize = 2;
  EXPECT_EQ(Prepared(param).bNeedDataAlignment, 0u);
}

TEST(PrepareScan, PreviewIsMarked) {
  EXPECT_EQ(Prepared(A4(300, 300), true).dwPreScanFlag, 1u);
  EXPECT_EQ(Prepared(A4(300, 300), false).dwPreScanFlag, 0u);
}

TEST(PrepareScan, WhatTheTransportsSettleIsZero) {
  const _SCANINFO info = Prepared(A4(300, 300));
  EXPECT_EQ(info.dwEncodeType, 0u);
  EXPECT_EQ(info.MaxBufferSize, 0u);
  EXPECT_EQ(info.ADF, 0u);
  EXPECT_EQ(info.dwLeftCutMargin, 0u);
  EXPECT_EQ(info.dwAngle, 0u);
  EXPECT_EQ(info.byJbigLineTemplate, 0u);
  EXPECT_EQ(info.dwFirmSW, 0u);
  for (const std::uint32_t reserved : info.dwHostReseved) EXPECT_EQ(reserved, 0u);
}

TEST(PrepareScan, DeviceThatReportedNothingGivesEmptyResolutions) {
  _SCANINFO info;
  ASSERT_TRUE(prepare_scan_info(info, A4(300, 300), tagSCANDEVINFO{}, false));
  EXPECT_EQ(info.Xresolution, 0u);
  EXPECT_EQ(info.Window.xExtent, 0u);
  tagDVSCANPARAM dv{};
  compute_scan_param(dv, A4(300, 300), tagSCANDEVINFO{});
  EXPECT_EQ(+dv.dwImageWidth, 0u);
  const float conversion = dv.fXResConv;
  EXPECT_EQ(conversion, kInfinity);
}

TEST(GetScanParam, WidthComesFromTheFrameAlways) {
  const tagDVSCANPARAM dv = Computed(A4(300, 300));
  EXPECT_EQ(+dv.dwXResolution, 300u);
  EXPECT_EQ(+dv.dwImageWidth, 2481u);
  EXPECT_EQ(+dv.dwImageLength, 2222u) << "the client's";
  EXPECT_EQ(+dv.dwRight, 2481u);
  EXPECT_EQ(+dv.dwBottom, 3507u);
}

TEST(GetScanParam, LengthComesFromTheFrameWhenOnlyYIsClamped) {
  const tagDVSCANPARAM dv = Computed(A4(300, 600));
  EXPECT_EQ(+dv.dwYResolution, 400u);
  EXPECT_EQ(+dv.dwImageLength, 4676u);
}

TEST(GetScanParam, LengthTestCutsTheResolutionInsteadOfRounding) {
  EXPECT_EQ(+Computed(A4(300, 299.6f)).dwImageLength, 3507u) << "299 is not 300";
  EXPECT_EQ(+Computed(A4(300, 300.4f)).dwImageLength, 2222u);
}

TEST(GetScanParam, PixelTypeFollowsTheClients) {
  EXPECT_EQ(+Computed(A4(300, 300, 8)).dwPixelType, 2u);
  EXPECT_EQ(+Computed(A4(300, 300, 24)).dwPixelType, 3u);
  EXPECT_EQ(+Computed(A4(300, 300, 1)).dwPixelType, 0u);
  EXPECT_EQ(+Computed(A4(150, 300, 1)).dwPixelType, 2u) << "converted: grey";
  tagTWSCANPARAM halftone = A4(150, 300, 1);
  halftone.wBitDepthReduction = 3;
  EXPECT_EQ(+Computed(halftone).dwPixelType, 1u);
}

TEST(GetScanParam, OtherPixelTypeKeepsWhatWasThere) {
  tagTWSCANPARAM param = A4(300, 300);
  param.wPixelType = 3;
  EXPECT_EQ(+Computed(param).dwPixelType, 0xA5A5A5A5u);
}

TEST(GetScanParam, LineSizeCountsBits) {
  EXPECT_EQ(+Computed(A4(300, 300, 24)).dwLineSize, 2481u * 24);
  EXPECT_EQ(+Computed(A4(300, 300, 1)).dwLineSize, 2481u);
  EXPECT_EQ(+Computed(A4(150, 300, 1)).dwLineSize, 1654u * 8) << "bilevel by way of grey";
  tagTWSCANPARAM halftone = A4(150, 300, 1);
  halftone.wBitDepthReduction = 1;
  EXPECT_EQ(+Computed(halftone).dwLineSize, 1654u);
}

TEST(GetScanParam, RemainingSizeWraps) {
  const tagDVSCANPARAM dv = Computed(A4(600, 400, 24));
  EXPECT_EQ(+dv.dwRemainSize, dv.dwLineSize * dv.dwImageLength);
  tagTWSCANPARAM huge = A4(600, 400, 24);
  huge.dwImageLength = 0x10000000;
  EXPECT_EQ(+Computed(huge).dwRemainSize,
            static_cast<std::uint32_t>(std::uint64_t{4962} * 24 * 0x10000000));
}

TEST(GetScanParam, ConversionAboveOneMeansEnlarging) {
  const tagDVSCANPARAM dv = Computed(A4(1200, 50));
  const float x = dv.fXResConv, y = dv.fYResConv;
  EXPECT_EQ(x, 2.0f);
  EXPECT_EQ(y, 0.5f);
}

TEST(GetScanParam, ResetsTheTransferFieldsAndLeavesTheTransports) {
  tagTWSCANPARAM param = A4(300, 300);
  param.wPlaneOrder = 4;
  param.wIsUserDefineSize = 1;
  param.fBrightness = -50;
  param.fContrast = -1000;
  const tagDVSCANPARAM dv = Computed(param);
  EXPECT_EQ(+dv.wPlaneOrder, 0);
  EXPECT_EQ(+dv.dwLineIndex, 0u);
  EXPECT_EQ(+dv.wNegative, 0);
  EXPECT_EQ(+dv.wMirror, 0);
  EXPECT_EQ(+dv.iLeftOfst, 0);
  EXPECT_EQ(+dv.wIsUserDefineSize, 1);
  EXPECT_EQ(+dv.nBrightness, -49);
  EXPECT_EQ(+dv.nContrast, -999);
  EXPECT_EQ(+dv.dwBufSize, 0xA5A5A5A5u);
  EXPECT_EQ(+dv.wADF, 0xA5A5);
  EXPECT_EQ(+dv.byThreshhold, 0xA5);
  EXPECT_EQ(+dv.dwLineBytes, 0xA5A5A5A5u);
  EXPECT_EQ(+dv.wXferMech, 0xA5A5);
  EXPECT_EQ(+dv.dwAngle, 0xA5A5A5A5u);
  EXPECT_EQ(+dv.byEncodeHeaderSize, 0xA5);
}

}  // namespace
}  // namespace vox
