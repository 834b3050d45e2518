// Receiving one block: what is accepted, what is refused, and how a stream that ends is judged.
#include "vox/drivers/net/JbigBlock.h"

#include <cstring>
#include <memory>
#include <ostream>

#include <gtest/gtest.h>

#include "tests/support/Hex.h"
#include "tests/support/MemorySource.h"

namespace vox::test {
namespace {

Bytes Header(std::uint16_t width, std::uint16_t lines, std::uint32_t length) {
  const auto byte = [](std::uint32_t value, int shift) {
    return static_cast<std::uint8_t>(value >> shift);
  };
  return {byte(width, 0),  byte(width, 8),  byte(lines, 0),   byte(lines, 8),
          byte(length, 0), byte(length, 8), byte(length, 16), byte(length, 24)};
}

class JbigBlock : public ::testing::Test {
 protected:
  JBIG_BLOCK Read(JbigSource& source) {
    std::memset(block_.get(), 0xA5, kJbigBlockSize);
    return read_block(&source, &rule_, block_.get());
  }
  JBIG_BLOCK Read(const Bytes& bytes, int end = SOURCE_ENDED) {
    MemorySource source(bytes, 7, end);
    return Read(source);
  }
  tagJBIGSCANDATAHEADER HeaderInBlock() const {
    tagJBIGSCANDATAHEADER header;
    std::memcpy(&header, block_.get(), sizeof header);
    return header;
  }

