// How often the bytes of a page are moved on their way from the pipe to the client's lines: twice
// at most, the transfer included, whatever the sizes of blocks and lines. Copies are counted where
// the library calls memcpy and memmove, its memory where it asks for it.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/BlockPort.h"
#include "vox/drivers/SessionSystem.h"
#include "vox/drivers/usb/TwImgIFUsb.h"

namespace {

thread_local bool counting = false;
thread_local std::uint64_t copied = 0;
std::uint64_t allocated = 0, largest = 0;

void Count(std::size_t size) {
  if (counting) copied += size;
}

}  // namespace

// The linker sends the program's calls here (--wrap).
extern "C" {
void* __real_memcpy(void* to, const void* from, std::size_t size);
void* __real_memmove(void* to, const void* from, std::size_t size);
void* __wrap_memcpy(void* to, const void* from, std::size_t size);
void* __wrap_memmove(void* to, const void* from, std::size_t size);

void* __wrap_memcpy(void* to, const void* from, std::size_t size) {
  Count(size);
  return __real_memcpy(to, from, size);
}
void* __wrap_memmove(void* to, const void* from, std::size_t size) {
  Count(size);
  return __real_memmove(to, from, size);
}
}

namespace vox::test {
namespace {

class Copies : public testing::Test {
 protected:
  Copies() {
    allocated = largest = copied = 0;
    SessionSystem system = system_;
    system.line_memory = [](std::size_t size) {
      allocated += size;
      largest = std::max<std::uint64_t>(largest, size);
      return std::malloc(size);
    };
    SetSessionSystem(system);
    port_.before_move = [] { counting = false; };
    port_.after_move = [] { counting = true; };
  }
  ~Copies() override {
    counting = false;
    SetSessionSystem(system_);
  }

  // ReadPage gives how many bytes of whole lines came as they should.
  std::uint64_t ReadPage(std::uint64_t page, std::uint32_t block, std::uint32_t size) {
    CTwImgIFUsb scanner(BlockPort::kModel, BlockPort::kSerial);
    EXPECT_TRUE(scanner.Open());
    port_.Load(page, block);
    std::vector<unsigned char> line(size);
    std::uint64_t right = 0;
    for (std::uint64_t at = 0; at + size <= page; at += size) {
      unsigned got = 0;
      counting = true;
      const int result = scanner.ReadScanData(line.data(), size, &got);
      counting = false;
      if (result == 0 && got == size && BlockPort::Expected(at, line)) right += size;
    }
    scanner.Close();
    return right;
  }

  const SessionSystem system_ = CurrentSessionSystem();
  BlockPort port_;
};

constexpr std::uint32_t kLines[] = {600, 15'000, 122'880};
constexpr std::uint64_t kHeaders = 64;  // bytes beside the page's, a block: headers are copied too

TEST_F(Copies, OfAByteAreTwoAtMostWhateverBlocksAndLines) {
  for (const std::uint32_t block : {512u, 4'097u, 65'536u, 1u << 20, 64u << 20}) {
    for (const std::uint32_t line : kLines) {
      SCOPED_TRACE(testing::Message() << "blocks of " << block << ", lines of " << line);
      const std::uint64_t page = std::max<std::uint64_t>(block, 4u << 20);
      const std::uint64_t whole = page / line * line;
      copied = allocated = 0;
      EXPECT_EQ(ReadPage(page, block, line), whole);
      EXPECT_LE(copied, page + page / block * kHeaders);
      EXPECT_LE(allocated, page);
    }
  }
}

TEST_F(Copies, AreSeenWhereBlocksAreLargerThanLines) {
  EXPECT_EQ(ReadPage(6'000'000, 1'000'000, 600), 6'000'000u);
  EXPECT_GE(copied, 6'000'000u);
}

TEST_F(Copies, ThereAreNoneWhereBlocksFillLines) {
  EXPECT_EQ(ReadPage(122'880 * 10, 512, 122'880), 122'880u * 10);
  EXPECT_LE(copied, 2400 * kHeaders);
  EXPECT_EQ(allocated, 0u);
}

TEST_F(Copies, GrowWithThePageAndNotFaster) {
  std::uint64_t single = 0;
  for (const std::uint64_t pages : {1u, 2u, 4u, 8u, 16u}) {
    copied = allocated = largest = 0;
    EXPECT_EQ(ReadPage(pages * 600'000, 50'000, 1'500), pages * 600'000);
    if (pages == 1) single = copied;
    EXPECT_LE(copied, pages * single);
    EXPECT_EQ(allocated, pages * 600'000);
    EXPECT_EQ(largest, 50'000u) << "no more than a block is held";
  }
}

}  // namespace
}  // namespace vox::test
