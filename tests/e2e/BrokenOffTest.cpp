// Connections that break off: the page is white from there on, or has failed, as the protocol says
// for that place.
#include <string>
#include <vector>

#include "sim/PageStream.h"
#include "tests/e2e/Trouble.h"

namespace vox::test {
namespace {

class BrokenOff : public Trouble {
 protected:
  static constexpr std::uint32_t kBroken = IF_ERR_STS_DEVICE_COMM_ERR;

  // The device lines with everything from byte `bytes` on white.
  std::vector<Line> ExpectedUpTo(const tagTWSCANPARAM& request, std::size_t bytes) {
    auto lines = road.Expected(request);
    for (std::size_t at = bytes; at < lines.size() * request.dwLineSize; ++at) {
      lines[at / request.dwLineSize][at % request.dwLineSize] = 0xFF;
    }
    return lines;
  }
};

// Grey lines at the device's own resolution are client lines, so a byte is a byte. A page that ends
// with a line has ended; one that ends within a line has not come whole.
TEST_F(BrokenOff, RawPagesAreWhiteFromAnyByteOn) {
  Device({});
  const tagTWSCANPARAM request = Ask::Grey().Frame(0, 0, 0.4F, 0.4F);
  const std::size_t size = std::size_t{request.dwLineSize} * request.dwImageLength;
  for (std::size_t bytes = 0; bytes <= size; bytes += bytes < 130 ? 1 : 97) {
    SCOPED_TRACE(bytes);
    road.FirstDevice().SetFaults({.close_after = bytes});
    const Page page = ScanWhenFree(road, request);
    EXPECT_EQ(page.status, bytes % request.dwLineSize == 0 ? 0u : kBroken);
    EXPECT_TRUE(SameLines(page.lines, ExpectedUpTo(request, bytes)));
  }
  ExpectGoodScan();
}

// A coded page that ends with a block has ended, and one that ends within a header has not come
// whole, with white lines in both cases; within a block's data it fails at once.
TEST_F(BrokenOff, CodedPagesEndOrFailAtAnyByte) {
  sim::DeviceOptions options = Options();
  options.glass = sim::MakeTestChart({30000, 25000});
  sim::VirtualDevice& device = road.Device(options);
  const tagTWSCANPARAM request = Ask::Lineart();
  const auto expected = road.Expected(request);
  const auto stream =
      sim::OpenPage({options.glass, device.PageInfo(road.Request(request), 0), {}}, options.coding);
  std::size_t start = 0, lines = 0;  // of the block
  for (std::vector<std::uint8_t> block; stream->Next(block); start += block.size()) {
    for (const std::size_t at :
         {std::size_t{0}, std::size_t{1}, std::size_t{7}, std::size_t{8}, std::size_t{9},
          std::size_t{27}, std::size_t{28}, std::size_t{29}, block.size() / 2, block.size() - 1}) {
      SCOPED_TRACE(std::to_string(start) + " + " + std::to_string(at));
      device.SetFaults({.close_after = start + at});
      const Page page = ScanWhenFree(road, request);
      EXPECT_EQ(page.status, at == 0 ? 0u : kBroken);
      if (at < 8) {
        EXPECT_EQ(page.lines.size(), expected.size());
      } else {
        EXPECT_LE(page.lines.size(), lines);
      }
      for (std::size_t i = 0; i < page.lines.size(); ++i) {
        EXPECT_EQ(page.lines[i], i < lines ? expected[i] : Line(request.dwLineSize, 0xFF)) << i;
      }
    }
    lines += kBlockLines;
  }
  EXPECT_GT(lines, 3 * kBlockLines);
  ExpectGoodScan();
}

TEST_F(BrokenOff, AResetConnectionIsACommunicationError) {
  Device({.close_after = 2000, .reset = true});
  EXPECT_EQ(road.Scan(Ask::Grey()).status, IF_ERR_STS_DEVICE_COMM_ERR);
  ExpectGoodScan();
}

TEST_F(BrokenOff, AShortStartNoticeOrScanInfoStartsNothing) {
  Device({});
  for (const std::uint32_t bytes : {0u, 1u, 64u, 127u}) {
    road.FirstDevice().SetFaults({.scan_info_bytes = bytes});
    const Page page = ScanWithShortWaits(road, Ask::Grey(), 100ms);
    EXPECT_FALSE(page.started) << bytes;
    EXPECT_EQ(page.status, IF_ERR_STS_DEVICE_COMM_ERR) << bytes;
  }
  for (const std::uint32_t bytes : {0u, 1u, 27u}) {
    road.FirstDevice().SetFaults({.start_notice_bytes = bytes});
    EXPECT_FALSE(ScanWithShortWaits(road, Ask::Grey(), 100ms).started) << bytes;
  }
  road.FirstDevice().SetFaults({.bad_start_notice = true});
  EXPECT_FALSE(ScanWithShortWaits(road, Ask::Grey(), 100ms).started);
  ExpectGoodScan();
}

TEST_F(BrokenOff, AnEndNoticeInPiecesIsReadWhole) {
  Device({});
  for (std::uint32_t at = 1; at < 28; ++at) {
    road.FirstDevice().SetFaults({.end_split = at});
    EXPECT_EQ(ScanWhenFree(road, Ask::Grey()).status, 0u) << at;
  }
  ExpectGoodScan();
}

TEST_F(BrokenOff, AnEndNoticeThatStopsIsACommunicationErrorBelowItsCode) {
  Device({});
  for (const std::uint32_t bytes : {0u, 1u, 15u}) {
    road.FirstDevice().SetFaults({.end_notice_bytes = bytes});
    const Page page = ScanWithShortWaits(road, Ask::Grey());
    EXPECT_EQ(page.status, IF_ERR_STS_DEVICE_COMM_ERR) << bytes;
    EXPECT_TRUE(SameLines(page.lines, road.Expected(Ask::Grey()))) << bytes;
  }
  ExpectGoodScan();
}

TEST_F(BrokenOff, AJobThatIsNotFinishedYetIsAskedAgain) {
  Device({.end_not_ready = 3});
  const Page page = road.Scan(Ask::Grey());
  EXPECT_EQ(page.status, 0u);
  EXPECT_FALSE(page.more);
  EXPECT_EQ(road.Events().Count(EventKind::kEndNotice), 4u);
  ExpectGoodScan();
}

}  // namespace
}  // namespace vox::test