  // Exactly as large as the contract says, so that a sanitizer sees whoever writes beyond.
  std::unique_ptr<BYTE[]> block_ = std::make_unique<BYTE[]>(kJbigBlockSize);
  tagJBIGRULE rule_;
};

TEST_F(JbigBlock, IsReadWhole) {
  ASSERT_EQ(Read(Header(0x1234, 0x0506, 3) + Hex("AA BB CC")), JBIG_BLOCK_WHOLE);
  EXPECT_EQ(HeaderInBlock().wdWidth, 0x1234);
  EXPECT_EQ(HeaderInBlock().wdLength, 0x0506);
  EXPECT_EQ(HeaderInBlock().dwLength, 3u);
  EXPECT_EQ(ToHex(block_.get() + 8, 3), "AA BB CC");
}

TEST_F(JbigBlock, NothingBehindItIsTaken) {
  MemorySource source(Header(8, 1, 2) + Hex("AA BB CC DD"), 1'000);
  ASSERT_EQ(Read(source), JBIG_BLOCK_WHOLE);
  EXPECT_EQ(source.Left(), 2u);
}

TEST_F(JbigBlock, HeaderAndDataHaveWaitsOfTheirOwn) {
  MemorySource source(Header(8, 1, 7) + Hex("01 02 03 04 05 06 07"), 7);
  ASSERT_EQ(Read(source), JBIG_BLOCK_WHOLE);
  EXPECT_EQ(source.waits, (std::vector<bool>{true, true, false}));
}

TEST_F(JbigBlock, LongerHeaderIsKeptWhole) {
  rule_.byHeaderSize = 28;
  const Bytes rest(20, 0x77);
  ASSERT_EQ(Read(Header(8, 1, 1) + rest + Hex("EE")), JBIG_BLOCK_WHOLE);
  EXPECT_EQ(ToHex(block_.get() + 8, 20), ToHex(rest));
  EXPECT_EQ(block_[28], 0xEE);
}

struct Length {
  std::uint32_t length;
  bool good;
};
void PrintTo(const Length& length, std::ostream* stream) {
  *stream << length.length;
}

class JbigBlockLength : public JbigBlock, public ::testing::WithParamInterface<Length> {
 protected:
  // 8 bytes of header and the data have 1 MiB together.
  void Expect(bool good) {
    const Bytes data(good ? GetParam().length : 100, 0x5A);
    MemorySource source(Header(16, 1, GetParam().length) + data, 100'000);
    EXPECT_EQ(Read(source), good ? JBIG_BLOCK_WHOLE : JBIG_BLOCK_REFUSED);
  }
};

TEST_P(JbigBlockLength, OfTheFirstBlock) {
  Expect(GetParam().good);
}

TEST_P(JbigBlockLength, OfALaterBlock) {
  ASSERT_EQ(Read(Header(16, 1, 1) + Hex("00")), JBIG_BLOCK_WHOLE);
  Expect(GetParam().good);
}

INSTANTIATE_TEST_SUITE_P(Table, JbigBlockLength,
                         ::testing::Values(Length{0, true}, Length{0xFFFF7, true},
                                           Length{0xFFFF8, true}, Length{0xFFFF9, false},
                                           Length{0x100000, false}, Length{0x7FFFFFFF, false},
                                           Length{0xFFFFFFF7, false}, Length{0xFFFFFFF8, false},
                                           Length{0xFFFFFFFF, false}));

TEST_F(JbigBlock, LaterBlockOfAnotherWidthIsRefused) {
  ASSERT_EQ(Read(Header(16, 4, 1) + Hex("00")), JBIG_BLOCK_WHOLE);
  ASSERT_EQ(Read(Header(16, 9, 1) + Hex("00")), JBIG_BLOCK_WHOLE) << "lines may change";
  EXPECT_EQ(Read(Header(17, 4, 1) + Hex("00")), JBIG_BLOCK_REFUSED);
}

TEST_F(JbigBlock, StreamThatEndsBetweenBlocksEnds) {
  EXPECT_EQ(Read(Bytes{}), JBIG_BLOCK_END);
}

TEST_F(JbigBlock, StreamThatEndsInAHeaderIsCut) {
  for (std::size_t size = 1; size < 8; ++size) {
    const Bytes whole = Header(8, 1, 0);
    EXPECT_EQ(Read(Bytes(whole.begin(), whole.begin() + static_cast<int>(size))), JBIG_BLOCK_CUT);
  }
}

TEST_F(JbigBlock, StreamThatBreaksBetweenBlocksIsCut) {
  EXPECT_EQ(Read(Bytes{}, SOURCE_BROKE), JBIG_BLOCK_CUT);
}

TEST_F(JbigBlock, StreamThatEndsOrBreaksInTheDataIsBroken) {
  EXPECT_EQ(Read(Header(8, 1, 5) + Hex("01 02 03 04")), JBIG_BLOCK_BROKEN);
  EXPECT_EQ(Read(Header(8, 1, 5), SOURCE_BROKE), JBIG_BLOCK_BROKEN);
}

TEST_F(JbigBlock, StopIsToldInHeaderAndData) {
  EXPECT_EQ(Read(Hex("08 00"), SOURCE_STOPPED), JBIG_BLOCK_STOPPED);
  EXPECT_EQ(Read(Header(8, 1, 5), SOURCE_STOPPED), JBIG_BLOCK_STOPPED);
}

class ShortHeader : public JbigBlock {
 protected:
  JBIG_BLOCK ReadWith(BYTE header_size, const std::string& hex) {
    rule_ = {};
    rule_.byHeaderSize = header_size;
    return Read(Hex(hex));
  }
};

TEST_F(ShortHeader, MissingBytesCountAsZero) {
  ASSERT_EQ(ReadWith(2, "10 00"), JBIG_BLOCK_WHOLE);
  EXPECT_EQ(HeaderInBlock().wdWidth, 16);
  EXPECT_EQ(HeaderInBlock().wdLength, 0);
  EXPECT_EQ(HeaderInBlock().dwLength, 0u);
}

// With 5 bytes of header the coded data begin where the upper bytes of dwLength lie.
TEST_F(ShortHeader, DataThatChangeTheLengthAreRefused) {
  EXPECT_EQ(ReadWith(5, "10 00 01 00 03 FF FF FF"), JBIG_BLOCK_REFUSED);
  EXPECT_EQ(ReadWith(5, "10 00 01 00 03 00 00 00"), JBIG_BLOCK_WHOLE);
}

}  // namespace
}  // namespace vox::test
