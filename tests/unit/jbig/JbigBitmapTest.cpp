// What the blocks of a network scan are decoded with and into: scratch buffers and the bitmap that
// is handed out in pieces.
#include <cstring>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/Allocations.h"
#include "vox/drivers/JbigBuf.h"

namespace vox::test {
namespace {

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

// A line and 5 words, modulo 65536; where that wraps, still enough for the line.
TEST(JbigScratch, AsksForALineAndFiveWordsModulo65536) {
  const struct {
    unsigned width;
    std::size_t bytes;
  } cases[] = {{5000, 2 * 5005}, {65530, 2 * 65535}, {65531, 8448}, {65535, 8448}, {100, 8448}};
  for (const auto& one : cases) {
    const NotedSizes sizes;
    const CJbigTmpBuf scratch(static_cast<WORD>(one.width));
    EXPECT_EQ(sizes.Get(), (std::vector<std::size_t>{one.bytes, one.bytes, 8448})) << one.width;
  }
}

TEST(JbigScratch, IsNullWhereMemoryWasShort) {
  for (int failed = 0; failed < 3; ++failed) {
    testing::internal::CaptureStderr();
    const FailingAllocation failing(failed);
    const CJbigTmpBuf scratch(100);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "JbigAlloc: exception\n");
    WORD* const buffers[] = {scratch.GetABuff(), scratch.GetBBuff(), scratch.GetContextBuff()};
    for (int i = 0; i < 3; ++i) EXPECT_EQ(buffers[i] == nullptr, i == failed) << failed;
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

TEST(JbigBitmap, IsMissingWithoutMemory) {
  CJbigDataCtrl control;
  testing::internal::CaptureStderr();
  {
    const FailingAllocation failing(0);
    EXPECT_FALSE(control.AllocImageData());
  }
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "CJbigDataCtrl: exception\n");
  EXPECT_EQ(control.GetImageDataCtrl(), nullptr);
  EXPECT_TRUE(control.AllocImageData());
}

TEST(JbigBitmap, IsNotAllocatedWithoutMemory) {
  CImageDataCtrl image;
  testing::internal::CaptureStderr();
  {
    const FailingAllocation failing(0);
    EXPECT_FALSE(image.Alloc(10));
  }
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "CImageDataCtrl: exception\n");
  EXPECT_TRUE(image.IsEmpty());
  EXPECT_TRUE(image.Alloc(10));
}

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
