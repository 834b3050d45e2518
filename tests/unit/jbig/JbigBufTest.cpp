// The blocks of a network scan: framing, decoding, handing out, gathering from a stream.
#include "vox/drivers/JbigBuf.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include <gtest/gtest.h>

#include "tests/support/JbigDriver.h"

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

// A block as a receiver holds it: header in host order, data behind header_size bytes.
struct Block {
  WORD width = 0, lines = 0;
  Bytes data;
  BYTE header_size = 8;
  DWORD length = 0xFFFFFFFF;  // dwLength; the data's unless set

  Bytes Make() const {
    const tagJBIGSCANDATAHEADER header{
        width, lines, length == 0xFFFFFFFF ? static_cast<DWORD>(data.size()) : length};
    Bytes bytes(std::max<std::size_t>(header_size, sizeof header));
    std::memcpy(bytes.data(), &header, sizeof header);
    bytes.resize(header_size);
    bytes.insert(bytes.end(), data.begin(), data.end());
    return bytes;
  }
};

Bytes Bie(const Picture& picture, int lines = 2, bool tp = false) {
  return Encode(picture, {picture.width, picture.height, picture.height, lines, tp});
}

Block BlockOf(const Picture& picture, int lines = 2, bool tp = false) {
  const Bytes bie = Bie(picture, lines, tp);
  return {static_cast<WORD>(picture.width), static_cast<WORD>(picture.height),
          Bytes(bie.begin() + kBihSize, bie.end())};
}

class JbigData : public testing::Test {
 protected:
  JbigData() { EXPECT_TRUE(m_control.AllocImageData()); }
  ~JbigData() override {
    m_control.m_lpJbigData = nullptr;
    allocations_until_failure = -1;
  }

  // Decodes a block that a list owns, in an exact-size buffer.
  bool Decompress(const Bytes& block) {
    m_block.assign(block.begin(), block.end());
    m_block.shrink_to_fit();
    m_control.m_lpJbigData = m_block.data();
    return m_control.Decompress();
  }
  bool DecompressBlock(const Block& block) {
    m_control.SetJbigParam(m_lines, m_tp, block.header_size);
    return Decompress(block.Make());
  }
  Bytes Drain(DWORD piece) {
    Bytes all, buffer(piece);
    while (!Image().IsEmpty()) {
      const DWORD got = Image().SetImageData(buffer.data(), piece);
      all.insert(all.end(), buffer.begin(), buffer.begin() + got);
    }
    return all;
  }
  CImageDataCtrl& Image() { return *m_control.GetImageDataCtrl(); }

  CJbigDataCtrl m_control;
  BYTE m_lines = 2, m_tp = 0;
  Bytes m_block;
};

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

