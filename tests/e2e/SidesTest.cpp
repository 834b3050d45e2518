// Jobs of many pages: feeders, both sides of a sheet with the back turned or upright, and one scan
// after the other with one interface.
#include <chrono>
#include <functional>
#include <string>
#include <tuple>
#include <vector>

#include "tests/e2e/RoadFixture.h"
#include "tests/support/SmallDevice.h"

namespace vox::test {
namespace {

using sim::DeviceOptions;
using sim::EventKind;

class Sides : public RoadTest {
 protected:
  // A feeder with `count` sheets, the sides numbered 1, 2, 3 and so on; backs when both are
  // scanned.
  void LoadFeeder(std::size_t count, const std::function<void(DeviceOptions&)>& change = {}) {
    DeviceOptions options = SmallDevice();
    options.duplex = 2;
    constexpr sim::PageSize kSheet{.width = 25000, .height = 20000};
    for (std::uint32_t sheet = 0; sheet < count; ++sheet) {
      options.sheets.push_back({.front = sim::MakeTestChart(kSheet, 2 * sheet + 1),
                                .back = sim::MakeTestChart(kSheet, 2 * sheet + 2)});
    }
    options.feeder = options.flatbed;
    if (change) change(options);
    road.Device(options);
  }
  // Scans the job; each page must be its own, and only the last one the last.
  void ExpectJob(const tagTWSCANPARAM& request, std::size_t count) {
    const std::vector<Page> pages = road.ScanJob(request);
    ASSERT_EQ(pages.size(), count);
    for (std::size_t i = 0; i < count; ++i) {
      SCOPED_TRACE("page " + std::to_string(i));
      EXPECT_EQ(pages[i].status, 0u);
      EXPECT_EQ(pages[i].more, i + 1 < count);
      EXPECT_TRUE(SameLines(pages[i].lines, road.Expected(request, i)));
      // The number of a page stands at its top.
      EXPECT_TRUE(i == 0 || request.fTop > 1 || pages[i].lines != pages[i - 1].lines);
    }
    EXPECT_EQ(road.Events().Count(EventKind::kScanCommand), 1u);
    EXPECT_EQ(road.Events().Count(EventKind::kPageRequest), count);
    EXPECT_TRUE(road.Events().WaitFor(EventKind::kJobEnded, 1, std::chrono::seconds(10)));
  }
};

class FeederOf : public Sides,
                 public testing::WithParamInterface<std::tuple<unsigned, unsigned>> {};

TEST_P(FeederOf, Sheets) {
  const auto [bits, sheets] = GetParam();
  LoadFeeder(sheets);
  ExpectJob(Ask::Depth(bits).Frame(0, 0, 1.5F, 1), sheets);
}
INSTANTIATE_TEST_SUITE_P(Depths, FeederOf,
                         testing::Combine(testing::Values(1u, 8u, 24u),
                                          testing::Values(1u, 3u, 10u)));

// A StartScan over a page that was not ended, prepared or not, gives the device's next page, which
// bears no error of the one before.
TEST_F(Sides, APageThatIsNotEndedMakesWayForTheNext) {
  LoadFeeder(3, [](DeviceOptions& options) { options.reload_feeder = true; });
  std::size_t jobs = 0;
  for (const unsigned bits : {1u, 8u}) {
    const tagTWSCANPARAM request = Ask::Depth(bits).Frame(0, 0, 1.5F, 1);
    Client& client = road.Scanner();
    ASSERT_TRUE(client.Start(request));
    ASSERT_TRUE(client.ReadLine());
    ASSERT_TRUE(client.Start(request));
    ASSERT_TRUE(client.ReadLine());
    ASSERT_TRUE(client.Interface().StartScan(false));
    const Page page = client.Finish();
    EXPECT_EQ(page.status, 0u);
    EXPECT_FALSE(page.more);
    EXPECT_TRUE(SameLines(page.lines, road.Expected(request, 2)));
    ASSERT_TRUE(road.Events().WaitFor(EventKind::kJobEnded, ++jobs, std::chrono::seconds(10)));
  }
}

class BothSides : public Sides, public testing::WithParamInterface<std::tuple<unsigned, unsigned>> {
 protected:
  Ask Request() const {
    return Ask::Depth(std::get<0>(GetParam())).Duplex(std::get<1>(GetParam()));
  }
  bool Turned() const { return std::get<1>(GetParam()) == 1; }
  void ExpectAngles(std::size_t pages) {
    const auto asked = road.Request(Request());
    for (std::size_t i = 0; i < pages; ++i) {
      EXPECT_EQ(road.FirstDevice().PageInfo(asked, i).angle, Turned() && i % 2 == 1 ? 180u : 0u);
    }
  }
};

TEST_P(BothSides, OfOneSheet) {
  LoadFeeder(1);
  ExpectJob(Request(), 2);
  ExpectAngles(2);
}

TEST_P(BothSides, OfThreeSheets) {
  LoadFeeder(3);
  ExpectJob(Request().Frame(0, 0, 1.5F, 1), 6);
  ExpectAngles(6);
}

TEST_P(BothSides, Rescaled) {
  LoadFeeder(1);
  ExpectJob(Request().Dpi(75, 300), 2);
}

TEST_P(BothSides, RawWithMargins) {
  LoadFeeder(1, [](DeviceOptions& options) {
    options.coding.jbig = false;
    options.left_cut_margin = 11;
    options.right_cut_margin = 5;
  });
  ExpectJob(Request(), 2);
}

TEST_P(BothSides, InBlocksOfOneLine) {
  LoadFeeder(1, [](DeviceOptions& options) { options.coding.lines_per_block = 1; });
  ExpectJob(Request(), 2);
}

TEST_P(BothSides, LongerThanTheDeviceCanScan) {
  LoadFeeder(1);
  ExpectJob(Request().Frame(0, 1.5F, 2, 3), 2);
}
INSTANTIATE_TEST_SUITE_P(Depths, BothSides,
                         testing::Combine(testing::Values(1u, 8u, 24u), testing::Values(1u, 2u)));

class SeveralScans : public RoadTest {};
class SeveralRoads : public RoadsTest {};

// The bytes of a device that sends in order n are R, G, B again when the client asks for order n.
TEST_F(SeveralRoads, OfAnyPlaneOrderGiveTheSameColours) {
  std::vector<Line> plain;
  for (unsigned order = 0; order <= 5; ++order) {
    Road road_of_order;
    DeviceOptions options = SmallDevice();
    options.plane_order = order;
    road_of_order.Device(options);
    const Page page = road_of_order.Scan(Ask::Colour().PlaneOrder(order));
    if (order == 0) plain = page.lines;
    EXPECT_TRUE(SameLines(page.lines, plain)) << "order " << order;
  }
}

TEST_F(SeveralScans, WithOneInterfaceDoNotDisturbEachOther) {
  road.Device(SmallDevice());
  for (int round = 0; round < 3; ++round) {
    for (const unsigned bits : {1u, 8u, 24u}) {
      const Ask ask = Ask::Depth(bits).Dpi(round == 1 ? 300 : 120);
      EXPECT_TRUE(SameLines(road.Scan(ask).lines, road.Expected(ask)));
    }
  }
}

TEST_F(SeveralScans, TurnAndStraightInTurnKeepTheirSides) {
  DeviceOptions options = SmallDevice();
  options.feeder = options.flatbed;
  options.duplex = 2;
  options.sheets = {{.front = sim::MakeTestChart({20000, 15000}, 1), .back = nullptr}};
  options.reload_feeder = true;
  road.Device(options);
  std::size_t jobs = 0;
  for (const std::uint32_t mode : {1u, 2u, 1u, 0u}) {
    const Ask ask = Ask::Grey().Duplex(mode);
    const auto pages = road.ScanJob(ask);
    ASSERT_EQ(pages.size(), mode == 0 ? 1u : 2u);
    for (std::size_t i = 0; i < pages.size(); ++i) {
      EXPECT_TRUE(SameLines(pages[i].lines, road.Expected(ask, i)));
    }
    // The sheet is back once the device has seen the end of the job.
    ASSERT_TRUE(road.Events().WaitFor(EventKind::kJobEnded, ++jobs, std::chrono::seconds(5)));
  }
}

}  // namespace
}  // namespace vox::test
