// What a device answers to a request: pages, resolutions, margins, coding.
#include "sim/JobPlan.h"

#include <gtest/gtest.h>

#include "tests/unit/sim/ScriptedHost.h"

namespace vox::sim {
namespace {

class JobPlan : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(SettleOptions(options_), ""); }
  ScanInfo Complete(const ScanInfo& request, PlannedPage page = {}) {
    return CompleteScanInfo(options_, request, page);
  }
  DeviceOptions options_;
  ScanInfo request_ = SmallRequest();
};

TEST_F(JobPlan, AResolutionWithinReachStays) {
  const ScanInfo info = Complete(request_);
  EXPECT_EQ(info.x_resolution, 100u);
  EXPECT_EQ(info.x_extent, 64u);
  EXPECT_EQ(info.y_extent, 40u);
}

TEST_F(JobPlan, AResolutionBeyondReachIsClampedAndTheWindowWithIt) {
  request_.x_resolution = 50;
  request_.x_pos = 11;
  request_.y_resolution = 1200;
  request_.y_pos = 100;
  const ScanInfo info = Complete(request_);
  EXPECT_EQ(info.x_resolution, 75u);
  EXPECT_EQ(info.x_pos, 17u);     // 16.5 rounded
  EXPECT_EQ(info.x_extent, 96u);  // 64 * 75 / 50
  EXPECT_EQ(info.y_resolution, 600u);
  EXPECT_EQ(info.y_pos, 50u);
  EXPECT_EQ(info.y_extent, 20u);
}

TEST_F(JobPlan, AResolutionOfZeroIsTheLowestAndTheWindowStays) {
  request_.x_resolution = request_.y_resolution = 0;
  const ScanInfo info = Complete(request_);
  EXPECT_EQ(info.x_resolution, 75u);
  EXPECT_EQ(info.x_extent, 64u);
}

TEST_F(JobPlan, BilevelLinesEndOnAWholeByteAndTheExcessIsARightMargin) {
  request_.x_extent = 61;
  options_.left_cut_margin = 3;
  options_.right_cut_margin = 2;
  const ScanInfo info = Complete(request_);
  EXPECT_EQ(info.left_cut_margin, 3u);
  EXPECT_EQ(info.right_cut_margin, 8u);  // 2 and 6 of excess
  EXPECT_EQ(info.x_extent, 72u);
  request_.data_type = kGrey;
  EXPECT_EQ(Complete(request_).x_extent, 66u);
}

TEST_F(JobPlan, AnEmptyWindowStaysEmpty) {
  request_.x_extent = 0;
  options_.left_cut_margin = 3;
  EXPECT_EQ(Complete(request_).x_extent, 0u);
}

TEST_F(JobPlan, BilevelPagesAreJbigWhereTheHostTakesIt) {
  ScanInfo info = Complete(request_);
  EXPECT_EQ(info.encode_header_size, 8);
  EXPECT_EQ(info.jbig_line_template, 2);
  EXPECT_EQ(info.jbig_typical_prediction, 1);
  request_.encode_type = 0;
  EXPECT_EQ(Complete(request_).encode_header_size, 0);
  request_ = SmallRequest(kGrey);
  EXPECT_EQ(Complete(request_).encode_header_size, 0);
  request_ = SmallRequest();
  request_.x_extent = 65536;  // does not fit a block's header
  EXPECT_EQ(Complete(request_).encode_header_size, 0);
  options_.coding.image_header = ImageHeader::kInHeader;
  options_.coding.line_template = 3;
  options_.coding.typical_prediction = false;
  info = Complete(SmallRequest());
  EXPECT_EQ(info.encode_header_size, 28);
  EXPECT_EQ(info.jbig_line_template, 3);
  EXPECT_EQ(info.jbig_typical_prediction, 0);
}

TEST_F(JobPlan, ALoadedFeederWinsOverTheGlass) {
  const PagePtr sheet = MakeBlankPage({100, 100});
  auto pages = PlanJob(options_, {{sheet, nullptr}, {sheet, nullptr}}, request_);
  ASSERT_EQ(pages.size(), 2u);
  EXPECT_TRUE(pages[0].from_feeder);
  EXPECT_EQ(Complete(request_, pages[0]).feeder, 1u);
  pages = PlanJob(options_, {}, request_);
  ASSERT_EQ(pages.size(), 1u);
  EXPECT_EQ(pages[0].source, options_.glass);
  EXPECT_EQ(Complete(request_, pages[0]).feeder, 0u);
}

TEST_F(JobPlan, WithoutPaperThereIsNoDocument) {
  options_.empty_glass = true;
  EXPECT_TRUE(PlanJob(options_, {}, request_).empty());
  options_.empty_glass = false;
  options_.flatbed.reset();
  EXPECT_TRUE(PlanJob(options_, {}, request_).empty());
}

