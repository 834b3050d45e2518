// The two stages: what they cut, order, rescale and reduce, the spans of client lines, the sizes
// they ask for, and pages that fit no rule.
#include "vox/drivers/LineStages.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <new>
#include <random>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/PlainKernels.h"
#include "tests/support/PlainRoad.h"
#include "tests/support/StagedPage.h"

namespace vox {
namespace {

using test::Line;
using ::testing::Each;

// A page in the words of its test; the frame is one inch wide, so a resolution is a width.
struct Page {
  tagTWSCANPARAM request{};
  _SCANINFO info{};

  explicit Page(unsigned bits) {
    request.wBitsPerPixel = static_cast<std::uint16_t>(bits);
    info.DataType = bits == 1 ? 0 : bits == 8 ? 2 : 3;
    request.fRight = 1;
  }
  Page& Width(std::uint32_t device, std::uint32_t client) {
    info.Xresolution = info.Window.xExtent = device;
    request.fXResolution = static_cast<float>(client);
    request.dwImageWidth = client;
    request.dwLineSize = (client * request.wBitsPerPixel + 7) / 8;
    return *this;
  }
  Page& Length(std::uint32_t device, std::uint32_t client) {
    info.Yresolution = info.Window.yExtent = device;
    request.fYResolution = static_cast<float>(client);
    request.dwImageLength = client;
    return *this;
  }
  Page& Margin(std::uint32_t pixels) {
    info.dwLeftCutMargin = pixels;
    info.Window.xExtent += pixels;
    return *this;
  }
  Page& Planes(unsigned order) {
    request.wPlaneOrder = static_cast<std::uint16_t>(order);
    return *this;
  }
  // The device scans grey and the client takes bits.
  Page& ReducedToBits(std::uint32_t threshold = 0) {
    request.wBitsPerPixel = 1;
    request.dwLineSize = (request.dwImageWidth + 7) / 8;
    info.DitherPattern = threshold;
    return *this;
  }

