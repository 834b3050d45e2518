// Every vector path that the machine can run makes the bytes of the plain formulas: for lines of
// every small width and some large ones, at every alignment, in buffers of exactly their sizes.
#include "vox/drivers/LineVectors.h"

#include <algorithm>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/PlainKernels.h"
#include "tests/support/PlainRoad.h"
#include "tests/support/StagedPage.h"
#include "tests/support/VectorPaths.h"
#include "vox/drivers/LineKernels.h"
#include "vox/drivers/ShrinkSpans.h"
#include "vox/drivers/WidthScaler.h"

namespace vox {
namespace {

using test::Line;

// Shifted is a line that begins `shift` bytes into its heap block and ends with it.
class Shifted {
 public:
  Shifted(const Line& bytes, std::size_t shift)
      : size_(bytes.size()), shift_(shift), block_(new unsigned char[size_ + shift]) {
    std::copy(bytes.begin(), bytes.end(), Data());
  }
  unsigned char* Data() { return block_.get() + shift_; }
  Line Bytes() { return {Data(), Data() + size_}; }

 private:
  std::size_t size_, shift_;
  std::unique_ptr<unsigned char[]> block_;
};

class EveryVectorPath : public ::testing::TestWithParam<std::int64_t> {
 protected:
  Line Noise(std::size_t size) {
    Line line(size);
    for (auto& byte : line) byte = static_cast<std::uint8_t>(random_());
    return line;
  }
  // Half of the lines are black and white, where sums reach both ends.
  Line Pixels(std::size_t size) {
    Line line = Noise(size);
    if (random_() % 2 == 0) return line;
    for (auto& byte : line) byte = byte % 2 == 0 ? 0 : 255;
    return line;
  }
  std::size_t Below(std::size_t limit) { return random_() % limit; }

  Line Scaled(const WidthScaler& scaler, const Line& src, std::size_t bytes) {
    Shifted in(src, Below(17)), out(Line(bytes, 0xA5), Below(17));
    scaler.run(out.Data(), in.Data());
    return out.Bytes();
  }
  void ExpectPlainWidths(std::uint32_t to, std::uint32_t from, std::uint32_t ps) {
    const Line src = Pixels(std::size_t{from} * ps);
    const std::size_t bytes = std::size_t{to} * ps;
    ASSERT_EQ(Scaled(WidthScaler::expand(to, from, ps), src, bytes),
              test::PlainExpandWidth(src, to, from, ps))
        << "expand " << from << " to " << to << ", " << ps << " bytes a pixel";
    ASSERT_EQ(Scaled(WidthScaler::reduce(to, from, ps), src, bytes),
              test::PlainReduceWidth(src, to, from, ps))
        << "reduce " << from << " to " << to << ", " << ps << " bytes a pixel";
  }

