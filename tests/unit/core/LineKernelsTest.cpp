// The rescaling arithmetic: worked examples, the plain formulas as oracle, and sizes where a rule
// alone would divide by zero or read beyond its line. All buffers have exactly the stated sizes.
#include "vox/drivers/LineKernels.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <random>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/NoMemory.h"
#include "tests/support/PlainKernels.h"

namespace vox {
namespace {

using test::Line;

// The kernels return nothing, so nothing may go wrong in them.
constexpr unsigned char* kNoLine = nullptr;
static_assert(noexcept(ExpandWidth(kNoLine, kNoLine, 1, 1, 1)));
static_assert(noexcept(ReduceWidth(kNoLine, kNoLine, 1, 1, 1)));
static_assert(noexcept(BitReduceMonoLine(kNoLine, kNoLine, 1, 1)));
static_assert(noexcept(GradeLine(kNoLine, kNoLine, kNoLine, 1, 1)));

using Kernel = void (*)(unsigned char*, const unsigned char*, unsigned, unsigned, unsigned);

// Exact is a heap block of exactly so many bytes, so that a sanitizer sees the first one beyond.
std::unique_ptr<unsigned char[]> Exact(const Line& bytes) {
  std::unique_ptr<unsigned char[]> block(new unsigned char[bytes.size()]);
  std::copy(bytes.begin(), bytes.end(), block.get());
  return block;
}

Line Scaled(Kernel kernel, const Line& src, unsigned width, unsigned ps = 1) {
  const auto in = Exact(src);
  const auto out = Exact(Line(std::size_t{width} * ps, 0xA5));
  {
    const test::NoMemory none;
    kernel(out.get(), in.get(), width, static_cast<unsigned>(src.size() / ps), ps);
  }
  return Line(out.get(), out.get() + std::size_t{width} * ps);
}

Line Expanded(const Line& src, unsigned width, unsigned ps = 1) {
  return Scaled(ExpandWidth, src, width, ps);
}
Line Reduced(const Line& src, unsigned width, unsigned ps = 1) {
  return Scaled(ReduceWidth, src, width, ps);
}

Line Noise(std::size_t size, unsigned seed) {
  std::mt19937 random(seed);
  Line line(size);
  for (auto& byte : line) byte = static_cast<std::uint8_t>(random());
  return line;
}

TEST(ExpandWidth, WorkedExamples) {
  EXPECT_EQ(Expanded({0, 100, 200}, 5), (Line{0, 50, 100, 150, 200}));
  EXPECT_EQ(Expanded({0, 255}, 4), (Line{0, 85, 170, 255}));
  EXPECT_EQ(Expanded({10, 20, 40, 80}, 7), (Line{10, 15, 20, 30, 40, 60, 80}));
  EXPECT_EQ(Expanded({1, 2}, 3), (Line{1, 2, 2}));
  EXPECT_EQ(Expanded({0, 50, 100, 200, 255}, 8), (Line{0, 29, 57, 86, 129, 186, 224, 255}));
}

TEST(ReduceWidth, WorkedExamples) {
  EXPECT_EQ(Reduced({10, 20, 30, 40}, 2), (Line{13, 38}));
  EXPECT_EQ(Reduced({0, 50, 100, 150, 200}, 3), (Line{0, 100, 200}));
  EXPECT_EQ(Reduced({0, 10, 20, 30, 40, 50}, 3), (Line{2, 25, 48}));
  EXPECT_EQ(Reduced({0, 32, 64, 96, 128, 160, 192, 255}, 4), (Line{4, 76, 148, 247}));
  EXPECT_EQ(Reduced({255, 255, 0, 0, 0, 255, 255}, 3), (Line{255, 0, 255}));
  EXPECT_EQ(Reduced({0, 0, 255, 255, 255}, 2), (Line{0, 255}));
  EXPECT_EQ(Reduced({10, 20, 60}, 1), (Line{30}));
}

TEST(ReduceWidth, SpansWithoutWeightTakeTheirLastPixel) {
  // Nearly equal widths: in single precision some spans are empty or weigh nothing.
  for (const unsigned width : {4105u, 4131u, 4157u, 4235u}) {
    EXPECT_THAT(Reduced(Line(width + 1, 77), width), ::testing::Each(77)) << width;
    const Line src = Noise(width + 1, width);
    EXPECT_EQ(Reduced(src, width), test::PlainReduceWidth(src, width, width + 1, 1)) << width;
  }
}

TEST(ReduceWidth, AtTheCancellingSpanTheRightPixelIsTaken) {
  Line src(4106, 0);
  src[2053] = 200;
  EXPECT_EQ(Reduced(src, 4105)[2052], 200);
}

TEST(ExpandWidth, ColourPixelsKeepTheirChannels) {
  EXPECT_EQ(Expanded({0, 10, 100, 200, 110, 0}, 3, 3),
            (Line{0, 10, 100, 100, 60, 50, 200, 110, 0}));
}

TEST(ReduceWidth, ColourPixelsKeepTheirChannels) {
  EXPECT_EQ(Reduced({10, 0, 40, 20, 0, 30, 60, 0, 20}, 1, 3), (Line{30, 0, 30}));
}

TEST(WidthKernels, EqualThePlainFormulas) {
  const unsigned widths[] = {1, 2, 3, 4, 5, 7, 8, 9, 100, 255, 256, 257, 511, 1000, 2481, 4962};
  for (const unsigned from : widths) {
    for (const unsigned to : widths) {
      for (const unsigned ps : {1u, 2u, 3u}) {
        const Line src = Noise(std::size_t{from} * ps, from * 31 + to);
        ASSERT_EQ(Expanded(src, to, ps), test::PlainExpandWidth(src, to, from, ps))
            << from << " to " << to << ", " << ps << " bytes a pixel";
        ASSERT_EQ(Reduced(src, to, ps), test::PlainReduceWidth(src, to, from, ps))
            << from << " to " << to << ", " << ps << " bytes a pixel";
      }
    }
  }
}

TEST(ExpandWidth, OneSourcePixelFillsTheLine) {
  EXPECT_EQ(Expanded({9}, 1), (Line{9}));
  EXPECT_EQ(Expanded({9}, 5), (Line{9, 9, 9, 9, 9}));
}

TEST(ExpandWidth, OneTargetPixelIsTheLastOfTheSource) {
  EXPECT_EQ(Expanded({1, 2, 3}, 1), (Line{3}));
}

TEST(ReduceWidth, OneSourcePixelFillsTheLine) {
  EXPECT_EQ(Reduced({9}, 1), (Line{9}));
  EXPECT_EQ(Reduced({9}, 5), (Line{9, 9, 9, 9, 9}));
}

TEST(ReduceWidth, WiderTargetStaysWithinTheSource) {
  EXPECT_EQ(Reduced({0, 255}, 4), test::PlainReduceWidth({0, 255}, 4, 2, 1));
}

TEST(WidthKernels, NothingIsWrittenForNoWidth) {
  for (const Kernel kernel : {&ExpandWidth, &ReduceWidth}) {
    unsigned char out[4] = {1, 2, 3, 4};
    const unsigned char in[4] = {5, 6, 7, 8};
    kernel(out, in, 0, 4, 1);
    kernel(out, in, 4, 0, 1);
    kernel(out, in, 4, 4, 0);
    kernel(out + 4, in + 4, 0, 0, 0);
    EXPECT_THAT(out, ::testing::ElementsAre(1, 2, 3, 4));
  }
}

Line Bits(const Line& grey, unsigned threshold) {
  const auto in = Exact(grey);
  const auto out = Exact(Line((grey.size() + 7) / 8, 0xA5));
  BitReduceMonoLine(out.get(), in.get(), static_cast<unsigned>(grey.size()), threshold);
  return Line(out.get(), out.get() + (grey.size() + 7) / 8);
}

TEST(BitReduceMonoLine, NinePixelsFillTwoBytesWithSevenZeroBits) {
  EXPECT_EQ(Bits({169, 170, 171, 0, 255, 170, 169, 255, 200}, 0), (Line{0x6D, 0x80}));
}

TEST(BitReduceMonoLine, NoRemainderWritesNoFurtherByte) {
  EXPECT_EQ(Bits(Line(16, 255), 0), (Line{0xFF, 0xFF}));
  EXPECT_EQ(Bits({}, 0), Line{});
}

TEST(BitReduceMonoLine, ThresholdItselfIsWhite) {
  EXPECT_EQ(Bits({99, 100, 101}, 100), (Line{0x60}));
  EXPECT_EQ(Bits({0, 1}, 1), (Line{0x40}));
  EXPECT_EQ(Bits({0, 254, 255}, 255), (Line{0x20}));
  EXPECT_EQ(Bits({0, 255}, 256), (Line{0x00})) << "above every byte";
  EXPECT_EQ(Bits({0, 255}, 0xFFFFFFFF), (Line{0x00}));
}

TEST(BitReduceMonoLine, EqualsThePlainFormula) {
  for (unsigned width = 1; width <= 70; ++width) {
    const Line grey = Noise(width, width);
    EXPECT_EQ(Bits(grey, 128), test::PlainBitReduced(grey, width, 128)) << width;
  }
}

Line Graded(const Line& lower, const Line& upper, float f) {
  const auto a = Exact(lower), b = Exact(upper), out = Exact(lower);
  GradeLine(out.get(), a.get(), b.get(), static_cast<unsigned>(lower.size()), f);
  return Line(out.get(), out.get() + lower.size());
}

TEST(GradeLine, BlendsByTheWeightOfTheUpperLine) {
  EXPECT_EQ(Graded({10, 255}, {20, 0}, 0.5f), (Line{15, 128}));
  EXPECT_EQ(Graded({10, 255}, {20, 0}, 0), (Line{10, 255}));
  EXPECT_EQ(Graded({10, 255}, {20, 0}, 1), (Line{20, 0}));
}

TEST(GradeLine, EqualsThePlainFormula) {
  const Line lower = Noise(1003, 1), upper = Noise(1003, 2);
  for (int step = 0; step <= 100; ++step) {
    const float f = static_cast<float>(step) / 100;
    EXPECT_EQ(Graded(lower, upper, f), test::PlainGradeLine(lower, upper, f)) << f;
  }
}

TEST(GradeLine, WeightThatIsNoneIsCut) {
  EXPECT_EQ(Graded({10}, {20}, -7), (Line{10}));
  EXPECT_EQ(Graded({10}, {20}, 1e30f), (Line{20}));
  EXPECT_EQ(Graded({10}, {20}, std::nanf("")), (Line{10}));
}

}  // namespace
}  // namespace vox
