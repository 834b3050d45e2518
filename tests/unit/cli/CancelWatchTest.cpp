// Ctrl-C at every moment: before a job, during one, after one.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <future>

#include <poll.h>
#include <unistd.h>

#include "tests/unit/cli/ReadBack.h"
#include "tools/vox/CancelWatch.h"
#include "tools/vox/Failure.h"
#include "tools/vox/PrivateFolder.h"

namespace vox::cli::test {
namespace {

void WaitReadable(int fd) {
  pollfd entry{fd, POLLIN, 0};
  ASSERT_EQ(::poll(&entry, 1, 10'000), 1);
}

TEST(CancelWatchTest, ACancelRunsTheJobsAbort) {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    CancelWatch watch;
    std::promise<void> aborted;
    CancelWatch::Attachment job(watch, [&] { aborted.set_value(); });
    EXPECT_FALSE(watch.Requested());
    ::kill(::getpid(), signal);
    aborted.get_future().wait();
    EXPECT_TRUE(watch.Requested());
    WaitReadable(watch.Fd());
  }
}

TEST(CancelWatchTest, ASecondSignalDoesNotAbortTwice) {
  CancelWatch watch;
  std::atomic<int> aborts{0};
  CancelWatch::Attachment job(watch, [&] { ++aborts; });
  ::kill(::getpid(), SIGINT);
  WaitReadable(watch.Fd());
  ::kill(::getpid(), SIGTERM);
  job.Detach();
  EXPECT_EQ(aborts, 1);
}

TEST(CancelWatchTest, DetachWaitsForTheAbort) {
  CancelWatch watch;
  std::promise<void> begun, go;
  std::atomic<bool> done{false};
  CancelWatch::Attachment job(watch, [&] {
    begun.set_value();
    go.get_future().wait();
    done = true;
  });
  ::kill(::getpid(), SIGINT);
  begun.get_future().wait();
  std::thread later([&] { go.set_value(); });
  job.Detach();
  EXPECT_TRUE(done);
  later.join();
}

TEST(CancelWatchTest, AJobIsNotBegunAfterACancel) {
  CancelWatch watch;
  {
    CancelWatch::Attachment job(watch, [] {});
    ::kill(::getpid(), SIGINT);
    WaitReadable(watch.Fd());
  }
  try {
    CancelWatch::Attachment next(watch, [] {});
    FAIL() << "attached";
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.Status(), ExitStatus::kCancelled);
  }
}

// In a child: makes a folder, says its name, and waits to be ended.
[[noreturn]] void WaitForTheEnd(const std::string& names) {
  CancelWatch watch;
  const PrivateFolder folder(watch);
  std::ofstream(folder.Path() + "/file") << "content";
  std::ofstream(names) << folder.Path();
  ::kill(::getpid(), SIGINT);
  for (;;) ::pause();
}

TEST(CancelWatchDeathTest, WithoutAJobTheProgramEndsAtOnceAndTidiesUp) {
  const TestFolder folder;
  const std::string names = folder.File("name");
  EXPECT_EXIT(WaitForTheEnd(names), testing::ExitedWithCode(2), "vox: cancelled");
  const Bytes name = ReadFile(names);
  const std::string path(name.begin(), name.end());
  ASSERT_FALSE(path.empty());
  EXPECT_FALSE(std::filesystem::exists(path));
}

[[noreturn]] void IgnoreAndGoOn() {
  std::signal(SIGHUP, SIG_IGN);
  {
    CancelWatch watch;
    ::kill(::getpid(), SIGHUP);
  }
  std::_Exit(0);
}

TEST(CancelWatchDeathTest, WhatWasIgnoredStaysIgnored) {
  EXPECT_EXIT(IgnoreAndGoOn(), testing::ExitedWithCode(0), "");
}

TEST(PrivateFolderTest, IsPrivateAndGoesWithItsContents) {
  CancelWatch watch;
  std::string path;
  {
    const PrivateFolder folder(watch);
    path = folder.Path();
    EXPECT_EQ(std::filesystem::status(path).permissions(), std::filesystem::perms::owner_all);
    std::filesystem::create_directories(path + "/var/tmp");
  }
  EXPECT_FALSE(std::filesystem::exists(path));
}

}  // namespace
}  // namespace vox::cli::test