 private:
  std::mt19937 random_{1};
  const test::VectorPath path_{GetParam()};
};

std::string PathName(const ::testing::TestParamInfo<std::int64_t>& path) {
  return test::VectorPath::Name(path.param);
}
INSTANTIATE_TEST_SUITE_P(Paths, EveryVectorPath, ::testing::ValuesIn(test::VectorPath::All()),
                         PathName);

TEST(VectorPaths, EachIsThereOnceAndHasCodeOfItsOwn) {
  const auto all = test::VectorPath::All();
  ASSERT_FALSE(all.empty());
  std::set<std::size_t> chosen;
  for (const std::int64_t target : all) {
    const test::VectorPath path(target);
    chosen.insert(hwy::GetChosenTarget().GetIndex());
  }
  EXPECT_EQ(chosen.size(), all.size());
}

TEST_P(EveryVectorPath, WidthsOfEveryTail) {
  for (std::uint32_t width = 1; width <= 70; ++width) {
    for (const std::uint32_t ps : {1u, 2u, 3u, 4u}) {
      const auto other = static_cast<std::uint32_t>(1 + Below(140));
      ExpectPlainWidths(width, other, ps);
      ExpectPlainWidths(width, 2 * width, ps);
    }
  }
}

TEST_P(EveryVectorPath, WidthsOfPages) {
  const struct {
    std::uint32_t from, to, ps;
  } rows[] = {{4962, 2481, 3}, {4962, 3308, 1}, {2481, 4962, 1}, {2481, 4962, 3},
              {4962, 1654, 3}, {1654, 620, 3},  {4962, 1240, 1}, {4962, 620, 1},
              {4962, 1, 1},    {1, 4962, 3},    {4106, 4105, 1}, {300, 299, 3}};
  for (const auto& row : rows) ExpectPlainWidths(row.to, row.from, row.ps);
}

TEST_P(EveryVectorPath, WidthsAtRandom) {
  for (int i = 0; i < 60; ++i) {
    const auto from = static_cast<std::uint32_t>(1 + Below(3000));
    const auto to = static_cast<std::uint32_t>(1 + Below(3000));
    ExpectPlainWidths(to, from, static_cast<std::uint32_t>(1 + Below(3)));
  }
}

TEST_P(EveryVectorPath, BlendsOfEveryTailAndWeight) {
  for (std::size_t n = 0; n <= 130; ++n) {
    const Line lower = Pixels(n), upper = Pixels(n);
    const float f = static_cast<float>(Below(1001)) / 1000;
    Shifted a(lower, Below(17)), b(upper, Below(17)), out(Line(n, 0xA5), Below(17));
    GradeLine(out.Data(), a.Data(), b.Data(), static_cast<unsigned>(n), f);
    ASSERT_EQ(out.Bytes(), test::PlainGradeLine(lower, upper, f)) << n << " bytes, weight " << f;
  }
}

TEST_P(EveryVectorPath, BitsOfEveryTailAndThreshold) {
  for (std::size_t n = 0; n <= 200; ++n) {
    const Line grey = Noise(n);
    for (const unsigned threshold : {0u, 1u, 127u, 128u, 255u, 256u}) {
      Shifted in(grey, Below(17)), out(Line((n + 7) / 8, 0xA5), Below(17));
      BitReduceMonoLine(out.Data(), in.Data(), static_cast<unsigned>(n), threshold);
      ASSERT_EQ(out.Bytes(), test::PlainBitReduced(grey, n, threshold)) << n << ", " << threshold;
    }
  }
}

// Every pair of bytes, with weights as they stand in pages.
TEST_P(EveryVectorPath, MeansOfEveryPairOfBytes) {
  Line a, b;
  for (int i = 0; i < 256 * 256; ++i) {
    a.push_back(static_cast<std::uint8_t>(i / 256));
    b.push_back(static_cast<std::uint8_t>(i % 256));
  }
  for (const std::size_t lines : {14u, 4677u}) {
    for (int i = 0; i < 12; ++i) {
      const std::size_t j = 1 + Below(lines - 2);
      const ShrinkSpans spans(static_cast<std::uint32_t>(lines),
                              static_cast<std::uint32_t>(lines * 3 / 2));
      const auto at = static_cast<std::uint32_t>(j);
      const std::uint32_t left = spans.left(at), right = spans.right(at);
      const float total = spans.total(left, right, at);
      const float wa = spans.weight(left, at), wb = spans.weight(right, at);
      if (left == right || !(total > 0)) continue;
      Line out(a.size());
      mean_of_two(out.data(), {a.data(), wa}, {b.data(), wb}, total, a.size());
      std::size_t wrong = 0;
      for (std::size_t k = 0; k < a.size(); ++k) {
        const float mean =
            static_cast<float>(a[k]) * wa / total + static_cast<float>(b[k]) * wb / total;
        const auto byte = static_cast<int>(std::clamp(mean, 0.0f, 255.0f) + 0.5f);
        if (out[k] != byte) ++wrong;
      }
      EXPECT_EQ(wrong, 0u) << "weights " << wa << ", " << wb << " of " << total;
    }
  }
}

// Pages of few lines, grey and colour, rescaled both ways, spans of one line to many.
TEST_P(EveryVectorPath, PagesAtRandom) {
  for (int i = 0; i < 60; ++i) {
    tagTWSCANPARAM request{};
    _SCANINFO info{};
    const unsigned ps = i % 2 == 0 ? 1 : 3;
    const auto from = static_cast<std::uint32_t>(1 + Below(90));
    const auto lines = static_cast<std::uint32_t>(1 + Below(40));
    info.DataType = ps == 1 ? 2 : 3;
    info.Xresolution = info.Window.xExtent = from;
    info.Yresolution = info.Window.yExtent = lines;
    request.wBitsPerPixel = static_cast<std::uint16_t>(ps * 8);
    request.fRight = 1;
    request.dwImageWidth = static_cast<std::uint32_t>(1 + Below(90));
    request.dwImageLength = static_cast<std::uint32_t>(1 + Below(40));
    request.fXResolution = static_cast<float>(request.dwImageWidth);
    request.fYResolution = static_cast<float>(request.dwImageLength);
    request.dwLineSize = request.dwImageWidth * ps;
    std::vector<Line> page;
    for (std::uint32_t n = 0; n < lines; ++n) page.push_back(Pixels(std::size_t{from} * ps));
    ASSERT_TRUE(test::StagedLines(request, info, page) == test::ClientLines(request, info, page))
        << from << " by " << lines << " to " << request.dwImageWidth << " by "
        << request.dwImageLength << ", " << ps << " bytes a pixel";
  }
}

// A span of one line passes it on: its bytes times a weight, divided by that weight, are
// themselves.
TEST(ShrunkSpans, OneLineIsItself) {
  for (int step = 1; step < 4000; ++step) {
    const float w = static_cast<float>(step) / 7993;
    for (int byte = 0; byte < 256; ++byte) {
      ASSERT_EQ(byte_of_mean(static_cast<float>(byte) * w / w), byte) << w;
    }
  }
}

}  // namespace
}  // namespace vox
