// Drawing: resampling, reduction, margins, plane orders, turning.
#include "sim/Render.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "tests/unit/sim/ScriptedHost.h"

namespace vox::sim {
namespace {

Image MakeImage(std::uint32_t width, std::uint32_t height, std::uint32_t channels, Bytes samples,
                std::uint32_t dpi = 100) {
  return {width, height, channels, dpi * 1000, dpi * 1000, std::move(samples)};
}

ScanInfo Request(std::uint32_t type, std::uint32_t width, std::uint32_t height,
                 std::uint32_t dpi = 100) {
  ScanInfo info;
  info.data_type = type;
  info.x_resolution = info.y_resolution = dpi;
  info.x_extent = width;
  info.y_extent = height;
  return info;
}

Bytes Draw(const Image& image, const ScanInfo& info, const RenderOptions& options = {}) {
  return RenderPage(MakeImagePage(image), info, options);
}

const Image kRow = MakeImage(4, 1, 1, {0, 100, 200, 255});

TEST(Render, AtItsOwnResolutionAnImageIsItself) {
  EXPECT_EQ(Draw(kRow, Request(kGrey, 4, 1)), (Bytes{0, 100, 200, 255}));
  const Image colour = MakeImage(2, 1, 3, {1, 2, 3, 4, 5, 6});
  EXPECT_EQ(Draw(colour, Request(kColour, 2, 1)), (Bytes{1, 2, 3, 4, 5, 6}));
}

TEST(Render, BeyondThePageAllIsWhite) {
  EXPECT_EQ(Draw(kRow, Request(kGrey, 6, 2)),
            (Bytes{0, 100, 200, 255, 255, 255, 255, 255, 255, 255, 255, 255}));
  ScanInfo left = Request(kGrey, 3, 1);
  left.left_cut_margin = 2;  // two pixels left of the page
  EXPECT_EQ(Draw(kRow, left), (Bytes{255, 255, 0}));
}

TEST(Render, TheWindowIsWhereItWasAsked) {
  const Image image = MakeImage(2, 2, 1, {1, 2, 3, 4});
  ScanInfo info = Request(kGrey, 1, 1);
  info.x_pos = 1;
  info.y_pos = 1;
  EXPECT_EQ(Draw(image, info), (Bytes{4}));
}

TEST(Render, ACoarserRasterAveragesWhatLiesUnderAPixel) {
  EXPECT_EQ(Draw(kRow, Request(kGrey, 2, 1, 50)), (Bytes{50, 228}));
  const Image square = MakeImage(2, 2, 1, {0, 100, 200, 255});
  EXPECT_EQ(Draw(square, Request(kGrey, 1, 1, 50)), (Bytes{139}));
}

TEST(Render, AFinerRasterBlendsNeighbours) {
  // Pixel centres lie at 1/4 and 3/4 of a sample; the ends are not extrapolated.
  EXPECT_EQ(Draw(MakeImage(2, 1, 1, {0, 200}), Request(kGrey, 4, 1, 200)),
            (Bytes{0, 50, 150, 200}));
  EXPECT_EQ(Draw(MakeImage(1, 2, 1, {0, 200}), Request(kGrey, 1, 4, 200)),
            (Bytes{0, 50, 150, 200}));
}

TEST(Render, AxesMayHaveResolutionsOfTheirOwn) {
  ScanInfo info = Request(kGrey, 4, 2);
  info.y_resolution = 200;
  EXPECT_EQ(Draw(kRow, info), (Bytes{0, 100, 200, 255, 0, 100, 200, 255}));
}

TEST(Render, ColourBecomesGreyByItsLuma) {
  const Image colours = MakeImage(3, 1, 3, {255, 0, 0, 0, 255, 0, 0, 0, 255});
  EXPECT_EQ(Draw(colours, Request(kGrey, 3, 1)), (Bytes{77, 149, 29}));
  const Image ends = MakeImage(2, 1, 3, {0, 0, 0, 255, 255, 255});
  EXPECT_EQ(Draw(ends, Request(kGrey, 2, 1)), (Bytes{0, 255}));
}

TEST(Render, ABilevelLineHasItsFirstPixelOnTopAndOneForWhite) {
  const Image image = MakeImage(8, 1, 1, {255, 0, 0, 0, 128, 127, 0, 255});
  EXPECT_EQ(Draw(image, Request(kBilevel, 8, 1)), (Bytes{0x89}));
}

TEST(Render, TheThresholdOfTheScanInformationWins) {
  const Image image = MakeImage(8, 1, 1, {100, 101, 102, 103, 104, 105, 106, 107});
  EXPECT_EQ(Draw(image, Request(kBilevel, 8, 1), {.threshold = 104}), (Bytes{0x0F}));
  ScanInfo info = Request(kBilevel, 8, 1);
  info.dither_pattern = 102;
  EXPECT_EQ(Draw(image, info, {.threshold = 104}), (Bytes{0x3F}));
}

TEST(Render, ABilevelLineIsCutAtTheWholeByte) {
  EXPECT_EQ(Draw(MakeImage(1, 1, 1, {0}), Request(kBilevel, 15, 2)), (Bytes{0x7F, 0xFF}));
}

TEST(Render, BrightnessMovesAndContrastStretches) {
  const Image image = MakeImage(3, 1, 1, {0, 128, 255});
  const auto with = [&](std::int32_t brightness, std::int32_t contrast) {
    ScanInfo info = Request(kGrey, 3, 1);
    info.intensity = static_cast<std::uint32_t>(brightness);
    info.contrast = static_cast<std::uint32_t>(contrast);
    return Draw(image, info);
  };
  EXPECT_EQ(with(0, 0), (Bytes{0, 128, 255}));
  EXPECT_EQ(with(20, 0), (Bytes{51, 179, 255}));
  EXPECT_EQ(with(-20, 0), (Bytes{0, 77, 204}));
  EXPECT_EQ(with(100, 0), (Bytes{255, 255, 255}));
  EXPECT_EQ(with(-100, 0), (Bytes{0, 0, 0}));
  EXPECT_EQ(with(5000, 0), with(100, 0));
  EXPECT_EQ(with(0, 100), (Bytes{0, 255, 255}));
  EXPECT_EQ(with(0, -100), (Bytes{127, 127, 127}));
  EXPECT_EQ(with(0, -50), (Bytes{64, 127, 191}));
}

TEST(Render, NegativeAndMirror) {
  ScanInfo info = Request(kGrey, 4, 1);
  info.negative = 1;
  EXPECT_EQ(Draw(kRow, info), (Bytes{255, 155, 55, 0}));
  info.negative = 0;
  info.mirror = 1;
  EXPECT_EQ(Draw(kRow, info), (Bytes{255, 200, 100, 0}));
}

TEST(Render, PlaneOrdersPutPlanesWhereAHostUndoesThem) {
  const Image image = MakeImage(1, 1, 3, {10, 20, 30});
  for (std::uint32_t order = 0; order < 6; ++order) {
    const Bytes sent = Draw(image, Request(kColour, 1, 1), {.plane_order = order});
    Bytes undone(3);
    // What hosts do: byte k of the line goes to byte order[k] of the pixel.
    for (std::size_t k = 0; k < 3; ++k) undone[kPlaneOrders[order][k]] = sent[k];
    EXPECT_EQ(undone, (Bytes{10, 20, 30})) << order;
  }
  EXPECT_EQ(Draw(image, Request(kColour, 1, 1), {.plane_order = 3}), (Bytes{20, 30, 10}));
}

TEST(Render, ATurnedPageBeginsWithItsLastLineMirrored) {
  const Image image = MakeImage(2, 2, 3, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12});
  ScanInfo info = Request(kColour, 2, 2);
  info.angle = 180;
  EXPECT_EQ(Draw(image, info), (Bytes{10, 11, 12, 7, 8, 9, 4, 5, 6, 1, 2, 3}));
  info.preview = 1;  // hosts do not turn previews
  EXPECT_EQ(Draw(image, info), (Bytes{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}));
}

TEST(Render, TurningABilevelLineReversesBytesAndBits) {
  Bytes line = {0x12, 0x34};
  TurnLine(kBilevel, line);
  EXPECT_EQ(line, (Bytes{0x2C, 0x48}));
  TurnLine(kBilevel, line);
  EXPECT_EQ(line, (Bytes{0x12, 0x34}));
  Bytes grey = {1, 2, 3};
  TurnLine(kGrey, grey);
  EXPECT_EQ(grey, (Bytes{3, 2, 1}));
}

TEST(Render, BelowTheReachOfTheDeviceAllIsWhite) {
  const Image image = MakeImage(1, 4, 1, {1, 2, 3, 4});
  EXPECT_EQ(Draw(image, Request(kGrey, 1, 4), {.physical_height = 200}), (Bytes{1, 2, 255, 255}));
}

TEST(Render, ALineAloneIsTheLineOfThePage) {
  const PagePtr chart = MakeTestChart({20000, 20000});
  for (const std::uint32_t angle : {0u, 180u}) {
    ScanInfo info = Request(kBilevel, 200, 200);
    info.angle = angle;
    const Bytes page = RenderPage(chart, info, {});
    for (const std::uint32_t y : {0u, 57u, 199u}) {
      const Bytes line = RenderLine(chart, info, {}, y);
      EXPECT_TRUE(std::equal(line.begin(), line.end(), page.begin() + 25 * y)) << y;
    }
  }
}

class Chart : public ::testing::Test {
 protected:
  Bytes At(std::uint32_t dpi, std::uint32_t type = kGrey) {
    return RenderPage(chart_, Request(type, dpi * 85 / 10, dpi * 117 / 10, dpi), {});
  }
  const PagePtr chart_ = MakeTestChart({85000, 117000}, 42);
};

TEST_F(Chart, NoTurningOrMirroringLeavesItAsItIs) {
  const Bytes upright = At(100);
  const std::size_t width = 850;
  Bytes turned(upright.rbegin(), upright.rend());
  EXPECT_NE(turned, upright);
  Bytes mirrored = upright;
  for (auto row = mirrored.begin(); row != mirrored.end(); row += width) {
    std::reverse(row, row + width);
  }
  EXPECT_NE(mirrored, upright);
  Bytes flipped;
  for (std::size_t y = upright.size() / width; y-- > 0;) {
    flipped.insert(flipped.end(), upright.begin() + static_cast<std::ptrdiff_t>(y * width),
                   upright.begin() + static_cast<std::ptrdiff_t>((y + 1) * width));
  }
  EXPECT_NE(flipped, upright);
}

TEST_F(Chart, EveryToneAndEveryColourIsOnIt) {
  const Bytes grey = At(100);
  std::vector<bool> seen(256);
  for (const std::uint8_t level : grey) seen[level] = true;
  EXPECT_EQ(std::count(seen.begin(), seen.end(), true), 256);
  const Bytes rgb = At(50, kColour);
  const auto has = [&](std::uint8_t r, std::uint8_t g, std::uint8_t b) {
    for (std::size_t i = 0; i < rgb.size(); i += 3) {
      if (rgb[i] == r && rgb[i + 1] == g && rgb[i + 2] == b) return true;
    }
    return false;
  };
  EXPECT_TRUE(has(255, 0, 0) && has(0, 255, 0) && has(0, 0, 255));
  EXPECT_TRUE(has(0, 255, 255) && has(255, 0, 255) && has(255, 255, 0));
}

TEST_F(Chart, ItsShapesStandAtTheSamePlaceAtEveryResolution) {
  // The middle of the left bar is black, the right edge opposite is white.
  for (const std::uint32_t dpi : {75u, 100u, 300u, 600u}) {
    const Bytes line = RenderLine(chart_, Request(kGrey, dpi * 8, 1, dpi), {}, 0);
    ScanInfo info = Request(kGrey, dpi * 8, 1, dpi);
    info.y_pos = dpi * 3 / 2;
    const Bytes middle = RenderLine(chart_, info, {}, 0);
    EXPECT_EQ(middle[dpi * 9 / 100], 0) << dpi;
    EXPECT_EQ(middle[dpi / 5], 255) << dpi;
  }
}

TEST_F(Chart, NumbersTellChartsApart) {
  const ScanInfo info = Request(kGrey, 850, 1170);
  EXPECT_NE(RenderPage(MakeTestChart({85000, 117000}, 1), info, {}),
            RenderPage(MakeTestChart({85000, 117000}, 2), info, {}));
  EXPECT_EQ(RenderPage(MakeTestChart({85000, 117000}, 42), info, {}), RenderPage(chart_, info, {}));
}

TEST(TinyChart, AChartSmallerThanItsShapesIsDrawnWithoutHarm) {
  const PagePtr tiny = MakeTestChart({1, 1});
  EXPECT_EQ(RenderPage(tiny, Request(kGrey, 10, 10), {}).size(), 100u);
}

TEST(BlankPage, IsWhite) {
  EXPECT_EQ(RenderPage(MakeBlankPage({100, 100}), Request(kBilevel, 16, 2), {}),
            (Bytes{255, 255, 255, 255}));
}

}  // namespace
}  // namespace vox::sim
