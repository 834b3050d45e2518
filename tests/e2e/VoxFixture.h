// The vox program over the whole road on a virtual device of its own: what is laid down, what is
// asked, what comes back.
#pragma once

#include <cstdint>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/e2e/VoxProgram.h"
#include "tools/vox/writers/MakeWriter.h"

namespace vox::cli::test {

inline constexpr std::uint32_t kDpi = 300;
inline constexpr std::uint32_t kPageWidth = 320,
                               kPageHeight = 240;  // of the pages that tests lay down

class VoxScan : public testing::Test {
 protected:
  // Every test ends with nothing but the files that it has named.
  void TearDown() override {
    for (const std::string& leaf : vox_.Folder().Leaves())
      EXPECT_THAT(
          leaf, testing::Not(testing::AnyOf(testing::StartsWith("."), testing::StartsWith("vox-"))))
          << "left behind";
  }

  // Lays down page `seed` as a file: every pixel depends on its place and on the seed.
  std::string PutPage(unsigned bits, unsigned seed = 0) {
    const std::string leaf = "page" + std::to_string(bits) + "-" + std::to_string(seed) + ".tif";
    const auto writer = MakeWriter(vox_.File(leaf), ImageFormat::kTiff, false, -1);
    writer->BeginPage({kPageWidth, kPageHeight, bits, kDpi, kDpi});
    for (std::uint32_t y = 0; y < kPageHeight; ++y) writer->WriteLine(PageLine(bits, seed, y));
    writer->EndPage();
    writer->Finish();
    return leaf;
  }
  static Bytes PageLine(unsigned bits, unsigned seed, std::uint32_t y) {
    return TestLine(kPageWidth, bits, y + 7 * seed);
  }
  // A frame of the pages' size, in inches.
  static std::string PageFrame() { return " --frame 0,0,1.06666667,0.8in "; }

  static void ExpectPage(const Picture& picture, unsigned bits, unsigned seed) {
    ASSERT_EQ(picture.width, kPageWidth);
    ASSERT_EQ(picture.lines.size(), kPageHeight);
    ASSERT_EQ(picture.bits, bits);
    for (std::uint32_t y = 0; y < kPageHeight; ++y)
      ASSERT_EQ(picture.lines[y], PageLine(bits, seed, y)) << "line " << y;
  }

  Outcome Scan(const std::string& arguments) { return vox_.Run("scan --virtual " + arguments); }
  void ExpectFailure(const std::string& arguments, int status, const std::string& words) {
    const Outcome outcome = Scan(arguments);
    EXPECT_EQ(outcome.status, status) << arguments << "\n" << outcome.err;
    EXPECT_THAT(outcome.err, testing::StartsWith("vox: "));
    EXPECT_THAT(outcome.err, testing::HasSubstr(words)) << arguments;
    EXPECT_EQ(outcome.err.find('\n'), outcome.err.size() - 1) << "one line:\n" << outcome.err;
    EXPECT_THAT(outcome.out, testing::IsEmpty());
  }

  std::string Numbered(std::string leaf, unsigned page) const {
    leaf += std::to_string(page);
    return vox_.File(leaf.append(".png"));
  }

  std::string Said() const {
    const Bytes bytes = ReadFile(vox_.File("said"));
    return {bytes.begin(), bytes.end()};
  }

  VoxProgram vox_;
};

inline const char* ModeOf(unsigned bits) {
  return bits == 1 ? "lineart" : bits == 8 ? "gray" : "color";
}

}  // namespace vox::cli::test
