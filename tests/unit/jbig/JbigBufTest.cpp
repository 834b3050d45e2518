// The blocks of a network scan: decoding.
#include <cstdlib>
#include <cstring>

#include "tests/support/Allocations.h"
#include "tests/unit/jbig/JbigBlocks.h"

namespace vox::test {
namespace {

TEST_F(JbigData, DecodesABlockWithTheDevicesParameters) {
  for (const BYTE lines : {2, 3})
    for (const BYTE tp : {0, 1}) {
      const Picture picture = Blobs(160, 40, lines + tp);
      m_lines = lines;
      m_tp = tp;
      ASSERT_TRUE(DecompressBlock(BlockOf(picture, lines, tp)));
      EXPECT_EQ(Drain(7), picture.bits);
    }
}

// Without parameters: two template lines, no typical prediction, data from the block's first byte
// on (which the header then is a part of).
TEST_F(JbigData, HasItsDefaults) {
  Bytes bytes = Block{16, 4, {0x12, 0x34, 0xFF, 0x02}}.Make();
  m_control.m_lpJbigData = bytes.data();
  ASSERT_TRUE(m_control.Decompress());
  EXPECT_EQ(Drain(100), Decode({16, 4, 4, 2}, Bytes(bytes.begin(), bytes.begin() + 4)));
}

// The worked examples of docs/wire/jbig-block.md, as a little-endian host receives them.
TEST_F(JbigData, DecodesTheDocumentedBlocks) {
  const Bytes code = {0xC3, 0x60, 0xC3, 0xA1, 0x8B, 0x72, 0xB0, 0xFF, 0x02};
  Block block{16, 4, code};
  m_lines = 3;
  const Bytes picture = {0xAA, 0x55, 0x55, 0xAA, 0xF0, 0x0F, 0x80, 0x01};
  ASSERT_TRUE(DecompressBlock(block));
  EXPECT_EQ(Drain(100), picture);
  block.data = {0, 0, 1, 0, 0, 0, 0, 16, 0, 0, 0, 4, 0, 0, 0, 4, 0, 0, 0, 0};
  block.data.insert(block.data.end(), code.begin(), code.end());
  EXPECT_EQ(block.data.size(), 0x1Du);
  ASSERT_TRUE(DecompressBlock(block));
  EXPECT_EQ(Drain(100), picture);
}

TEST_F(JbigData, DecodesOneBlockAfterTheOther) {
  for (std::uint32_t seed = 0; seed < 5; ++seed) {
    const Picture picture = Blobs(80, 10 + seed, seed);
    ASSERT_TRUE(DecompressBlock(BlockOf(picture)));
    EXPECT_EQ(Drain(1000), picture.bits);
  }
}

TEST_F(JbigData, FindsTheImageHeaderInTheData) {
  const Picture picture = Blobs(160, 40, 1);
  Block block = BlockOf(picture);
  block.data = Bie(picture);
  ASSERT_TRUE(DecompressBlock(block));
  EXPECT_EQ(Drain(1000), picture.bits);
}

TEST_F(JbigData, FindsTheImageHeaderInTheHeader) {
  const Picture picture = Blobs(160, 40, 1);
  Block block = BlockOf(picture);
  block.header_size = 28;
  ASSERT_TRUE(DecompressBlock(block));
  EXPECT_EQ(Drain(1000), picture.bits);
}

// Fewer than 20 bytes are no image header, however they begin.
TEST_F(JbigData, TakesAShortBeginningForCode) {
  Block block{160, 40, {0, 0, 1, 0, 0, 0, 0, 160, 0, 0, 0, 40, 0, 0, 0, 40, 0, 0, 0}};
  ASSERT_TRUE(DecompressBlock(block));
  EXPECT_EQ(Drain(1000), Decode({160, 40, 40, 2}, block.data));
}

// The height is the block's: a NEWLEN among the data says nothing.
TEST_F(JbigData, IgnoresNewlen) {
  const Picture picture = Blobs(160, 40, 1);
  Block block = BlockOf(picture);
  const Bytes newlen = {0xFF, 0x05, 0, 0, 0, 1};
  block.data.insert(block.data.begin(), newlen.begin(), newlen.end());
  ASSERT_TRUE(DecompressBlock(block));
  EXPECT_EQ(Drain(1000), picture.bits);
}

TEST_F(JbigData, TakesOtherBeginningsForCode) {
  const Picture picture = Blobs(160, 40, 1);
  Bytes bie = Bie(picture);
  bie[7] ^= 1;  // another width: no header of this block
  Block block = BlockOf(picture);
  block.data = bie;
  DecompressBlock(block);
  EXPECT_NE(Drain(1000), picture.bits);
}

// Sizes at which the last line ends behind the bitmap.
TEST_F(JbigData, KeepsSmallOddBlocksInBounds) {
  const unsigned sizes[][2] = {{9, 1},  {7, 1}, {3, 2}, {1, 7}, {1, 1},
                               {15, 3}, {9, 8}, {1, 8}, {17, 5}};
  for (const auto& size : sizes) {
    const Picture picture = RandomDots(size[0], size[1], 128, 1);
    ASSERT_TRUE(DecompressBlock(BlockOf(picture))) << size[0] << " x " << size[1];
    EXPECT_EQ(Drain(3).size(), size[0] * size[1] / 8) << "truncated";
  }
}

TEST_F(JbigData, LinesOverlapWhereTheWidthIsOdd) {
  Picture picture(12, 2);
  picture.bits = {0xAB, 0xC0, 0x12, 0x30};
  ASSERT_TRUE(DecompressBlock(BlockOf(picture)));
  EXPECT_EQ(Drain(10), (Bytes{0xAB, 0x12, 0x30}));
}

TEST_F(JbigData, DecodesTheWidestBlocks) {
  for (const unsigned width : {65530u, 65531u, 65535u}) {
    const Picture picture = Blobs(width, 2, width);
    ASSERT_TRUE(DecompressBlock(BlockOf(picture))) << width;
    const Bytes bitmap = Drain(100000);
    EXPECT_EQ(bitmap.size(), width * 2 / 8);
    EXPECT_TRUE(std::equal(picture.Line(0), picture.Line(0) + width / 8, bitmap.begin())) << width;
  }
}

TEST_F(JbigData, RefusesASizeThatIsNegative) {
  Block block;
  block.width = block.lines = 65535;
  block.data = {0, 0};
  EXPECT_FALSE(DecompressBlock(block));
  EXPECT_TRUE(Image().IsEmpty());
  EXPECT_EQ(Image().GetDataPtr(), nullptr);
}

TEST_F(JbigData, ABlockWithoutLinesSucceedsAndIsEmpty) {
  Block block;
  block.width = 100;
  block.data = {0xFF, 0x02};
  EXPECT_TRUE(DecompressBlock(block));
  EXPECT_TRUE(Image().IsEmpty());
  EXPECT_TRUE(DecompressBlock(BlockOf(Blobs(80, 10, 1)))) << "the next block finds room";
}

TEST_F(JbigData, FailsWhileABitmapIsThere) {
  const Picture picture = Blobs(80, 10, 1);
  ASSERT_TRUE(DecompressBlock(BlockOf(picture)));
  BYTE first = 0;
  EXPECT_EQ(Image().SetImageData(&first, 1), 1u);
  EXPECT_FALSE(DecompressBlock(BlockOf(Blobs(80, 10, 2))));
  Bytes rest = Drain(1000);
  rest.insert(rest.begin(), first);
  EXPECT_EQ(rest, picture.bits);
}

TEST_F(JbigData, FailsOnBadDataAndIsEmptyThen) {
  Block block = BlockOf(Blobs(80, 10, 1));
  block.data = {0xFF, 0x06, 0, 0, 0, 0, 200, 0, 1, 2, 3};
  EXPECT_FALSE(DecompressBlock(block));
  EXPECT_TRUE(Image().IsEmpty());
  EXPECT_EQ(Image().GetDataPtr(), nullptr);
  m_lines = 4;
  EXPECT_FALSE(DecompressBlock(BlockOf(Blobs(80, 10, 1))));
  EXPECT_TRUE(Image().IsEmpty());
}

TEST_F(JbigData, CompletesATruncatedBlock) {
  Block block = BlockOf(Blobs(80, 10, 1));
  block.data.resize(5);
  EXPECT_TRUE(DecompressBlock(block));
  EXPECT_EQ(Drain(1000).size(), 100u);
}

TEST_F(JbigData, NeedsABlockAndABitmapObject) {
  EXPECT_FALSE(m_control.Decompress());
  CJbigDataCtrl fresh;
  Bytes block = BlockOf(Blobs(80, 10, 1)).Make();
  fresh.m_lpJbigData = block.data();
  EXPECT_FALSE(fresh.Decompress());
  fresh.m_lpJbigData = nullptr;
}

TEST_F(JbigData, MakesItsBitmapObjectOnce) {
  CImageDataCtrl* const image = m_control.GetImageDataCtrl();
  EXPECT_FALSE(m_control.AllocImageData());
  EXPECT_EQ(m_control.GetImageDataCtrl(), image);
}

TEST_F(JbigData, ReleasesTheBlockThatItHolds) {
  CJbigDataCtrl fresh;  // the leak checker watches
  fresh.m_lpJbigData = static_cast<BYTE*>(std::malloc(100));
}

TEST_F(JbigData, ReportsFailedAllocations) {
  const struct {
    int after;
    const char* text;
  } cases[] = {{0, "CImageDataCtrl: exception\n"},
               {1, "JbigAlloc: exception\n"},
               {2, "JbigAlloc: exception\n"},
               {3, "JbigAlloc: exception\n"}};
  const Block block = BlockOf(Blobs(80, 10, 1));
  for (const auto& one : cases) {
    testing::internal::CaptureStderr();
    {
      const FailingAllocation failing(one.after);
      EXPECT_FALSE(DecompressBlock(block)) << one.after;
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr().substr(0, std::strlen(one.text)), one.text);
    EXPECT_TRUE(Image().IsEmpty());
  }
  EXPECT_TRUE(DecompressBlock(block)) << "and goes on";
}

}  // namespace
}  // namespace vox::test
