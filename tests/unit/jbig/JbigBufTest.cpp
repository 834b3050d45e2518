// The blocks of a network scan: decoding and handing out.
#include <cstdlib>
#include <cstring>

#include "tests/unit/jbig/JbigBlocks.h"

namespace {
int allocations_until_failure = -1;  // -1: none fails
}

// The linker leads the library's allocations here.
extern "C" void* __real_calloc(std::size_t count, std::size_t size);
extern "C" void* __wrap_calloc(std::size_t count, std::size_t size) {
  if (allocations_until_failure == 0) return nullptr;
  if (allocations_until_failure > 0) --allocations_until_failure;
  return __real_calloc(count, size);
}

namespace vox::test {
namespace {

// ---- decoding

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
    EXPECT_EQ(Drain(100000).size(), width * 2 / 8);
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
    allocations_until_failure = one.after;
    EXPECT_FALSE(DecompressBlock(block)) << one.after;
    allocations_until_failure = -1;
    EXPECT_EQ(testing::internal::GetCapturedStderr().substr(0, std::strlen(one.text)), one.text);
    EXPECT_TRUE(Image().IsEmpty());
  }
  EXPECT_TRUE(DecompressBlock(block)) << "and goes on";
}

// ---- scratch

TEST(JbigScratch, IsLargeEnoughWhateverTheWidth) {
  for (const unsigned width : {0u, 1u, 65530u, 65531u, 65535u}) {
    const CJbigTmpBuf scratch(static_cast<WORD>(width));
    for (WORD* buffer : {scratch.GetABuff(), scratch.GetBBuff(), scratch.GetContextBuff()}) {
      ASSERT_NE(buffer, nullptr);
      std::memset(buffer, 0xFF, 8448);
    }
  }
}

TEST(JbigScratch, IsEmptyByDefault) {
  const CJbigTmpBuf scratch;
  EXPECT_EQ(scratch.GetABuff(), nullptr);
  EXPECT_EQ(scratch.GetBBuff(), nullptr);
  EXPECT_EQ(scratch.GetContextBuff(), nullptr);
  JbigFree(nullptr);
}

TEST(JbigScratch, AllocatesWords) {
  WORD* words = JbigAlloc(65535);
  ASSERT_NE(words, nullptr);
  words[65534] = 1;
  JbigFree(words);
}

// ---- the bitmap

class ImageData : public testing::Test {
 protected:
  void Fill(ULONG size) {
    ASSERT_TRUE(m_image.Alloc(size));
    for (ULONG i = 0; i < size; ++i) m_image.GetDataPtr()[i] = static_cast<BYTE>(i);
  }
  CImageDataCtrl m_image;
  BYTE m_out[20] = {};
};

TEST_F(ImageData, ComesOutInPieces) {
  Fill(10);
  EXPECT_EQ(m_image.SetImageData(m_out, 4), 4u);
  EXPECT_EQ(m_image.SetImageData(m_out + 4, 4), 4u);
  EXPECT_FALSE(m_image.IsEmpty());
  EXPECT_EQ(m_image.SetImageData(m_out + 8, 4), 2u);
  EXPECT_TRUE(m_image.IsEmpty());
  for (BYTE i = 0; i < 10; ++i) EXPECT_EQ(m_out[i], i);
  EXPECT_EQ(m_out[10], 0);
}

TEST_F(ImageData, IsEmptyAfterARequestForAllOfIt) {
  Fill(10);
  EXPECT_EQ(m_image.SetImageData(m_out, 10), 10u);
  EXPECT_TRUE(m_image.IsEmpty());
  EXPECT_EQ(m_image.GetDataPtr(), nullptr);
}

TEST_F(ImageData, IsEmptyAfterARequestForOneMore) {
  Fill(10);
  EXPECT_EQ(m_image.SetImageData(m_out, 11), 10u);
  EXPECT_TRUE(m_image.IsEmpty());
  EXPECT_EQ(m_image.GetDataPtr(), nullptr);
}

TEST_F(ImageData, KeepsAllWhenNothingIsAsked) {
  Fill(10);
  EXPECT_EQ(m_image.SetImageData(m_out, 0), 0u);
  EXPECT_FALSE(m_image.IsEmpty());
}

TEST_F(ImageData, GoesWithANullBuffer) {
  Fill(10);
  EXPECT_EQ(m_image.SetImageData(nullptr, 5), 0u);
  EXPECT_TRUE(m_image.IsEmpty());
  EXPECT_EQ(m_image.GetDataPtr(), nullptr);
  EXPECT_EQ(m_image.SetImageData(m_out, 5), 0u);
}

TEST_F(ImageData, IsNeverAllocatedOverAnother) {
  Fill(10);
  const LPBYTE data = m_image.GetDataPtr();
  EXPECT_FALSE(m_image.Alloc(20));
  EXPECT_EQ(m_image.GetDataPtr(), data);
  EXPECT_EQ(m_image.SetImageData(m_out, 20), 10u);
  EXPECT_TRUE(m_image.Alloc(20));
}

}  // namespace
}  // namespace vox::test