TEST_F(JbigData, UsesTwoTemplateLinesUnlessTold) {
  const Picture picture = Blobs(160, 40, 1);
  Block block = BlockOf(picture, 2);
  block.header_size = 0;  // the data lie over the header, as the parameters say
  CJbigDataCtrl fresh;
  ASSERT_TRUE(fresh.AllocImageData());
  fresh.SetJbigParam(2, 0, 8);
  block.header_size = 8;
  Bytes bytes = block.Make();
  fresh.m_lpJbigData = bytes.data();
  EXPECT_TRUE(fresh.Decompress());
  fresh.m_lpJbigData = nullptr;
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

// ---- the streaming path

class Streaming : public JbigData {
 protected:
  // Room for blocks of that many bytes in all, in an exact-size buffer.
  void Room(DWORD size, BYTE header_size = 8) {
    m_block.assign(size, 0);
    m_block.shrink_to_fit();
    m_control.m_lpJbigData = m_block.data();
    m_control.SetMemorySize(size);
    m_control.SetJbigParam(2, 0, header_size);
  }
  DWORD Copy(Bytes bytes) {
    bytes.shrink_to_fit();
    return m_control.CopyJbigData(bytes.data(), static_cast<unsigned>(bytes.size()));
  }
  DWORD CopyHeader(WORD width, WORD lines, DWORD length) {
    Block block;
    block.width = width;
    block.lines = lines;
    block.length = length;
    return Copy(block.Make());
  }
  // Takes a header as the first one.
  void Accept(WORD width, WORD lines, DWORD length) {
    CopyHeader(width, lines, length);
    Copy({1});
    m_control.ResetData();
  }
  Bytes Gathered(std::size_t size) const { return Bytes(m_block.begin(), m_block.begin() + size); }
};

TEST_F(Streaming, GathersABlockFromHeaderAndDataApart) {
  const Picture picture = Blobs(80, 10, 1);
  const Block block = BlockOf(picture);
  const Bytes bytes = block.Make();
  Room(static_cast<DWORD>(bytes.size()));
  EXPECT_EQ(Copy(Bytes(bytes.begin(), bytes.begin() + 8)), 8u);
  EXPECT_FALSE(m_control.IsAvail());
  EXPECT_EQ(Copy(Bytes(bytes.begin() + 8, bytes.begin() + 10)), 2u);
  EXPECT_FALSE(m_control.IsAvail());
  EXPECT_EQ(Copy(Bytes(bytes.begin() + 10, bytes.end())), bytes.size() - 10);
  EXPECT_TRUE(m_control.IsAvail());
  EXPECT_EQ(Gathered(bytes.size()), bytes);
  EXPECT_TRUE(m_control.Decompress());
  EXPECT_EQ(Drain(1000), picture.bits);
  EXPECT_FALSE(m_control.IsAvail());
}

// Deliberate: the data step copies from the piece's first byte, header or not.
TEST_F(Streaming, CopiesDataFromTheStartOfThePieceThatBeganWithTheHeader) {
  Room(100);
  Block block{16, 4, {1, 2, 3, 4, 5, 6}};
  const Bytes bytes = block.Make();
  EXPECT_EQ(Copy(bytes), 14u);
  Bytes wanted(bytes.begin(), bytes.begin() + 8);
  wanted.insert(wanted.end(), bytes.begin(), bytes.begin() + 6);
  EXPECT_EQ(Gathered(14), wanted);
  EXPECT_TRUE(m_control.IsAvail());
}

// Deliberate: a header that lacks one byte is completed by the data step.
TEST_F(Streaming, ByteByByteTheHeaderStopsAtSeven) {
  Room(100);
  const Bytes bytes = Block{16, 4, {1, 2, 3}}.Make();
  for (unsigned i = 0; i < 7; ++i) {
    EXPECT_EQ(Copy({bytes[i]}), 1u) << i;
    EXPECT_FALSE(m_control.IsAvail());
  }
  for (unsigned i = 7; i < 11; ++i) EXPECT_EQ(Copy({bytes[i]}), 1u) << i;
  EXPECT_EQ(Gathered(11), bytes);
  EXPECT_TRUE(m_control.IsAvail());
}

TEST_F(Streaming, TakesNothingFromNowhereOrToNowhere) {
  Room(100);
  EXPECT_EQ(m_control.CopyJbigData(nullptr, 5), 0u);
  m_control.m_lpJbigData = nullptr;
  EXPECT_EQ(Copy({1, 2, 3}), 0u);
  EXPECT_FALSE(m_control.IsAvail());
}

TEST_F(Streaming, AcceptsTheFirstHeaderAsItIs) {
  Room(20);
  EXPECT_EQ(CopyHeader(16, 4, 0xFFFFFF00), 8u);
  EXPECT_EQ(Copy({1, 2}), 2u);
  EXPECT_FALSE(m_control.IsAvail());
}

TEST_F(Streaming, AcceptsLaterBlocksWithFewerLines) {
  Room(100);
  Accept(16, 4, 3);
  CopyHeader(16, 3, 3);
  EXPECT_EQ(Copy({1, 2, 3}), 3u);
  EXPECT_TRUE(m_control.IsAvail());
}

// A rejected header forgets what was gathered and skips to the next one that fits.
TEST_F(Streaming, RejectsLaterHeadersThatDoNotMatch) {
  const struct {
    WORD width, lines;
    DWORD length;
    const char* reason;
  } bad[] = {{17, 4, 3, "other width"},
             {16, 5, 3, "more lines"},
             {16, 4, 93, "no room"},
             {16, 4, 0xFFFFFFFC, "length wraps"}};
  for (const auto& one : bad) {
    CJbigDataCtrl fresh;
    Room(100);
    Accept(16, 4, 3);
    CopyHeader(one.width, one.lines, one.length);
    EXPECT_EQ(Copy({9, 9, 9, 16, 0, 4, 0, 3, 0, 0, 0, 1}), 3u) << one.reason;
    EXPECT_EQ(CopyHeader(16, 4, 3), 8u) << "starts again";
    EXPECT_EQ(Copy({1, 2, 3}), 3u);
    EXPECT_TRUE(m_control.IsAvail()) << one.reason;
    m_control.ResetData();
  }
}

TEST_F(Streaming, SkipsAllWhenNoHeaderFollows) {
  Room(100);
  Accept(16, 4, 3);
  CopyHeader(17, 4, 3);
  EXPECT_EQ(Copy(Bytes(30, 9)), 30u);
}

// A header whose last bytes have not come cannot be recognised.
TEST_F(Streaming, LooksForHeadersOnlyWhereAllBytesAre) {
  Room(100);
  Accept(16, 4, 3);
  CopyHeader(17, 4, 3);
  EXPECT_EQ(Copy({9, 16, 0, 4, 0, 3, 0, 0}), 8u);
  CopyHeader(17, 4, 3);
  EXPECT_EQ(Copy({9, 16, 0, 4, 0, 3, 0, 0, 0}), 1u);
}

TEST_F(Streaming, CountsWhatItHasNoRoomFor) {
  Room(10);
  CopyHeader(16, 4, 5);
  EXPECT_EQ(Copy({1, 2, 3, 4, 5}), 5u);
  EXPECT_EQ(Bytes(m_block.begin() + 8, m_block.end()), Bytes(2, 0)) << "nothing was stored";
  EXPECT_TRUE(m_control.IsAvail());
  EXPECT_FALSE(m_control.Decompress()) << "what is not there is not decoded";
  EXPECT_TRUE(Image().IsEmpty());
}

TEST_F(Streaming, StoresNothingWithoutRoom) {
  Room(0);
  BYTE none = 0xA5;
  m_control.m_lpJbigData = &none;
  EXPECT_EQ(Copy({16, 0, 4, 0, 3, 0, 0, 0, 1, 2, 3}), 8u);
  EXPECT_EQ(none, 0xA5);
}

TEST_F(Streaming, ReadsShortHeadersWithinItsRoom) {
  for (BYTE header_size = 0; header_size < 8; ++header_size)
    for (DWORD room = 0; room < 12; ++room) {
      CJbigDataCtrl fresh;
      Room(room, header_size);
      for (int i = 0; i < 30; ++i) EXPECT_LE(Copy({16, 0, 4}), 3u);
      m_control.IsAvail();
      m_control.Decompress();
      Drain(100);
      m_control.ResetData();
    }
}

TEST_F(Streaming, IsNotAvailableBeforeItsHeaderIs) {
  Room(100, 28);
  EXPECT_FALSE(m_control.IsAvail());
  Copy(Bytes(27, 0));
  EXPECT_FALSE(m_control.IsAvail());
}

}  // namespace
}  // namespace vox::test
