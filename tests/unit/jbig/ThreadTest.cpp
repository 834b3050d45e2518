// Images of different parameter blocks are coded at the same time without knowing of each other.
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/JbigDriver.h"

namespace vox::test {
namespace {

TEST(JbigThreads, CodeImagesAtTheSameTime) {
  std::vector<unsigned> good(4);
  std::vector<std::thread> threads;
  for (unsigned n = 0; n < good.size(); ++n)
    threads.emplace_back([n, &good] {
      const Picture picture = Blobs(300, 60, n);
      const JbigShape shape{300, 60, 10, n % 2 ? 2 : 3};
      for (int i = 0; i < 20; ++i) {
        const Bytes bie = Encode(picture, shape, {Always(7), Always(50)});
        good[n] += Decode(shape, std::span(bie).subspan(kBihSize)) == picture.bits;
      }
    });
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(good, std::vector<unsigned>(4, 20));
}

}  // namespace
}  // namespace vox::test
