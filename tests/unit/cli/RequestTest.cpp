// From options and a device to the record that the scan interface takes.
#include <cmath>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tools/vox/Failure.h"
#include "tools/vox/LineReducer.h"
#include "tools/vox/Request.h"

namespace vox::cli::test {
namespace {

using testing::DoubleNear;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

// A device and a wish, and what becomes of them.
class RequestTest : public testing::Test {
 protected:
  RequestTest() {
    device.dwXResMin = device.dwYResMin = 100;
    device.dwXResMax = device.dwYResMax = 600;
    device.dwXResPre[0] = device.dwYResPre[0] = 75;
    device.byImageTypes = 7;
    device.byPaperSources = 3;
    device.dwPhysicalWidth = 85000;
    device.dwPhysicalHeight = 117000;
    device.dwDuplex = 2;
  }
  ScanPlan Plan() const { return PlanScan(options, {device, {}}); }
  std::string Refusal() const {
    try {
      Plan();
    } catch (const Failure& failure) {
      EXPECT_EQ(failure.Status(), ExitStatus::kCannot);
      return failure.what();
    }
    return "accepted";
  }
  void Ask(Mode mode, unsigned dpi) {
    options.mode = mode;
    options.resolution = Resolution{dpi, dpi};
  }

  ScanOptions options;
  tagSCANDEVINFO device{};
};

TEST_F(RequestTest, WithoutAWishTheWholeBedComesInTheBestModeAt300Dpi) {
  const ScanPlan plan = Plan();
  EXPECT_EQ(plan.mode, Mode::kColor);
  EXPECT_EQ(plan.request.wPixelType, 2);
  EXPECT_EQ(plan.request.wBitsPerPixel, 24);
  EXPECT_EQ(plan.request.wSamplesPerPixel, 3);
  EXPECT_THAT(plan.request.wBitsPerSample, ElementsAre(8, 8, 8, 0, 0, 0, 0, 0));
  EXPECT_EQ(plan.request.fXResolution, 300);
  EXPECT_EQ(plan.request.dwImageWidth, 2550U);
  EXPECT_EQ(plan.request.dwImageLength, 3510U);
  EXPECT_EQ(plan.request.dwLineSize, 7650U);
  EXPECT_EQ(plan.request.fRight, 8.5F);
  EXPECT_EQ(plan.request.fBottom, 11.7F);
  EXPECT_EQ(plan.request.fPhysicalWidth, 8.5F);
  EXPECT_EQ(plan.request.wIsUserDefineSize, 0);
  EXPECT_EQ(plan.request.dwDuplex, 0U);
  EXPECT_THAT(plan.notes, IsEmpty());
}

TEST_F(RequestTest, TheBestModeIsTheDevicesBest) {
  device.byImageTypes = 3;
  EXPECT_EQ(Plan().mode, Mode::kGray);
  device.byImageTypes = 1;
  EXPECT_EQ(Plan().mode, Mode::kLineart);
  EXPECT_EQ(Plan().page.bits, 1U);
}

TEST_F(RequestTest, AModeThatIsMissingIsRefusedWithThoseThatAreThere) {
  device.byImageTypes = 3;
  Ask(Mode::kColor, 300);
  EXPECT_EQ(Refusal(), "the device cannot scan in color; it can in lineart gray");
  device.byImageTypes = 0;
  EXPECT_THAT(Refusal(), HasSubstr("names no mode"));
}

struct Width {
  double right;  // mm
  unsigned dpi;
  std::uint32_t lineart, gray;
  const char* reason;
};

TEST_F(RequestTest, BlackAndWhiteLinesHoldWholeBytes) {
  const Width rows[] = {
      {50, 300, 592, 591, "591 pixels are rounded up to whole bytes"},
      {215.9, 300, 2544, 2550, "at the bed's edge they are rounded down"},
      {215.9, 600, 5096, 5100, "likewise"},
      {25.4, 600, 600, 600, "whole bytes stay"},
      {0.1, 300, 8, 1, "a single pixel"},
  };
  for (const Width& row : rows) {
    options.frame = Frame{0, 0, row.right / 25.4, 1};
    Ask(Mode::kLineart, row.dpi);
    ScanPlan plan = Plan();
    EXPECT_EQ(plan.request.dwImageWidth, row.lineart) << row.reason;
    EXPECT_EQ(plan.request.dwLineSize, row.lineart / 8) << row.reason;
    EXPECT_EQ(plan.page.width, row.lineart) << row.reason;
    // The library counts the width from the frame again.
    EXPECT_EQ(static_cast<std::uint32_t>(
                  (plan.request.fRight - plan.request.fLeft) * static_cast<float>(row.dpi) + 0.5F),
              row.lineart)
        << row.reason;
    Ask(Mode::kGray, row.dpi);
    EXPECT_EQ(Plan().request.dwImageWidth, row.gray) << row.reason;
  }
}

TEST_F(RequestTest, EveryWidthAndPlaceCountsTheSameInTheLibrary) {
  for (unsigned dpi : {75U, 150U, 300U, 600U, 1200U}) {
    for (int left = 0; left < 180; left += 7) {
      for (double width = 0.5; width < 40; width += 0.77) {
        options.frame = Frame{left / 25.4, 0, (left + width) / 25.4, 1};
        Ask(Mode::kLineart, dpi);
        const tagTWSCANPARAM request = Plan().request;
        const float again = (request.fRight - request.fLeft) * request.fXResolution + 0.5F;
        ASSERT_EQ(static_cast<std::uint32_t>(again), request.dwImageWidth)
            << dpi << " dpi, " << left << " mm + " << width;
        ASSERT_EQ(request.dwImageWidth % 8, 0U);
        ASSERT_LE(request.fRight, 8.5F);
      }
    }
  }
}

TEST_F(RequestTest, AreasAreCutAtTheBed) {
  options.frame = Frame{0, 0, 297 / 25.4, 420 / 25.4};
  options.paper = true;
  const ScanPlan plan = Plan();
  EXPECT_EQ(plan.request.fRight, 8.5F);
  EXPECT_EQ(plan.request.fBottom, 11.7F);
  ASSERT_EQ(plan.notes.size(), 1U);
  EXPECT_EQ(plan.notes[0], "the area reaches beyond the bed: 215.9 x 297.2 mm of it are scanned");
}

TEST_F(RequestTest, AHairBeyondTheBedIsNotWorthANote) {
  options.frame = Frame{0, 0, 216 / 25.4, 1};
  EXPECT_THAT(Plan().notes, IsEmpty());
  EXPECT_EQ(Plan().request.fRight, 8.5F);
}

TEST_F(RequestTest, AnAreaBesideTheBedIsRefused) {
  options.frame = Frame{9, 0, 10, 1};
  EXPECT_EQ(Refusal(), "the area lies beside the bed, which is 215.9 x 297.2 mm");
  options.frame = Frame{0, 12, 1, 13};
  EXPECT_THAT(Refusal(), HasSubstr("beside the bed"));
}

TEST_F(RequestTest, AnAreaWithoutAPixelIsRefused) {
  options.frame = Frame{1, 1, 1.001, 2};
  Ask(Mode::kGray, 100);
  EXPECT_THAT(Refusal(), HasSubstr("holds no pixel"));
}

TEST_F(RequestTest, ADeviceThatDoesNotSayItsBedNeedsAnArea) {
  device.dwPhysicalWidth = 0;
  EXPECT_THAT(Refusal(), HasSubstr("name an area"));
  options.frame = Frame{0, 0, 2, 3};
  EXPECT_EQ(Plan().request.fBottom, 3);
}

// What the sources have in common is shorter than each of them.
TEST_F(RequestTest, TheBedIsThatOfTheSourceInUse) {
  tagSCANDEVINFO flatbed = device, feeder = device, common = device;
  flatbed.byPaperSources = 1;
  feeder.byPaperSources = 2;
  feeder.dwPhysicalHeight = 140000;
  common.dwPhysicalHeight = 85000;
  Abilities abilities{common, {flatbed, feeder}};
  EXPECT_EQ(PlanScan(options, abilities).request.fBottom, 11.7F);
  abilities.units[1].byAdfPaper = 1;
  EXPECT_EQ(PlanScan(options, abilities).request.fBottom, 14) << "a loaded feeder wins";
  abilities.units = {feeder};
  EXPECT_EQ(PlanScan(options, abilities).request.fBottom, 14) << "a feeder alone";
  abilities.units.clear();
  EXPECT_EQ(PlanScan(options, abilities).request.fBottom, 8.5F);
}

TEST_F(RequestTest, OnlyAFrameIsAUserDefinedSize) {
  options.frame = Frame{0, 0, 2, 3};
  EXPECT_EQ(Plan().request.wIsUserDefineSize, 1);
  options.paper = true;
  EXPECT_EQ(Plan().request.wIsUserDefineSize, 0);
}

TEST_F(RequestTest, ResolutionsBesideTheRangeArePassedOn) {
  for (const unsigned dpi : {50U, 1200U}) {
    Ask(Mode::kGray, dpi);
    const ScanPlan plan = Plan();
    EXPECT_EQ(plan.request.fXResolution, static_cast<float>(dpi));
    EXPECT_EQ(plan.request.fYResolution, static_cast<float>(dpi));
    EXPECT_EQ(plan.request.dwImageLength, static_cast<std::uint32_t>(std::lround(11.7 * dpi)));
    EXPECT_EQ(plan.page.x_dpi, dpi);
    EXPECT_THAT(plan.notes, IsEmpty());
  }
}

// The library counts the window's lines from the client's when only the vertical resolution lies
// outside: the page would come out squeezed.
TEST_F(RequestTest, AVerticalResolutionAloneBesideTheRangeIsBroughtIn) {
  options.resolution = Resolution{300, 1200};
  const ScanPlan plan = Plan();
  EXPECT_EQ(plan.request.fYResolution, 600);
  EXPECT_EQ(plan.request.dwImageLength, 7020U);
  EXPECT_EQ(plan.page.y_dpi, 600);
  ASSERT_EQ(plan.notes.size(), 1U);
  EXPECT_THAT(plan.notes[0], HasSubstr("300x600 dpi"));
}

TEST_F(RequestTest, AUsualResolutionLiesInTheRange) {
  device.dwXResMax = device.dwYResMax = 200;
  EXPECT_EQ(Plan().request.fXResolution, 200);
  device.dwXResMin = device.dwYResMin = device.dwXResMax = device.dwYResMax = 400;
  EXPECT_EQ(Plan().request.fXResolution, 400);
  device.dwXResMin = device.dwYResMin = device.dwXResMax = device.dwYResMax = 0;
  EXPECT_EQ(Plan().request.fXResolution, 300) << "a device that does not say its range";
}

TEST_F(RequestTest, APreviewHasTheDevicesPreviewResolution) {
  options.preview = true;
  EXPECT_EQ(Plan().request.fXResolution, 75);
  device.dwXResPre[0] = device.dwYResPre[0] = 0;
  EXPECT_EQ(Plan().request.fXResolution, 75);
  options.resolution = Resolution{150, 150};
  EXPECT_EQ(Plan().request.fXResolution, 150);
}

TEST_F(RequestTest, BothSidesAreTheUnitModeThatTheDeviceNames) {
  options.duplex = true;
  EXPECT_EQ(Plan().request.dwDuplex, 2U);
  device.dwDuplex = 1;
  EXPECT_EQ(Plan().request.dwDuplex, 1U);
  device.dwDuplex = 0;
  EXPECT_EQ(Refusal(), "the device cannot scan both sides; leave --duplex out");
}

TEST_F(RequestTest, ToneIsPassedOn) {
  options.brightness = -20;
  options.contrast = 35;
  EXPECT_EQ(Plan().request.fBrightness, -20);
  EXPECT_EQ(Plan().request.fContrast, 35);
  EXPECT_EQ(Plan().request.fThreshold, 128);
  EXPECT_EQ(Plan().request.wBitDepthReduction, 0);
}

TEST_F(RequestTest, AThresholdOfOnesOwnScansGrayAndWritesBlackAndWhite) {
  Ask(Mode::kLineart, 300);
  options.threshold = 90;
  const ScanPlan plan = Plan();
  EXPECT_EQ(plan.mode, Mode::kLineart);
  EXPECT_EQ(plan.request.wBitsPerPixel, 8);
  EXPECT_EQ(plan.request.wPixelType, 1);
  EXPECT_EQ(plan.request.dwLineSize, 2550U);
  EXPECT_EQ(plan.request.fThreshold, 90);
  EXPECT_EQ(plan.page.bits, 1U);
  EXPECT_EQ(plan.page.width, 2550U);
  EXPECT_EQ(plan.reduction, Reduction::kThreshold);
  device.byImageTypes = 1;
  EXPECT_THAT(Refusal(), HasSubstr("cannot scan in gray"));
}

TEST_F(RequestTest, AHalftoneScansGrayAndWritesBlackAndWhite) {
  Ask(Mode::kLineart, 300);
  options.halftone = true;
  const ScanPlan plan = Plan();
  EXPECT_EQ(plan.request.wBitsPerPixel, 8);
  EXPECT_EQ(plan.request.wBitDepthReduction, 1);
  EXPECT_EQ(plan.reduction, Reduction::kHalftone);
}

TEST(LineReducerTest, LinesPassWhenNothingIsToBeReduced) {
  LineReducer reducer(Reduction::kNone, 0, 3);
  const std::vector<std::uint8_t> line{1, 2, 3};
  EXPECT_EQ(reducer.Reduce(line).data(), line.data());
}

TEST(LineReducerTest, TheThresholdItselfIsWhite) {
  LineReducer reducer(Reduction::kThreshold, 90, 9);
  const std::vector<std::uint8_t> line{89, 90, 91, 0, 255, 89, 90, 0, 90};
  EXPECT_THAT(reducer.Reduce(line), ElementsAre(0b01101010, 0b10000000));
}

TEST(LineReducerTest, AHalftoneKeepsTheMeanGray) {
  for (const int grey : {0, 32, 64, 128, 200, 255}) {
    LineReducer reducer(Reduction::kHalftone, 0, 200);
    const std::vector<std::uint8_t> line(200, static_cast<std::uint8_t>(grey));
    int white = 0;
    for (int y = 0; y < 200; ++y) {
      for (const std::uint8_t byte : reducer.Reduce(line)) white += __builtin_popcount(byte);
    }
    EXPECT_THAT(white * 255.0 / 40000, DoubleNear(grey, 2)) << grey;
  }
}

}  // namespace
}  // namespace vox::cli::test
