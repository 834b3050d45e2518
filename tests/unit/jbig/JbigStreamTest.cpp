// The streaming path of the blocks of a network scan: gathering a block from pieces.
#include "tests/unit/jbig/JbigBlocks.h"

namespace vox::test {
namespace {

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

// Deliberate: seven bytes of a header are enough for the data step, which stores the piece as it
// is. So a block that is cut there arrives whole, header byte and data one behind the other.
TEST_F(Streaming, TheLastHeaderByteComesWithTheData) {
  const Bytes bytes = Block{16, 4, {1, 2, 3}}.Make();
  Room(static_cast<DWORD>(bytes.size()));
  EXPECT_EQ(Copy(Bytes(bytes.begin(), bytes.begin() + 7)), 7u);
  EXPECT_EQ(Copy(Bytes(bytes.begin() + 7, bytes.end())), 4u);
  EXPECT_EQ(Gathered(11), bytes);
  EXPECT_TRUE(m_control.IsAvail());
}

TEST_F(Streaming, TakesNoMoreThanTheBlock) {
  const Bytes bytes = Block{16, 4, {1, 2, 3}}.Make();
  Room(static_cast<DWORD>(bytes.size()));
  Copy(Bytes(bytes.begin(), bytes.begin() + 8));
  EXPECT_EQ(Copy({1, 2, 3, 4, 5}), 3u);
  EXPECT_EQ(Copy({6, 7}), 0u);
  EXPECT_EQ(Gathered(11), bytes);
  EXPECT_TRUE(m_control.IsAvail());
}

// Data that overwrite their own header may shorten the block below what has been gathered.
TEST_F(Streaming, TakesNoMoreThanABlockThatBecameShorter) {
  Room(20, 0);
  m_block[0] = 16, m_block[2] = 4, m_block[4] = 8;
  EXPECT_EQ(Copy({16, 0, 4, 0, 2, 0, 0, 0}), 8u);
  EXPECT_EQ(Copy({1, 2}), 0u);
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
  EXPECT_EQ(CopyHeader(16, 4, 0xFFFFFFFF), 8u);
  EXPECT_EQ(Copy({1, 2}), 2u) << "header and length are more than 32 bits";
  EXPECT_FALSE(m_control.IsAvail());
  EXPECT_EQ(Gathered(20)[8], 0) << "nothing was stored";
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

TEST_F(Streaming, SkipsToTheNextHeaderInTheSamePiece) {
  Room(100);
  Accept(16, 4, 3);
  Block bad{17, 4, {9, 9, 9}};
  Bytes piece = bad.Make();
  const Bytes good = Block{16, 4, {1, 2, 3}}.Make();
  piece.insert(piece.end(), good.begin(), good.end());
  EXPECT_EQ(Copy(piece), 11u);
}

TEST_F(Streaming, KnowsTheNextHeaderByWidthLinesAndLength) {
  const struct {
    WORD width, lines;
    DWORD length;
    bool fits;
    const char* reason;
  } candidates[] = {{16, 4, 3, true, "like the first"}, {16, 1, 3, true, "fewer lines"},
                    {16, 4, 100, true, "all the room"}, {17, 4, 3, false, "other width"},
                    {16, 5, 3, false, "more lines"},    {16, 4, 101, false, "no room"},
                    {16, 4, 1u << 31, false, "no room"}};
  for (const auto& one : candidates) {
    Room(100);
    Accept(16, 4, 3);
    CopyHeader(17, 4, 3);
    Bytes junk(5, 9);
    const Bytes header = Block{one.width, one.lines, {}, 8, one.length}.Make();
    junk.insert(junk.end(), header.begin(), header.end());
    EXPECT_EQ(Copy(junk), one.fits ? 5u : 13u) << one.reason;
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

TEST_F(Streaming, KeepsABlockForWhichThereIsNoBitmapYet) {
  const Picture picture = Blobs(80, 10, 1);
  const Bytes bytes = BlockOf(picture).Make();
  Room(static_cast<DWORD>(bytes.size()));
  ASSERT_TRUE(Image().Alloc(4));
  Copy(Bytes(bytes.begin(), bytes.begin() + 8));
  Copy(Bytes(bytes.begin() + 8, bytes.end()));
  EXPECT_FALSE(m_control.Decompress());
  EXPECT_TRUE(m_control.IsAvail());
  EXPECT_EQ(Drain(10), Bytes(4, 0));
  EXPECT_TRUE(m_control.Decompress());
  EXPECT_EQ(Drain(1000), picture.bits);
}

TEST_F(Streaming, ForgetsABlockThatDoesNotDecode) {
  const Bytes bytes = Block{16, 4, {0xFF, 0x06, 0, 0, 0, 0, 200, 0, 1, 2, 3}}.Make();
  Room(static_cast<DWORD>(bytes.size()));
  Copy(Bytes(bytes.begin(), bytes.begin() + 8));
  Copy(Bytes(bytes.begin() + 8, bytes.end()));
  EXPECT_TRUE(m_control.IsAvail());
  EXPECT_FALSE(m_control.Decompress());
  EXPECT_FALSE(m_control.IsAvail());
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
