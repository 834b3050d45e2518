// waitLine by itself: which posts it takes, and what ends it.
#include <future>

#include <sys/ipc.h>
#include <sys/sem.h>

#include <gtest/gtest.h>

#include "tests/support/Moment.h"
#include "vox/drivers/LinePipeline.h"
#include "vox/drivers/SemaphoreSet.h"

namespace vox::test {
namespace {

class WaitLineTest : public testing::Test {
 protected:
  WaitLineTest() { data_.semid = create_line_semaphores(); }
  ~WaitLineTest() override { remove_semaphores(data_.semid); }
  __DataContainer data_;
};

TEST_F(WaitLineTest, ReadyLineTakesNoPost) {
  data_.CurLineReady = 5;
  EXPECT_TRUE(waitLine(&data_, 5));
  EXPECT_TRUE(waitLine(&data_, 0));
}

TEST_F(WaitLineTest, PostsBeforeTheLineAreTakenAndWaitedAgain) {
  auto waiter = std::async(std::launch::async, [this] { return waitLine(&data_, 2); });
  for (int line = 0; line < 3; ++line) {
    data_.CurLineReady = line;
    ASSERT_EQ(post_semaphore(data_.semid, kSemScaledLine), SemResult::kDone);
  }
  EXPECT_TRUE(waiter.get());
}

TEST_F(WaitLineTest, PostWhileNoLineIsReadyIsWaitedAgain) {
  ASSERT_EQ(post_semaphore(data_.semid, kSemScaledLine), SemResult::kDone);
  auto waiter = std::async(std::launch::async, [this] { return waitLine(&data_, 0); });
  ASSERT_TRUE(Eventually([this] { return ::semctl(data_.semid, kSemScaledLine, GETNCNT) == 1; }));
  data_.CurLineReady = 0;
  ASSERT_EQ(post_semaphore(data_.semid, kSemScaledLine), SemResult::kDone);
  EXPECT_TRUE(waiter.get());
}

TEST_F(WaitLineTest, RemovedSetIsFalse) {
  auto waiter = std::async(std::launch::async, [this] { return waitLine(&data_, 0); });
  ASSERT_TRUE(Eventually([this] { return ::semctl(data_.semid, kSemScaledLine, GETNCNT) == 1; }));
  remove_semaphores(data_.semid.exchange(kNoSemaphores));
  EXPECT_FALSE(waiter.get());
}

}  // namespace
}  // namespace vox::test
