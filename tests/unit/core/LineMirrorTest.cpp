// Lines turned left to right in the three depths.
#include "vox/drivers/LineMirror.h"

#include <gtest/gtest.h>

#include "tests/support/PlainKernels.h"

namespace vox {
namespace {

using test::Line;

Line Mirrored(Line line, std::uint32_t DataType) {
  line.shrink_to_fit();
  EXPECT_TRUE(mirror_line(line.data(), line.size(), DataType));
  return line;
}

TEST(LineMirror, BitsAreReversedInEveryByte) {
  EXPECT_EQ(Mirrored({0x01, 0x80}, 0), (Line{0x01, 0x80}));
  EXPECT_EQ(Mirrored({0x12, 0x34}, 0), (Line{0x2C, 0x48}));
  EXPECT_EQ(Mirrored({0x12}, 0), (Line{0x48}));
}

TEST(LineMirror, GreyBytesSwapAroundTheMiddle) {
  EXPECT_EQ(Mirrored({1, 2, 3}, 2), (Line{3, 2, 1}));
  EXPECT_EQ(Mirrored({1, 2, 3, 4}, 2), (Line{4, 3, 2, 1}));
}

TEST(LineMirror, ColourPixelsKeepTheirByteOrder) {
  EXPECT_EQ(Mirrored({1, 2, 3, 4, 5, 6}, 3), (Line{4, 5, 6, 1, 2, 3}));
  EXPECT_EQ(Mirrored({1, 2, 3, 4, 5, 6, 7, 8, 9}, 3), (Line{7, 8, 9, 4, 5, 6, 1, 2, 3}));
}

TEST(LineMirror, BytesThatAreNoPixelStay) {
  EXPECT_EQ(Mirrored({1, 2}, 3), (Line{1, 2}));
  EXPECT_EQ(Mirrored({1, 2, 3, 4, 5, 6, 7, 8}, 3), (Line{4, 5, 6, 1, 2, 3, 7, 8}));
}

TEST(LineMirror, EmptyLineIsItsOwnMirror) {
  for (const std::uint32_t type : {0u, 2u, 3u}) EXPECT_EQ(Mirrored({}, type), Line{});
}

TEST(LineMirror, OtherDataTypeFailsAndLeavesTheLine) {
  for (const std::uint32_t type : {1u, 4u, 0xFFFFFFFFu}) {
    Line line{1, 2, 3};
    EXPECT_FALSE(mirror_line(line.data(), line.size(), type));
    EXPECT_EQ(line, (Line{1, 2, 3}));
  }
}

TEST(LineMirror, EqualsThePlainRule) {
  Line line;
  for (unsigned i = 0; i < 255; ++i) line.push_back(static_cast<std::uint8_t>(i * 7 + 1));
  const struct {
    std::uint32_t type;
    unsigned depth;
  } rows[] = {{0, 1}, {2, 8}, {3, 24}};
  for (const auto& row : rows) {
    EXPECT_EQ(Mirrored(line, row.type), test::PlainMirrored(line, row.depth)) << row.depth;
    EXPECT_EQ(Mirrored(Mirrored(line, row.type), row.type), line) << row.depth;
  }
}

TEST(LineMirror, TableReversesEightBits) {
  EXPECT_EQ(kBitReversal[0x01], 0x80);
  EXPECT_EQ(kBitReversal[0x1E], 0x78);
  for (unsigned n = 0; n < 256; ++n) EXPECT_EQ(kBitReversal[kBitReversal[n]], n);
}

}  // namespace
}  // namespace vox
