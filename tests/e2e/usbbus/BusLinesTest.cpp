// Every page that comes through libusb is, line for line, what plain code makes of it: for each
// depth, at, above and below what the device can do, in blocks of every size, one page and ten,
// both sides.
#include <algorithm>
#include <memory>
#include <string>
#include <utility>

#include "tests/e2e/usbbus/BusRoadFixture.h"
#include "vox/DevicesManager.h"

namespace vox::test {
namespace {

using sim::EventKind;

const unsigned kDepths[] = {1, 8, 24};

class BusLines : public BusRoadTest {};

TEST_F(BusLines, OfEachDepthAtEachResolution) {
  Plug();
  for (const unsigned bits : kDepths) {
    for (const auto& [x, y] :
         {std::pair(100.F, 200.F), {137.F, 100.F}, {75.F, 300.F}, {611.F, 31.F}}) {
      SCOPED_TRACE(testing::Message() << bits << " bits, " << x << " by " << y << " dpi");
      const Ask ask = Ask::Depth(bits).Dpi(x, y).Frame(0, 0, 1.6F, 0.75F);
      ExpectPage(ask);
      const std::vector<Line> lines = Expected(ask);
      EXPECT_TRUE(std::any_of(lines.begin(), lines.end(), [&](const Line& line) {
        return line != lines.front();
      })) << "nothing is to be seen there";
    }
  }
  EXPECT_EQ(scanner_->Count(EventKind::kJobEnded), 12u);
  EXPECT_EQ(scanner_->Unread(), 0u);
}

TEST_F(BusLines, InBlocksOfEverySize) {
  for (const std::string headers : {"", " joined"}) {
    for (const std::string size :
         {"1", "7", "504", "511", "512", "513", "10000", "0", "1,4096,3,599"}) {
      Plug("blocks=" + size + headers);
      for (const unsigned bits : kDepths) {
        SCOPED_TRACE(testing::Message() << bits << " bits in blocks of " << size << headers);
        ExpectPage(Ask::Depth(bits).Dpi(100).Frame(0, 0, size == "1" ? 0.2F : 1.6F, 0.2F));
      }
      EXPECT_EQ(scanner_->Unread(), 0u);
    }
  }
}

TEST_F(BusLines, OfADeviceWithPacketsOfFullSpeedAndInformationInTwoPieces) {
  for (const std::string headers : {"", " joined"}) {
    Plug("packet=64 in-two blocks=56,64,1000" + headers);
    for (const unsigned bits : kDepths) ExpectPage(Ask::Depth(bits).Dpi(100));
  }
}

TEST_F(BusLines, OfAWholePageInOneBlock) {
  Plug("blocks=0");
  for (const unsigned bits : kDepths) ExpectPage(Ask::Depth(bits).Dpi(200).Frame(0, 0, 3, 2.5F));
}

TEST_F(BusLines, BelowTheBedAreWhite) {
  Plug();
  for (const unsigned bits : kDepths) ExpectPage(Ask::Depth(bits).Dpi(100).Frame(0, 2, 2, 4));
}

TEST_F(BusLines, OfTenPages) {
  for (const unsigned bits : kDepths) {
    Plug("sheets=10");
    ExpectJob(Ask::Depth(bits).Dpi(100).Frame(0, 0, 1.6F, 0.75F), 10);
    EXPECT_EQ(scanner_->SheetsLeft(), 0u);
    EXPECT_EQ(scanner_->Count(EventKind::kJobEnded), 1u);
    EXPECT_EQ(scanner_->Unread(), 0u);
  }
}

TEST_F(BusLines, OfBothSides) {
  for (const std::uint32_t mode : {1u, 2u}) {
    Plug("sheets=2 both-sides blocks=5000 joined");
    ExpectJob(Ask::Colour().Dpi(100).Duplex(mode), 4);
  }
}

TEST_F(BusLines, EndWithTheFeeder) {
  Plug("sheets=2 empty");
  ExpectJob(Ask::Grey(), 2);
  const Page page = client_->Scan(Ask::Grey());
  EXPECT_FALSE(page.started);
  EXPECT_EQ(page.status, 8u);
}

// As an application comes by its interface: searched for, remembered, made.
TEST_F(BusLines, OfADeviceThatTheRegistryFound) {
  Plug();
  DevicesManager& devices = DevicesManager::instance();
  devices.searchUsbDevices(nullptr);
  EXPECT_TRUE(devices.isDeviceOnline(BusScanner::kSerial));
  ScanClient<CTwainImageIF> found(devices.createInterfaceForDevice(BusScanner::kSerial));
  ASSERT_TRUE(found.KnowsDevice());
  const Page page = found.Scan(Ask::Colour());
  EXPECT_EQ(page.status, 0u);
  EXPECT_TRUE(SameLines(page.lines, Expected(Ask::Colour())));
  scanner_->Unplug();
  EXPECT_FALSE(devices.isDeviceOnline(BusScanner::kSerial));
}

}  // namespace
}  // namespace vox::test