TEST_F(JobPlan, DuplexGivesBothSidesAndTurnsTheBackForBooks) {
  options_.duplex = 2;
  const PagePtr front = MakeBlankPage({100, 200}), back = MakeBlankPage({100, 100});
  const std::vector<Sheet> sheets = {{front, back}, {front, nullptr}};
  const struct {
    std::uint32_t mode;
    BackSide back_side;
    std::uint32_t angle;
  } rows[] = {{0x302, BackSide::kByMode, 180},  {0x10302, BackSide::kByMode, 0},
              {0x302, BackSide::kUpright, 0},   {0x302, BackSide::kTurned, 180},
              {0x10302, BackSide::kUpright, 0}, {0x10302, BackSide::kTurned, 180}};
  for (const auto& row : rows) {
    options_.back_side = row.back_side;
    request_.unit_mode = row.mode;
    const auto pages = PlanJob(options_, sheets, request_);
    ASSERT_EQ(pages.size(), 4u);
    EXPECT_EQ(pages[1].source, back);
    EXPECT_EQ(pages[3].source->Size().height, 200u);  // blank, as large as the front
    EXPECT_EQ(Complete(request_, pages[0]).angle, 0u);
    EXPECT_EQ(Complete(request_, pages[1]).angle, row.angle) << std::hex << row.mode;
  }
  request_.preview = 1;
  options_.back_side = BackSide::kTurned;
  EXPECT_EQ(Complete(request_, PlanJob(options_, sheets, request_)[1]).angle, 0u);
}

TEST_F(JobPlan, OneSideIsScannedUnlessBothWereAskedAndCanBe) {
  const PagePtr side = MakeBlankPage({100, 100});
  request_.unit_mode = 0x302;
  EXPECT_EQ(PlanJob(options_, {{side, side}}, request_).size(), 1u);  // the device cannot
  options_.duplex = 1;
  EXPECT_EQ(PlanJob(options_, {{side, side}}, request_).size(), 2u);
  request_.unit_mode = 0;
  EXPECT_EQ(PlanJob(options_, {{side, side}}, request_).size(), 1u);
}

TEST_F(JobPlan, RequestsBeyondMeasureAreRefused) {
  EXPECT_TRUE(IsSane(options_, request_));
  const auto refused = [&](auto change) {
    ScanInfo request = request_;
    change(request);
    return !IsSane(options_, request);
  };
  EXPECT_TRUE(refused([](ScanInfo& r) { r.data_type = 1; }));
  EXPECT_TRUE(refused([](ScanInfo& r) { r.data_type = 0xFFFFFFFF; }));
  EXPECT_TRUE(refused([](ScanInfo& r) { r.x_extent = 0xFFFFFFFF; }));
  EXPECT_TRUE(refused([](ScanInfo& r) { r.y_extent = 0xFFFFFFFF; }));
  EXPECT_TRUE(refused([](ScanInfo& r) { r.x_extent = 100000, r.x_resolution = 1; }));
  options_.colour = false;
  EXPECT_TRUE(refused([](ScanInfo& r) { r.data_type = kColour; }));
}

TEST_F(JobPlan, ThresholdsAreEchoedOrTheDevicesOwn) {
  options_.dither_pattern = 140;
  EXPECT_EQ(Complete(request_).dither_pattern, 140u);
  request_.dither_pattern = 99;
  EXPECT_EQ(Complete(request_).dither_pattern, 99u);
}

TEST_F(JobPlan, LinesBelowTheBedAreNotSentUnlessThePageIsTurned) {
  request_.y_pos = 1160;
  EXPECT_EQ(LinesWithinReach(Complete(request_), RenderOptionsOf(options_, {})), 10u);
  request_.y_pos = 5000;
  EXPECT_EQ(LinesWithinReach(Complete(request_), RenderOptionsOf(options_, {})), 0u);
  ScanInfo turned = Complete(request_);
  turned.angle = 180;
  EXPECT_EQ(LinesWithinReach(turned, RenderOptionsOf(options_, {})), 40u);
}

TEST(SettleOptions, SaysWhatIsWrong) {
  const auto error = [](auto change) {
    DeviceOptions options;
    change(options);
    return SettleOptions(options);
  };
  EXPECT_EQ(error([](DeviceOptions& o) { o.flatbed.reset(); }), "a device without a unit");
  EXPECT_NE(error([](DeviceOptions& o) { o.flatbed->x_resolution_min = 0; }), "");
  EXPECT_NE(error([](DeviceOptions& o) { o.flatbed->x_resolution_max = 74; }), "");
  EXPECT_NE(error([](DeviceOptions& o) { o.flatbed->y_resolution_max = 19201; }), "");
  EXPECT_NE(error([](DeviceOptions& o) { o.coding.line_template = 4; }), "");
  EXPECT_NE(error([](DeviceOptions& o) { o.coding.lines_per_block = 0; }), "");
  EXPECT_NE(error([](DeviceOptions& o) { o.align_pixels = 0; }), "");
  EXPECT_NE(error([](DeviceOptions& o) { o.plane_order = 6; }), "");
  EXPECT_NE(error([](DeviceOptions& o) { o.left_cut_margin = 65536; }), "");
  EXPECT_NE(error([](DeviceOptions& o) { o.sheets.emplace_back(); }), "");
}

}  // namespace
}  // namespace vox::sim
