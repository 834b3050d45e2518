// Whole images whose coding is known, byte by byte or by its length.
#include <gtest/gtest.h>

#include "tests/support/JbigDriver.h"
#include "tests/support/JbigOracle.h"

namespace vox::test {
namespace {

struct Vector {
  const char* name;
  JbigShape shape;
  Bytes bits;
  Bytes coded;  // behind the BIH
};

const Bytes kTwelve = {0xAA, 0x55, 0x55, 0xAA, 0xF0, 0x0F, 0x80, 0x01};
const Bytes kNine = {0x80, 0x80, 0x41, 0x00, 0x3E, 0x80};
const Bytes kPairs = {0x3C, 0x3C, 0x3C, 0x3C, 0xFF, 0x00, 0xFF, 0x00};

const Vector kVectors[] = {
    {"white", {16, 4, 4, 3}, Bytes(8), {0x50, 0xFF, 0x02}},
    {"white, every line typical", {16, 4, 4, 3, true}, Bytes(8), {0xFF, 0x02}},
    {"three lines", {16, 4, 4, 3}, kTwelve, {0xC3, 0x60, 0xC3, 0xA1, 0x8B, 0x72, 0xB0, 0xFF, 0x02}},
    {"two lines",
     {16, 4, 4, 2},
     kTwelve,
     {0xC4, 0x7C, 0x02, 0x13, 0x17, 0xA9, 0x56, 0x08, 0xFF, 0x02}},
    {"two stripes",
     {16, 4, 2, 3},
     kTwelve,
     {0xC3, 0x60, 0xC8, 0xFF, 0x02, 0xFE, 0x9C, 0x6E, 0x56, 0xFF, 0x02}},
    {"AT moved by 8",
     {16, 4, 4, 3, false, false, true, 8},
     kTwelve,
     {0xFF, 0x06, 0, 0, 0, 0, 8, 0, 0xBD, 0x2A, 0x3E, 0x60, 0x00, 0xC5, 0xFF, 0x02}},
    {"three lines, typical",
     {16, 4, 4, 3, true},
     kPairs,
     {0xC3, 0x9A, 0x1B, 0xF1, 0xC0, 0xFF, 0x02}},
    {"two lines, typical", {16, 4, 4, 2, true}, kPairs, {0xC3, 0x3B, 0x49, 0xB2, 0xFF, 0x02}},
    {"nine pixels, three lines", {9, 3, 3, 3}, kNine, {0xB8, 0x61, 0xB4, 0x10, 0xFF, 0x02}},
    {"nine pixels, two lines", {9, 3, 3, 2}, kNine, {0xAA, 0x94, 0xD7, 0xF0, 0xFF, 0x02}},
};

class SmallImages : public testing::TestWithParam<Vector> {};

TEST_P(SmallImages, EncodeToTheKnownBytes) {
  const Vector& vector = GetParam();
  Picture picture(vector.shape.width, vector.shape.height);
  picture.bits = vector.bits;
  const Bytes bie = Encode(picture, vector.shape);
  ASSERT_GE(bie.size(), kBihSize);
  EXPECT_EQ(Bytes(bie.begin() + kBihSize, bie.end()), vector.coded) << vector.name;
}

TEST_P(SmallImages, DecodeFromTheKnownBytes) {
  EXPECT_EQ(Decode(GetParam().shape, GetParam().coded), GetParam().bits) << GetParam().name;
}

TEST_P(SmallImages, AreTheSameToTheOracle) {
  const Vector& vector = GetParam();
  JbigOracle oracle(vector.shape, vector.coded.data(), vector.coded.size());
  Bytes lines;
  while (oracle.Line())
    lines.insert(lines.end(), oracle.Lines().back().begin(), oracle.Lines().back().end());
  EXPECT_EQ(oracle.Status(), 192);
  EXPECT_EQ(lines, vector.bits) << vector.name;
}

INSTANTIATE_TEST_SUITE_P(Known, SmallImages, testing::ValuesIn(kVectors));

// The artificial image of T.82 7.2.
Picture TestImage() {
  Picture picture(1960, 1951);
  std::uint32_t prsg = 1;
  bool repeat[8] = {};
  for (unsigned y = 192; y < picture.height; ++y) {
    for (unsigned x = 0; x < picture.width; ++x) {
      if (y < 1023 || (x >> 3 & 3) == 0) {
        const unsigned sum = (prsg & 1) + (prsg >> 2 & 1) + (prsg >> 11 & 1) + (prsg >> 15 & 1);
        prsg = prsg << 1 | (sum & 1);
        repeat[x & 7] = (prsg & 3) == 0;
      }
      if (repeat[x & 7]) picture.Set(x, y);
    }
  }
  return picture;
}

TEST(TestImage72, HasItsNumberOfBlackPixels) {
  std::size_t ones = 0;
  for (const std::uint8_t byte : TestImage().bits)
    ones += static_cast<unsigned>(__builtin_popcount(byte));
  EXPECT_EQ(ones, 861965u);
}

TEST(TestImage72, IsCodedInTheKnownNumberOfBytes) {
  const Picture picture = TestImage();
  const struct {
    JbigShape shape;
    std::size_t size;
  } cases[] = {
      {{1960, 1951, 1951, 3, false}, 317384},
      {{1960, 1951, 1951, 2, false}, 317132},
      {{1960, 1951, 1951, 3, true}, 317474},
      {{1960, 1951, 1951, 2, true}, 317129},
      {{1960, 1951, 1951, 3, true, false, true, 8}, 242853},
      {{1960, 1951, 1951, 2, true, false, true, 8}, 242041},
  };
  for (const auto& one : cases) {
    const Bytes bie = Encode(picture, one.shape);
    EXPECT_EQ(bie.size(), one.size) << one.shape.lines << " lines, tx " << one.shape.tx;
    EXPECT_EQ(Decode(one.shape, std::span(bie).subspan(kBihSize)), picture.bits);
  }
}

}  // namespace
}  // namespace vox::test
