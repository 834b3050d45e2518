// Works that run together, with and without the threads and the memory that they could do with.
#include <atomic>
#include <functional>
#include <new>
#include <stdexcept>
#include <thread>
#include <vector>

#include <pthread.h>
#include <signal.h>

#include <gtest/gtest.h>

#include "tests/support/NoMemory.h"
#include "vox/platform/Threads.h"

namespace vox {
namespace {

TEST(Threads, TogetherDoEveryWorkOnce) {
  for (const std::size_t count : {0u, 1u, 3u, 100u}) {
    for (const std::size_t limit : {0u, 1u, 4u}) {
      std::vector<std::atomic<int>> runs(count);
      RunTogether(count, limit, [&runs](std::size_t i) { ++runs[i]; });
      for (const auto& run : runs) EXPECT_EQ(run, 1);
    }
  }
}

TEST(Threads, TogetherDoEveryWorkOnceWhateverMemoryIsLeft) {
  for (int spared = 0; spared < 12; ++spared) {
    std::atomic<int> runs = 0;
    const std::function<void(std::size_t)> work = [&runs](std::size_t) { ++runs; };
    {
      const test::NoMemory none(spared);
      RunTogether(6, 6, work);
    }
    EXPECT_EQ(runs, 6) << spared;
  }
}

TEST(Threads, WhatAWorkThrowsReachesTheCallerOnceTheOthersAreOver) {
  std::atomic<int> begun = 0, over = 0;
  EXPECT_THROW(RunTogether(4, 4,
                           [&](std::size_t i) {
                             ++begun;
                             while (begun < 4) std::this_thread::yield();
                             if (i == 2) throw std::out_of_range("2");
                             ++over;
                           }),
               std::out_of_range);
  EXPECT_EQ(over, 3);
}

TEST(Threads, NoMemoryInAWorkIsTheCallersException) {
  const test::NoMemoryInNewThreads none;
  const auto caller = std::this_thread::get_id();
  std::atomic<bool> helped = false;
  EXPECT_THROW(RunTogether(2, 2,
                           [&](std::size_t) {
                             if (std::this_thread::get_id() == caller) {
                               while (!helped) std::this_thread::yield();
                               return;
                             }
                             helped = true;
                             delete new int;
                           }),
               std::bad_alloc);
}

TEST(Threads, AfterAFailureWorksThatHaveNotBegunAreLeftOut) {
  int runs = 0;
  EXPECT_THROW(RunTogether(5, 1,
                           [&](std::size_t i) {
                             ++runs;
                             if (i == 1) throw std::bad_alloc();
                           }),
               std::bad_alloc);
  EXPECT_EQ(runs, 2);
}

TEST(Threads, StartedOnesTakeNoSignals) {
  sigset_t mask;
  sigemptyset(&mask);
  std::vector<std::thread> threads;
  ASSERT_TRUE(StartThread(&threads, [&mask] { ::pthread_sigmask(SIG_SETMASK, nullptr, &mask); }));
  threads[0].join();
  EXPECT_EQ(sigismember(&mask, SIGINT), 1);
  ::pthread_sigmask(SIG_SETMASK, nullptr, &mask);
  EXPECT_EQ(sigismember(&mask, SIGINT), 0);
}

TEST(Threads, WithoutMemoryNoneIsStarted) {
  std::vector<std::thread> threads;
  const std::function<void()> body = [] {};
  const test::NoMemory none;
  EXPECT_FALSE(StartThread(&threads, body));
}

}  // namespace
}  // namespace vox
