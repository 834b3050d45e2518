// A page's data: raw pieces and JBIG blocks hold exactly the lines that are drawn.
#include "sim/PageStream.h"

#include <gtest/gtest.h>

#include "sim/BlockFaults.h"
#include "sim/JbigBlock.h"
#include "tests/unit/sim/ScriptedHost.h"

namespace vox::sim {
namespace {

Bytes ReadAll(PageStream& stream, std::size_t* pieces = nullptr, std::size_t* largest = nullptr) {
  Bytes all, piece;
  while (stream.Next(piece)) {
    all.insert(all.end(), piece.begin(), piece.end());
    if (pieces != nullptr) ++*pieces;
    if (largest != nullptr) *largest = std::max(*largest, piece.size());
  }
  return all;
}

ScanInfo ChartInfo(std::uint32_t type, std::uint32_t width, std::uint32_t height) {
  ScanInfo info;
  info.data_type = type;
  info.x_resolution = info.y_resolution = 100;
  info.x_extent = width;
  info.y_extent = height;
  return info;
}

// Noise that no coder can shorten: every bit is a coin's toss.
PagePtr NoisePage(std::uint32_t width, std::uint32_t height) {
  Image image{width, height, 1, 100000, 100000, {}};
  std::uint32_t state = 1;
  for (std::size_t i = 0; i < std::size_t{width} * height; ++i) {
    state = state * 1664525 + 1013904223;
    image.samples.push_back(state >> 31 ? 255 : 0);
  }
  return MakeImagePage(std::move(image));
}

const PagePtr kChart = MakeTestChart({85000, 117000});

TEST(RawStream, PiecesJoinToThePage) {
  for (const std::uint32_t type : {kBilevel, kGrey, kColour}) {
    const PageKey key{kChart, ChartInfo(type, 808, 300), {}};
    std::size_t pieces = 0, largest = 0;
    EXPECT_EQ(ReadAll(*OpenPage(key, {}), &pieces, &largest), RenderPage(kChart, key.info, {}));
    EXPECT_LE(largest, 65536u);
    EXPECT_EQ(pieces > 1, type != kBilevel);
  }
}

TEST(RawStream, AnEmptyWindowHasNoData) {
  EXPECT_TRUE(ReadAll(*OpenPage({kChart, ChartInfo(kGrey, 0, 100), {}}, {})).empty());
  EXPECT_TRUE(ReadAll(*OpenPage({kChart, ChartInfo(kGrey, 100, 0), {}}, {})).empty());
}

TEST(RawStream, ALineLongerThanAPieceIsAPiece) {
  const PageKey key{kChart, ChartInfo(kColour, 30000, 3), {}};
  std::size_t pieces = 0;
  EXPECT_EQ(ReadAll(*OpenPage(key, {}), &pieces).size(), 270000u);
  EXPECT_EQ(pieces, 3u);
}

struct Coding {
  std::uint8_t line_template;
  bool typical_prediction;
  ImageHeader image_header;
  std::uint32_t lines_per_block;
};

class JbigStream : public ::testing::TestWithParam<Coding> {};

TEST_P(JbigStream, LibjbigDecodesWhatWasDrawn) {
  CodingOptions coding;
  coding.line_template = GetParam().line_template;
  coding.typical_prediction = GetParam().typical_prediction;
  coding.image_header = GetParam().image_header;
  coding.lines_per_block = GetParam().lines_per_block;
  ScanInfo info = ChartInfo(kBilevel, 808, 300);
  info.jbig_line_template = coding.line_template;
  info.jbig_typical_prediction = coding.typical_prediction;
  info.encode_header_size = 8;
  std::size_t pieces = 0;
  const Bytes data = ReadAll(*OpenPage({kChart, info, {}}, coding), &pieces);
  const Blocks blocks = DecodeBlocks(data, info, coding.image_header);
  EXPECT_EQ(blocks.lines, RenderPage(kChart, info, {}));
  const std::size_t expected = (300 + coding.lines_per_block - 1) / coding.lines_per_block;
  EXPECT_EQ(blocks.headers.size(), expected);
  EXPECT_EQ(pieces, expected);  // one block a piece
  for (const auto& header : blocks.headers) {
    EXPECT_EQ(header.width, 808);
    EXPECT_LE(header.lines, coding.lines_per_block);
  }
}

INSTANTIATE_TEST_SUITE_P(Codings, JbigStream,
                         ::testing::Values(Coding{2, true, ImageHeader::kInData, 256},
                                           Coding{2, false, ImageHeader::kInData, 64},
                                           Coding{3, true, ImageHeader::kInData, 300},
                                           Coding{3, false, ImageHeader::kInData, 299},
                                           Coding{2, true, ImageHeader::kInHeader, 128},
                                           Coding{3, true, ImageHeader::kNone, 65535},
                                           Coding{2, true, ImageHeader::kNone, 1}));

TEST(JbigBlocks, ABlockNeverPassesOneMebibyte) {
  // 1,200 lines of 8,000 coin tosses are 1.2 MB and cannot be shortened.
  const PagePtr noise = NoisePage(8000, 1200);
  CodingOptions coding;
  coding.lines_per_block = 1200;
  ScanInfo info = ChartInfo(kBilevel, 8000, 1200);
  info.jbig_line_template = 2;
  info.jbig_typical_prediction = 1;
  info.encode_header_size = 8;
  std::size_t largest = 0;
  const Bytes data = ReadAll(*OpenPage({noise, info, {}}, coding), nullptr, &largest);
  EXPECT_LE(largest, 0x100000u);
  const Blocks blocks = DecodeBlocks(data, info, ImageHeader::kInData);
  EXPECT_EQ(blocks.lines, RenderPage(noise, info, {}));
  for (const auto& header : blocks.headers) EXPECT_LE(header.lines, blocks.headers[0].lines);
}

TEST(JbigBlocks, AWidthThatIsNoMultipleOf8KeepsTheLinesThatHostsCount) {
  ScanInfo info = ChartInfo(kBilevel, 805, 100);
  info.jbig_line_template = 2;
  info.encode_header_size = 8;
  CodingOptions coding;
  coding.typical_prediction = false;
  const Blocks blocks =
      DecodeBlocks(ReadAll(*OpenPage({kChart, info, {}}, coding)), info, ImageHeader::kInData);
  EXPECT_EQ(blocks.headers.at(0).width, 805);
  EXPECT_EQ(blocks.lines, RenderPage(kChart, info, {}));
}

// A chart that counts how often it is drawn.
class CountedPage : public PageSource {
 public:
  PageSize Size() const override { return kChart->Size(); }
  std::unique_ptr<PageRaster> Open(const RasterWindow& window) const override {
    ++drawn;
    return kChart->Open(window);
  }
  mutable int drawn = 0;
};

TEST(PageCache, APageIsDrawnOnceAndReadAgain) {
  PageCache cache(1 << 20, {});
  const auto page = std::make_shared<CountedPage>();
  const PageKey key{page, ChartInfo(kBilevel, 808, 300), {}};
  const Bytes first = ReadAll(*cache.Open(key));
  EXPECT_EQ(first, RenderPage(kChart, key.info, {}));
  EXPECT_EQ(ReadAll(*cache.Open(key)), first);
  EXPECT_TRUE(cache.Prepare(key));
  EXPECT_EQ(page->drawn, 1);
}

TEST(PageCache, WithoutCapacityEveryPageIsDrawn) {
  PageCache cache(0, {});
  const auto page = std::make_shared<CountedPage>();
  const PageKey key{page, ChartInfo(kBilevel, 808, 30), {}};
  EXPECT_EQ(ReadAll(*cache.Open(key)), ReadAll(*cache.Open(key)));
  EXPECT_EQ(page->drawn, 2);
}

TEST(PageCache, APageThatWasNotReadToItsEndIsNotKept) {
  PageCache cache(1 << 20, {});
  const auto page = std::make_shared<CountedPage>();
  const PageKey key{page, ChartInfo(kColour, 808, 300), {}};
  Bytes piece;
  EXPECT_TRUE(cache.Open(key)->Next(piece));
  EXPECT_EQ(ReadAll(*cache.Open(key)), RenderPage(kChart, key.info, {}));
}

TEST(PageCache, APageThatDoesNotFitIsNotKept) {
  PageCache cache(10000, {});
  const PageKey small{kChart, ChartInfo(kBilevel, 808, 50), {}};
  const PageKey large{kChart, ChartInfo(kBilevel, 808, 300), {}};
  EXPECT_TRUE(cache.Prepare(small));
  EXPECT_FALSE(cache.Prepare(large));
  EXPECT_EQ(ReadAll(*cache.Open(large)), RenderPage(kChart, large.info, {}));
}

TEST(PageCache, TheOldestPageGoesFirst) {
  PageCache cache(10000, {});
  for (std::uint32_t lines = 40; lines < 50; ++lines) {
    EXPECT_TRUE(cache.Prepare({kChart, ChartInfo(kBilevel, 808, lines), {}}));
  }
  const PageKey newest{kChart, ChartInfo(kBilevel, 808, 49), {}};
  EXPECT_EQ(ReadAll(*cache.Open(newest)), RenderPage(kChart, newest.info, {}));
}

TEST(BlockFaults, EachSpoilsItsField) {
  const Bytes block = {0x28, 0x03, 0x0A, 0x00, 0x04, 0x00, 0x00, 0x00, 1, 2, 3, 4};
  const struct {
    BlockFault fault;
    const char* begin;
    std::size_t size;
    bool closes;
  } rows[] = {{BlockFault::kNone, "28 03 0A 00 04 00 00 00", 12, false},
              {BlockFault::kWidth, "30 03 0A 00 04 00 00 00", 12, false},
              {BlockFault::kTooLong, "28 03 0A 00 F9 FF 0F 00", 0x100001, false},
              {BlockFault::kHostile, "28 03 0A 00 F8 FF FF FF", 12, false},
              {BlockFault::kHuge, "FF FF FF FF 04 00 00 00", 12, false},
              {BlockFault::kNoLines, "28 03 00 00 04 00 00 00", 12, false},
              {BlockFault::kMoreLines, "28 03 0B 00 04 00 00 00", 12, false},
              {BlockFault::kGarbage, "28 03 0A 00 04 00 00 00", 12, false},
              {BlockFault::kCutHeader, "28 03 0A 00 04", 5, true},
              {BlockFault::kCutData, "28 03 0A 00 04 00 00 00", 10, true}};
  for (const auto& row : rows) {
    Bytes spoilt = block;
    EXPECT_EQ(SpoilBlock(row.fault, 8, spoilt), row.closes);
    EXPECT_EQ(spoilt.size(), row.size);
    spoilt.resize(std::min<std::size_t>(spoilt.size(), 8));
    EXPECT_EQ(Hex(spoilt), row.begin);
  }
  Bytes garbage = block;
  SpoilBlock(BlockFault::kGarbage, 8, garbage);
  EXPECT_NE(garbage, block);
}

}  // namespace
}  // namespace vox::sim
