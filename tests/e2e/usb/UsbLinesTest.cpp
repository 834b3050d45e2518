// Every page that a device at USB sends is, line for line, what plain code makes of it: for each
// depth, at, above and below what the device can do, in blocks of every size, one page and many,
// both sides.
#include <algorithm>

#include "tests/e2e/usb/UsbRoadFixture.h"

namespace vox::test {
namespace {

using sim::DeviceOptions;
using sim::EventKind;

class UsbLines : public UsbRoadTest {
 protected:
  void ExpectPage(const Ask& ask) {
    const Page page = client_->Scan(ask);
    ASSERT_TRUE(page.started) << page.status;
    EXPECT_EQ(page.status, 0u);
    EXPECT_FALSE(page.more);
    const std::vector<Line> expected = Expected(ask);
    EXPECT_TRUE(SameLines(page.lines, expected));
    EXPECT_TRUE(ShowsSomething(expected));
    EXPECT_EQ(Unread(), 0u);
  }
  void ExpectJob(const Ask& ask, std::size_t pages) {
    const std::vector<Page> got = client_->ScanJob(ask);
    ASSERT_EQ(got.size(), pages);
    for (std::size_t i = 0; i < pages; ++i) {
      EXPECT_EQ(got[i].status, 0u);
      EXPECT_TRUE(SameLines(got[i].lines, Expected(ask, i))) << "page " << i;
    }
    EXPECT_EQ(Events().Count(EventKind::kJobEnded), 1u);
    EXPECT_EQ(Unread(), 0u);
  }
  static bool ShowsSomething(const std::vector<Line>& lines) {
    return std::any_of(lines.begin(), lines.end(), [&](const Line& line) {
      return line != lines.front() || line != Line(line.size(), line.front());
    });
  }
};

const unsigned kDepths[] = {1, 8, 24};

TEST_F(UsbLines, OfEachDepthAtEachResolution) {
  Plug(SmallDevice());
  for (const unsigned bits : kDepths) {
    for (const float x : {100.F, 137.F, 200.F, 75.F, 611.F}) {
      for (const float y : {100.F, 200.F, 300.F, 31.F}) {
        SCOPED_TRACE(testing::Message() << bits << " bits, " << x << " by " << y << " dpi");
        ExpectPage(Ask::Depth(bits).Dpi(x, y).Frame(0, 0, 1.6F, 0.75F));
      }
    }
  }
}

TEST_F(UsbLines, TheCommandIsWhatWasForeseen) {
  Plug(SmallDevice());
  const Ask ask = Ask::Colour().Brightness(-30).Frame(0.25F, 0.5F, 1.25F, 1.25F);
  ExpectPage(ask);
  const auto command = Events().Last(EventKind::kScanCommand).bytes;
  const auto block = sim::BuildScanInfo(Request(ask));
  ASSERT_EQ(command.size(), 20 + block.size());
  EXPECT_TRUE(std::equal(block.begin(), block.end(), command.begin() + 20));
}

TEST_F(UsbLines, InBlocksOfEverySize) {
  for (const std::uint32_t size : {1u, 7u, 37u, 511u, 512u, 513u, 10000u, 0u}) {
    DeviceOptions options = SmallDevice();
    options.usb.block_bytes = {size};
    Plug(options);
    for (const unsigned bits : kDepths) {
      SCOPED_TRACE(testing::Message() << bits << " bits in blocks of " << size);
      ExpectPage(Ask::Depth(bits).Dpi(100).Frame(0, 0, size == 1 ? 0.4F : 1.6F, 0.4F));
    }
  }
}

TEST_F(UsbLines, InBlocksOfSizesInTurn) {
  DeviceOptions options = SmallDevice();
  options.usb.block_bytes = {1, 4096, 3, 100000, 599};
  Plug(options);
  for (const unsigned bits : kDepths) ExpectPage(Ask::Depth(bits).Frame(0, 0, 3, 2.5F));
}

TEST_F(UsbLines, OfADeviceWithPacketsOfFullSpeedAndInformationInTwoPieces) {
  DeviceOptions options = SmallDevice();
  options.usb.max_packet = 64;
  options.usb.information_in_two = true;
  Plug(options);
  ExpectPage(Ask::Grey());
}

TEST_F(UsbLines, WithMarginsAndPlaneOrders) {
  DeviceOptions options = SmallDevice();
  options.left_cut_margin = 13;
  options.right_cut_margin = 5;
  options.plane_order = 3;
  Plug(options);
  for (const unsigned bits : kDepths) ExpectPage(Ask::Depth(bits).Frame(0.1F, 0.1F, 1.7F, 0.6F));
}

TEST_F(UsbLines, BelowTheBedAreWhite) {
  Plug(SmallDevice());
  for (const unsigned bits : kDepths) ExpectPage(Ask::Depth(bits).Frame(0, 2, 2, 4));
}

TEST_F(UsbLines, OfTenPages) {
  for (const unsigned bits : kDepths) {
    Plug(SmallFeeder(10));
    ExpectJob(Ask::Depth(bits).Dpi(100).Frame(0, 0, 3, 2.5F), 10);
    EXPECT_EQ(Device().SheetsLeft(), 0u);
  }
}

TEST_F(UsbLines, OfBothSides) {
  for (const std::uint32_t mode : {1u, 2u}) {
    for (const unsigned bits : kDepths) {
      SCOPED_TRACE(testing::Message() << bits << " bits, mode " << mode);
      Plug(SmallFeeder(2, true));
      ExpectJob(Ask::Depth(bits).Dpi(100).Frame(0, 0, 3, 2.5F).Duplex(mode), 4);
    }
  }
}

TEST_F(UsbLines, OfADeviceThatIsNotReadyYet) {
  DeviceOptions options = SmallDevice();
  options.faults.first = {5, std::chrono::milliseconds(3)};
  options.faults.every = {1, {}};
  options.usb.block_bytes = {5000};
  Plug(options);
  for (const unsigned bits : kDepths) ExpectPage(Ask::Depth(bits));
}

TEST_F(UsbLines, OfAnEmptyFeederThereAreNone) {
  DeviceOptions options = SmallFeeder(1);
  options.empty_glass = true;
  Plug(options);
  ExpectJob(Ask::Grey(), 1);
  const Page page = client_->Scan(Ask::Grey());
  EXPECT_FALSE(page.started);
  EXPECT_EQ(page.status, 8u);
}

}  // namespace
}  // namespace vox::test
