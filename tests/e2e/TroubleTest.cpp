// Devices that refuse, that send hostile blocks, and that announce impossible pages: each ends in
// the status that stands for it, and the next scan is good.
#include <algorithm>
#include <functional>
#include <ostream>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "tests/e2e/Trouble.h"

namespace vox::test {
namespace {

using sim::BlockFault;

class Refusal : public Trouble {
 protected:
  void ExpectRefusal(std::uint32_t status) {
    const Page page = road.Scan(Ask::Lineart());
    EXPECT_FALSE(page.started);
    EXPECT_EQ(page.status, status);
    EXPECT_EQ(road.Events().Count(EventKind::kPageRequest), 0u);
    ExpectGoodScan();
  }
};

TEST_F(Refusal, ABusyDeviceLeavesStatusFour) {
  Device({.busy = Faults::kEveryTime});
  ExpectRefusal(IF_ERR_STS_DEVICE_BUSY);
}

TEST_F(Refusal, NoDocumentLeavesStatusEight) {
  Device({.no_document = 1});
  ExpectRefusal(IF_ERR_STS_NO_DOCUMENT);
}

TEST_F(Refusal, AnyOtherReplyLeavesStatusFive) {
  Device({.scan_reply = 0x4E});
  ExpectRefusal(IF_ERR_STS_DEVICE_ERROR);
}

TEST_F(Refusal, TheFirstStatusStaysUntilTheNextPage) {
  Device({.no_document = 1});
  EXPECT_FALSE(road.Scanner().Start(Ask::Grey()));
  road.StopServer();
  EXPECT_FALSE(road.Scanner().Interface().StartScan(false));
  EXPECT_EQ(road.Scanner().Interface().GetIfErrorStatus(), IF_ERR_STS_NO_DOCUMENT);
  ASSERT_TRUE(road.StartServer());
  ExpectGoodScan();
}

struct Block {
  const char* name;
  BlockFault fault;
  std::uint32_t status;
};

std::ostream& operator<<(std::ostream& out, const Block& block) {
  return out << block.name;
}

class HostileBlock : public Trouble,
                     public testing::WithParamInterface<std::tuple<Block, std::uint32_t>> {};

// Whatever a block says, the page ends; the second block is held against the first.
TEST_P(HostileBlock, EndsThePage) {
  const auto& [block, index] = GetParam();
  Device({.block = block.fault, .block_index = index});
  const Page page = road.Scan(Ask::Lineart());
  EXPECT_TRUE(page.started);
  const auto expected = road.Expected(Ask::Lineart());
  ASSERT_LE(page.lines.size(), expected.size());
  // Lines that were ready when the page failed may be lost, but never wrong.
  const std::size_t good = std::min(page.lines.size(), std::size_t{index} * kBlockLines);
  for (std::size_t i = 0; i < good; ++i) EXPECT_EQ(page.lines[i], expected[i]);
  if (block.fault != BlockFault::kGarbage) {
    EXPECT_EQ(page.status, block.status);
    const bool all = page.status == 0 || block.fault == BlockFault::kCutHeader;
    EXPECT_EQ(page.lines.size() == expected.size(), all);
  }
  ExpectGoodScan();
}

constexpr Block kSecondBlocks[] = {
    {"Width", BlockFault::kWidth, 3},     {"TooLong", BlockFault::kTooLong, 3},
    {"Hostile", BlockFault::kHostile, 3}, {"Huge", BlockFault::kHuge, 3},
    {"NoLines", BlockFault::kNoLines, 0}, {"MoreLines", BlockFault::kMoreLines, 0},
    {"Garbage", BlockFault::kGarbage, 0}, {"CutHeader", BlockFault::kCutHeader, 3},
    {"CutData", BlockFault::kCutData, 3}};
// The first block is what the others are held against: its width and lines are believed.
constexpr Block kFirstBlocks[] = {
    {"TooLong", BlockFault::kTooLong, 3},     {"Hostile", BlockFault::kHostile, 3},
    {"Huge", BlockFault::kHuge, 3},           {"Garbage", BlockFault::kGarbage, 0},
    {"CutHeader", BlockFault::kCutHeader, 3}, {"CutData", BlockFault::kCutData, 3}};

std::string BlockName(const testing::TestParamInfo<std::tuple<Block, std::uint32_t>>& info) {
  return std::get<0>(info.param).name;
}
INSTANTIATE_TEST_SUITE_P(First, HostileBlock,
                         testing::Combine(testing::ValuesIn(kFirstBlocks), testing::Values(0u)),
                         BlockName);
INSTANTIATE_TEST_SUITE_P(Second, HostileBlock,
                         testing::Combine(testing::ValuesIn(kSecondBlocks), testing::Values(1u)),
                         BlockName);

class ScanInfoFault : public Trouble {
 protected:
  ScanInfoFault() : Trouble(Road::Server::kNone) {}
};

TEST_F(ScanInfoFault, OfAnyKindEndsThePage) {
  using Edit = std::function<void(sim::ScanInfo&)>;
  // Only the first page is announced wrongly.
  const std::pair<const char*, Edit> edits[] = {
      {"no data type", [](sim::ScanInfo& info) { info.data_type = 7; }},
      {"another data type", [](sim::ScanInfo& info) { info.data_type = 3; }},
      {"no resolution", [](sim::ScanInfo& info) { info.x_resolution = info.y_resolution = 0; }},
      {"every resolution",
       [](sim::ScanInfo& info) { info.x_resolution = info.y_resolution = 0xFFFFFFFF; }},
      {"no width", [](sim::ScanInfo& info) { info.x_extent = 0; }},
      {"every width", [](sim::ScanInfo& info) { info.x_extent = 0xFFFFFFFF; }},
      {"no length", [](sim::ScanInfo& info) { info.y_extent = 0; }},
      {"one line", [](sim::ScanInfo& info) { info.y_extent = 1; }},
      {"every length", [](sim::ScanInfo& info) { info.y_extent = 0xFFFFFFFF; }},
      {"all margin", [](sim::ScanInfo& info) { info.left_cut_margin = 0xFFFFFFFF; }},
      {"turned", [](sim::ScanInfo& info) { info.angle = 180; }},
      {"half turned", [](sim::ScanInfo& info) { info.angle = 90; }},
      {"short block headers", [](sim::ScanInfo& info) { info.encode_header_size = 3; }},
      {"long block headers", [](sim::ScanInfo& info) { info.encode_header_size = 255; }},
      {"no template", [](sim::ScanInfo& info) { info.jbig_line_template = 0; }},
      {"everything", [](sim::ScanInfo& info) {
         info.x_extent = info.y_extent = info.left_cut_margin = 0x80000001;
         info.jbig_line_template = info.jbig_typical_prediction = 0xFF;
       }}};
  for (const auto& [name, edit] : edits) {
    for (const unsigned bits : {1u, 8u, 24u}) {
      SCOPED_TRACE(std::string(name) + " at " + std::to_string(bits) + " bits");
      Road road_of_case;
      sim::DeviceOptions options = Trouble::Options();
      options.edit_scan_info = [&spoil = edit](std::uint32_t page, sim::ScanInfo& info) {
        if (page == 1) spoil(info);
      };
      road_of_case.Device(options);
      const Page page = ScanWithShortWaits(road_of_case, Ask::Depth(bits).Dpi(150, 300), 100ms);
      EXPECT_LE(page.lines.size(), 450u);
      EXPECT_TRUE(SameLines(ScanWhenFree(road_of_case, Ask::Depth(bits)).lines,
                            road_of_case.Expected(Ask::Depth(bits))));
    }
  }
}

}  // namespace
}  // namespace vox::test