  std::vector<Line> Noise(unsigned seed = 1) const {
    std::mt19937 random(seed);
    std::vector<Line> lines(info.Window.yExtent, Line(line_sizes(request, info).raw));
    for (auto& line : lines) {
      for (auto& byte : line) byte = static_cast<std::uint8_t>(random());
    }
    return lines;
  }
  std::vector<Line> Staged(const std::vector<Line>& lines) const {
    return test::StagedLines(request, info, lines);
  }
  std::vector<Line> Plain(const std::vector<Line>& lines) const {
    return test::ClientLines(request, info, lines);
  }
  void EqualsPlain() const {
    const auto lines = Noise();
    EXPECT_EQ(Staged(lines), Plain(lines));
  }
  // One line across, without rescaling down.
  Line Across(const Line& raw) {
    Length(1, 1);
    return Staged({raw}).at(0);
  }
  VerticalStage Vertical() const { return VerticalStage(request, info); }
};

TEST(HorizontalStage, PlainCopyBeginsBehindTheMargin) {
  EXPECT_EQ(Page(8).Width(3, 3).Margin(2).Across({1, 2, 3, 4, 5}), (Line{3, 4, 5}));
  EXPECT_EQ(Page(24).Width(1, 1).Margin(1).Across({1, 2, 3, 4, 5, 6}), (Line{4, 5, 6}));
  EXPECT_EQ(Page(1).Width(16, 16).Margin(8).Across({0x11, 0x22, 0x33}), (Line{0x22, 0x33}));
}

TEST(HorizontalStage, BitsOfAMarginShiftTheLine) {
  // 000 00010010 00110100 00000: three bits of margin before 0x12 0x34.
  Page page = Page(1).Width(16, 16).Margin(3);
  page.info.Window.xExtent = 24;
  EXPECT_EQ(page.Across({0x02, 0x46, 0x80}), (Line{0x12, 0x34}));
  for (std::uint32_t margin = 0; margin < 20; ++margin) {
    Page shifted = Page(1).Width(40, 40).Margin(margin).Length(3, 3);
    shifted.EqualsPlain();
  }
}

TEST(HorizontalStage, ShiftAtTheEndOfTheRawLineBringsInZeros) {
  Page page = Page(1).Width(16, 16).Margin(4);
  page.info.Window.xExtent = 16;  // the device sends two bytes where 20 pixels are due
  EXPECT_EQ(page.Across({0xFF, 0xFF}), (Line{0xFF, 0xF0}));
}

TEST(HorizontalStage, PlaneOrdersMoveTheBytesOfAPixel) {
  const struct {
    unsigned order;
    Line pixel;
  } rows[] = {{0, {10, 20, 30}}, {1, {10, 30, 20}}, {2, {20, 10, 30}}, {3, {30, 10, 20}},
              {4, {20, 30, 10}}, {5, {30, 20, 10}}, {6, {10, 20, 30}}};
  for (const auto& row : rows) {
    EXPECT_EQ(Page(24).Width(1, 1).Planes(row.order).Across({10, 20, 30}), row.pixel) << row.order;
  }
}

TEST(HorizontalStage, PlaneOrdersIgnoreTheMargin) {
  EXPECT_EQ(Page(24).Width(1, 1).Margin(1).Planes(5).Across({1, 2, 3, 4, 5, 6}), (Line{3, 2, 1}));
}

TEST(HorizontalStage, PlaneOrderIsForColourOnly) {
  EXPECT_EQ(Page(8).Width(3, 3).Planes(5).Across({1, 2, 3}), (Line{1, 2, 3}));
}

TEST(HorizontalStage, PixelsThatTheRawLineDoesNotReachAreZero) {
  Page narrow = Page(8).Width(5, 5);
  narrow.info.Window.xExtent = 2;
  EXPECT_EQ(narrow.Across({1, 2}), (Line{1, 2, 0, 0, 0}));
  Page far = Page(8).Width(2, 2);
  far.info.dwLeftCutMargin = 0xFFFFFFFF;
  EXPECT_EQ(far.Across({1, 2}), (Line{0, 0}));
  Page planes = Page(24).Width(2, 2).Planes(1);
  planes.info.Window.xExtent = 1;
  EXPECT_EQ(planes.Across({1, 2, 3}), (Line{1, 3, 2, 0, 0, 0}));
}

TEST(HorizontalStage, RawBitsOfAnUnfinishedByteAreNotDelivered) {
  Page page = Page(1).Width(9, 9);
  EXPECT_EQ(line_sizes(page.request, page.info).raw, 1u);
  EXPECT_EQ(page.Across({0xFF}), (Line{0xFF, 0x00}));
}

TEST(HorizontalStage, LineThatNeedsNothingIsPassedInPlace) {
  for (const unsigned bits : {1u, 8u, 24u}) {
    Page page = Page(bits).Width(16, 16).Length(1, 1);
    page.info.Window.xExtent = 32;   // the device sends more than the frame
    page.request.dwLineSize += 100;  // and the client's line is longer than either
    const LINE_SIZES sizes = line_sizes(page.request, page.info);
    HorizontalStage stage(page.request, page.info);
    ASSERT_TRUE(stage.passes_lines()) << bits;
    Line line = page.Noise()[0], expected(sizes.device_room);
    line.resize(std::max(sizes.raw_room, sizes.device_room), 0xEE);
    stage.run(expected.data(), line.data());
    stage.pass(line.data());
    line.resize(sizes.device_room);
    EXPECT_EQ(line, expected) << bits;
  }
}

TEST(HorizontalStage, LineThatMovesIsNotPassed) {
  const auto passes = [](const Page& page) {
    return HorizontalStage(page.request, page.info).passes_lines();
  };
  EXPECT_TRUE(passes(Page(24).Width(5, 5)));
  EXPECT_FALSE(passes(Page(24).Width(5, 5).Margin(1)));
  EXPECT_FALSE(passes(Page(1).Width(16, 16).Margin(1)));
  EXPECT_FALSE(passes(Page(24).Width(5, 5).Planes(1)));
  EXPECT_FALSE(passes(Page(24).Width(5, 6)));
  Page narrow = Page(8).Width(5, 5);
  narrow.info.Window.xExtent = 4;
  EXPECT_FALSE(passes(narrow)) << "the raw line ends before the frame";
}

TEST(HorizontalStage, EnlargesAndShrinksByTheResolutions) {
  EXPECT_EQ(Page(8).Width(3, 5).Across({0, 100, 200}), (Line{0, 50, 100, 150, 200}));
  EXPECT_EQ(Page(8).Width(4, 2).Across({10, 20, 30, 40}), (Line{13, 38}));
}

TEST(HorizontalStage, RequestedResolutionIsCutNotRounded) {
  Page page = Page(8).Width(3, 3);
  page.request.fXResolution = 3.9f;
  EXPECT_EQ(page.Across({1, 2, 3}), (Line{1, 2, 3})) << "3.9 is 3, no rescaling";
  page.request.fXResolution = 2.9f;
  page.request.dwImageWidth = page.request.dwLineSize = 2;
  EXPECT_EQ(page.Across({10, 20, 60}), test::PlainReduceWidth({10, 20, 60}, 2, 3, 1));
}

TEST(HorizontalStage, BitsThatWouldHaveToBeRescaledAreZero) {
  Page page = Page(1).Width(300, 300);
  page.request.fXResolution = 299.6f;  // rounds to the device's 300, cut it does not
  EXPECT_THAT(page.Across(Line(37, 0xFF)), Each(0));
}

TEST(HorizontalStage, WidthsThatAreNothingLeaveZeros) {
  EXPECT_THAT(Page(8).Width(0, 5).Across({}), Each(0));
  EXPECT_EQ(Page(8).Width(5, 0).Across({1, 2, 3, 4, 5}), Line{});
  EXPECT_EQ(Page(8).Width(1, 5).Across({7}), (Line{7, 7, 7, 7, 7}));
}

TEST(VerticalStage, EqualResolutionPassesLinesOn) {
  const Page page = Page(8).Width(3, 3).Length(4, 4);
  EXPECT_TRUE(page.Vertical().passes_lines());
  const LINE_SPAN span = page.Vertical().span(2);
  EXPECT_FALSE(span.white);
  EXPECT_EQ(span.lower, 2u);
  EXPECT_EQ(span.upper, 2u);
  EXPECT_EQ(span.keep_from, 2u);
  page.EqualsPlain();
}

TEST(VerticalStage, LinesBehindTheDevicesLastAreWhite) {
  Page page = Page(8).Width(3, 3).Length(2, 2);
  page.request.dwImageLength = 5;
  const auto client = page.Staged({{1, 2, 3}, {4, 5, 6}});
  EXPECT_EQ(client[1], (Line{4, 5, 6}));
  for (std::size_t j = 2; j < 5; ++j) EXPECT_THAT(client[j], Each(0xFF));
}

TEST(VerticalStage, EnlargingByTwoCopiesLineZeroTwiceMore) {
  const Page page = Page(8).Width(1, 1).Length(100, 200);
  const auto stage = page.Vertical();
  EXPECT_EQ(stage.span(1).lower, 0u) << "place 0.497";
  EXPECT_EQ(stage.span(1).upper, 1u);
  EXPECT_EQ(stage.span(2).lower, 0u) << "place 0.995";
  EXPECT_EQ(stage.span(3).lower, 1u) << "place 1.492";
  EXPECT_EQ(stage.span(199).lower, 99u);
  std::vector<Line> lines(100, Line{0});
  for (std::size_t n = 0; n < lines.size(); ++n) lines[n][0] = static_cast<std::uint8_t>(2 * n);
  lines[0][0] = 200;
  const auto client = page.Staged(lines);
  EXPECT_EQ(client[0], (Line{200}));
  EXPECT_EQ(client[1], (Line{200})) << "a copy, no blend";
  EXPECT_EQ(client[2], (Line{200})) << "a copy, no blend";
  EXPECT_EQ(client[3], (Line{3})) << "2 and 4, half and half";
  EXPECT_EQ(client[199], (Line{198}));
  page.EqualsPlain();
}

TEST(VerticalStage, EnlargingOneLineRepeatsIt) {
  const Page page = Page(8).Width(2, 2).Length(1, 5);
  EXPECT_EQ(page.Staged({{7, 8}}), std::vector<Line>(5, (Line{7, 8})));
  for (std::uint32_t j = 0; j < 5; ++j) EXPECT_EQ(page.Vertical().span(j).upper, 0u);
}

TEST(VerticalStage, EnlargingToOneLineTakesTheFirst) {
  Page page = Page(8).Width(1, 1).Length(3, 6);
  page.request.dwImageLength = 1;
  EXPECT_EQ(page.Staged({{1}, {2}, {3}}), (std::vector<Line>{{1}}));
}

TEST(VerticalStage, ShrinkingAveragesTheSpan) {
  const Page page = Page(8).Width(1, 1).Length(4, 2);
  EXPECT_EQ(page.Staged({{10}, {20}, {30}, {40}}), (std::vector<Line>{{13}, {38}}));
  EXPECT_EQ(page.Vertical().span(0).upper, 1u);
  EXPECT_EQ(page.Vertical().span(1).lower, 2u);
  EXPECT_EQ(page.Vertical().span(1).keep_from, 3u);
}

TEST(VerticalStage, ShrinkingToOneLineTakesThemAll) {
  const Page page = Page(8).Width(1, 1).Length(3, 1);
  EXPECT_EQ(page.Staged({{10}, {20}, {60}}), (std::vector<Line>{{30}}));
}

TEST(VerticalStage, ShrinkingOneLineTakesIt) {
  Page page = Page(8).Width(1, 1).Length(5, 3);
  page.info.Window.yExtent = 1;
  EXPECT_EQ(page.Staged({{42}}), (std::vector<Line>(3, Line{42})));
}

TEST(VerticalStage, ShrinkingSpansWithoutWeightTakeTheirLastLine) {
  const Page page = Page(8).Width(1, 1).Length(4106, 4105);
  EXPECT_THAT(page.Staged(std::vector<Line>(4106, Line{77})), Each(Line{77}));
  page.EqualsPlain();
}

TEST(VerticalStage, WithoutDeviceLinesAllIsWhite) {
  for (const std::uint32_t wanted : {100u, 200u, 50u}) {
    Page page = Page(8).Width(3, 3).Length(100, wanted);
    page.info.Window.yExtent = 0;
    page.request.dwImageLength = 2;
    EXPECT_EQ(page.Staged({}), (std::vector<Line>(2, Line{255, 255, 255}))) << wanted;
  }
}

TEST(VerticalStage, SpansNeverGoBack) {
  for (const std::uint32_t device : {1u, 2u, 99u, 100u, 4106u, 16777216u}) {
    for (const std::uint32_t wanted : {1u, 2u, 99u, 100u, 101u, 4105u}) {
      Page page = Page(8).Width(1, 1).Length(device, wanted);
      page.request.dwImageLength = 5000;
      const auto stage = page.Vertical();
      std::uint32_t floor = 0;
      for (std::uint32_t j = 0; j < 5000; ++j) {
        const LINE_SPAN span = stage.span(j);
        if (span.white) continue;
        ASSERT_LE(span.lower, span.upper) << device << " to " << wanted << ", line " << j;
        ASSERT_LT(span.upper, device) << device << " to " << wanted << ", line " << j;
        ASSERT_GE(span.lower, floor) << device << " to " << wanted << ", line " << j;
        floor = span.keep_from;
      }
    }
  }
}

TEST(VerticalStage, GreyBecomesBitsOfTheClientsLineSize) {
  const Page page = Page(8).Width(9, 9).Length(1, 1).ReducedToBits();
  EXPECT_FALSE(page.Vertical().passes_lines());
  EXPECT_EQ(page.Staged({{169, 170, 171, 0, 255, 170, 169, 255, 200}}),
            (std::vector<Line>{{0x6D, 0x80}}));
}

TEST(VerticalStage, ThresholdComesFromTheDitherPattern) {
  EXPECT_EQ(Page(8).Width(4, 4).Length(1, 1).ReducedToBits(100).Staged({{99, 100, 170, 0}}),
            (std::vector<Line>{{0x60}}));
}

TEST(VerticalStage, WhiteLinesOfBitsAreAllOnes) {
  Page page = Page(8).Width(9, 9).Length(1, 1).ReducedToBits();
  page.request.dwImageLength = 2;
  EXPECT_EQ(page.Staged({Line(9, 0)})[1], (Line{0xFF, 0xFF}));
}

TEST(LineStages, PageBelowTheDevicesRangeBecomesPackedBits) {
  // 150 dpi asked of a device that begins at 200: grey comes in, bits go out.
  Page page = Page(8).Width(200, 150).Length(200, 150).ReducedToBits();
  EXPECT_EQ(page.Staged(page.Noise()).at(0).size(), 19u);
  page.EqualsPlain();
}

TEST(LineStages, EqualThePlainRoad) {
  const std::uint32_t sizes[][2] = {{64, 64}, {30, 64}, {64, 30}, {64, 63}, {7, 50}, {50, 7}};
  for (const unsigned bits : {8u, 24u}) {
    for (const auto& across : sizes) {
      for (const auto& down : sizes) {
        for (const std::uint32_t margin : {0u, 5u}) {
          Page page = Page(bits).Width(across[0], across[1]).Length(down[0], down[1]);
          page.Margin(margin).Planes(bits == 24 ? margin : 0);
          page.EqualsPlain();
          if (bits == 8) page.ReducedToBits(128).EqualsPlain();
        }
      }
    }
  }
}

TEST(LineStages, BitsThatAreNotRescaledEqualThePlainRoad) {
  for (const std::uint32_t width : {1u, 7u, 8u, 9u, 64u, 65u}) {
    Page(1).Width(width, width).Length(5, 5).EqualsPlain();
    Page(1).Width(width, width).Length(5, 9).EqualsPlain();
    Page(1).Width(width, width).Length(9, 5).EqualsPlain();
  }
}

TEST(LineStages, ClientThatTakesMoreThanALineGetsZeros) {
  Page page = Page(8).Width(3, 3).Length(2, 2);
  page.request.dwLineSize = 10;
  EXPECT_EQ(page.Staged({{1, 2, 3}, {4, 5, 6}})[0], (Line{1, 2, 3, 0, 0, 0, 0, 0, 0, 0}));
}

TEST(LineStages, DepthThatTheDeviceChangedStaysWithinItsBuffers) {
  for (const std::uint32_t type : {0u, 2u, 3u}) {
    for (const unsigned bits : {1u, 8u, 24u}) {
      Page page = Page(bits).Width(33, 33).Length(3, 3);
      page.info.DataType = type;
      page.EqualsPlain();
    }
  }
}

TEST(LineStages, BitsInPlaceOfGreyAreNotReadBeyondTheirLine) {
  Page page = Page(8).Width(64, 64).Length(2, 2);
  page.info.DataType = 0;
  page.request.dwLineSize = 1;
  EXPECT_EQ(line_sizes(page.request, page.info).device_room, 64u) << "64 pixels are looked at";
  page.EqualsPlain();
}

TEST(LineSizes, HoldEveryReaderOfALine) {
  const auto sizes = [](const Page& page) { return line_sizes(page.request, page.info); };
  Page bits = Page(1).Width(9, 9);
  EXPECT_EQ(sizes(bits).raw, 1u);
  EXPECT_EQ(sizes(bits).raw_room, 17u);
  EXPECT_EQ(sizes(bits).trimmed, 2u);
  EXPECT_EQ(sizes(bits).device_room, 2u);
  EXPECT_EQ(sizes(bits).client_room, 2u);
  Page wide = Page(8).Width(10, 10);
  wide.request.dwLineSize = 100;
  EXPECT_EQ(sizes(wide).device_room, 100u) << "a device line may go to the client as it is";
  EXPECT_EQ(sizes(wide).client_room, 100u);
  const Page reduced = Page(8).Width(20, 10).ReducedToBits();
  EXPECT_EQ(sizes(reduced).device_room, 10u);
  EXPECT_EQ(sizes(reduced).client_room, 2u);
}

TEST(LineSizes, WhatNoPageCanBeIsRefused) {
  const auto refused = [](const Page& page) {
    EXPECT_THROW(line_sizes(page.request, page.info), std::bad_alloc);
    EXPECT_THROW(HorizontalStage(page.request, page.info), std::bad_alloc);
    EXPECT_THROW(VerticalStage(page.request, page.info), std::bad_alloc);
  };
  Page extent = Page(24).Width(10, 10);
  extent.info.Window.xExtent = 0xFFFFFFFF;
  refused(extent);
  Page width = Page(24).Width(10, 10);
  width.request.dwImageWidth = 0xFFFFFFFF;
  refused(width);
  Page frame = Page(24).Width(10, 10);
  frame.request.fRight = std::numeric_limits<float>::infinity();
  refused(frame);
  Page size = Page(8).Width(10, 10);
  size.request.dwLineSize = 0xFFFFFFFF;
  refused(size);
  Page lines = Page(8).Width(10, 10).Length(10, 10);
  lines.info.Window.yExtent = 0xFFFFFFFF;
  refused(lines);
  Page client = Page(8).Width(10, 10).Length(10, 10);
  client.request.dwImageLength = kMaxPageLines + 1;
  refused(client);
}

TEST(LineSizes, FrameThatIsNoNumberIsEmpty) {
  Page page = Page(8).Width(4, 4);
  page.request.fRight = std::nanf("");
  EXPECT_EQ(line_sizes(page.request, page.info).trimmed, 0u);
  EXPECT_THAT(page.Across({1, 2, 3, 4}), Each(0));
}

TEST(DeviceDepth, FollowsTheDataType) {
  EXPECT_EQ(device_depth(0), 1u);
  EXPECT_EQ(device_depth(1), 0u);
  EXPECT_EQ(device_depth(2), 8u);
  EXPECT_EQ(device_depth(3), 24u);
  EXPECT_EQ(device_depth(0xFFFFFFFF), 0u);
}

}  // namespace
}  // namespace vox
