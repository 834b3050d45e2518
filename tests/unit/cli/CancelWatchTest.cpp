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

// The watch leaves the signals blocked; the next test shall find them as they were.
class CancelWatchTest : public testing::Test {
 protected:
  CancelWatchTest() { ::pthread_sigmask(SIG_SETMASK, nullptr, &mask_); }
  ~CancelWatchTest() override {
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) std::signal(signal, SIG_IGN);
    ::pthread_sigmask(SIG_SETMASK, &mask_, nullptr);  // drops what is pending
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) std::signal(signal, SIG_DFL);
  }

 private:
  sigset_t mask_{};
};
using CancelWatchDeathTest = CancelWatchTest;

TEST_F(CancelWatchTest, ACancelRunsTheJobsAbort) {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    CancelWatch watch;
    std::promise<void> aborted;
    std::atomic<bool> first{true};
    CancelWatch::Attachment job(watch, [&] {
      if (first.exchange(false)) aborted.set_value();
    });
    EXPECT_FALSE(watch.Requested());
    ::kill(::getpid(), signal);
    aborted.get_future().wait();
    EXPECT_TRUE(watch.Requested());
    WaitReadable(watch.Fd());
  }
}

// An abort that comes between two pages hits nothing: the next page must be hit, too.
TEST_F(CancelWatchTest, TheAbortIsRepeatedUntilTheJobIsOver) {
  CancelWatch watch;
  std::atomic<int> aborts{0};
  std::promise<void> third;
  CancelWatch::Attachment job(watch, [&] {
    if (++aborts == 3) third.set_value();
  });
  ::kill(::getpid(), SIGINT);
  third.get_future().wait();
  job.Detach();
  const int then = aborts;
  ::kill(::getpid(), SIGTERM);  // a second signal changes nothing
  EXPECT_EQ(aborts, then);
}

TEST_F(CancelWatchTest, DetachWaitsForTheAbort) {
  CancelWatch watch;
  std::promise<void> begun, go;
  std::atomic<bool> done{false};
  CancelWatch::Attachment job(watch, [&] {
    if (done) return;
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

TEST_F(CancelWatchTest, AJobIsNotBegunAfterACancel) {
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

TEST_F(CancelWatchTest, ACancelAfterTheEndIsNothing) {
  CancelWatch watch;
  watch.Finish();
  ::kill(::getpid(), SIGINT);
  ::kill(::getpid(), SIGTERM);
  const CancelWatch::Attachment job(watch, [] {});
  EXPECT_FALSE(watch.Requested());
}

[[noreturn]] void WaitForTheEnd() {
  CancelWatch watch;
  ::kill(::getpid(), SIGINT);
  for (;;) ::pause();
}

TEST_F(CancelWatchDeathTest, WithoutAJobTheProgramEndsAtOnce) {
  EXPECT_EXIT(WaitForTheEnd(), testing::ExitedWithCode(2), "vox: cancelled");
}

[[noreturn]] void WorkInAPrivateFolder(const std::string& parent) {
  ::setenv("TMPDIR", parent.c_str(), 1);
  CancelWatch watch;
  std::string place;
  watch.Prepare([&place]() -> CancelWatch::Action {
    static const PrivateFolder folder({"var/tmp"});
    place = folder.Path() + "/var/tmp";
    return [] { PrivateFolder::RemoveAndExit(folder.Path(), 2); };
  });
  // As the library does, which makes the folders that it needs.
  for (int i = 0;; ++i) {
    std::error_code ignored;
    std::filesystem::create_directories(place, ignored);
    std::ofstream(place + "/file" + std::to_string(i % 100)) << "content";
    if (i == 1000) ::kill(::getpid(), SIGINT);
  }
}

TEST_F(CancelWatchDeathTest, WhatWasPreparedIsUndoneWhateverTheProgramIsDoing) {
  const TestFolder parent;
  EXPECT_EXIT(WorkInAPrivateFolder(parent.Path()), testing::ExitedWithCode(2), "vox: cancelled");
  EXPECT_THAT(parent.Leaves(), testing::IsEmpty());
}

// The job's files are still to be removed, or to be finished.
TEST_F(CancelWatchTest, ACancelBehindTheJobLetsTheProgramReachItsEnd) {
  CancelWatch watch;
  CancelWatch::Attachment(watch, [] {}).Detach();
  ::kill(::getpid(), SIGINT);
  WaitReadable(watch.Fd());
  EXPECT_TRUE(watch.Requested());
  EXPECT_THROW(CancelWatch::Attachment(watch, [] {}), Failure);
}

TEST_F(CancelWatchTest, WhatAPreparationThrowsPasses) {
  CancelWatch watch;
  EXPECT_THROW(
      watch.Prepare([]() -> CancelWatch::Action { throw Failure(ExitStatus::kIoError, "no"); }),
      Failure);
}

[[noreturn]] void IgnoreAndGoOn() {
  std::signal(SIGHUP, SIG_IGN);
  {
    CancelWatch watch;
    ::kill(::getpid(), SIGHUP);
  }
  std::_Exit(0);
}

TEST_F(CancelWatchDeathTest, WhatWasIgnoredStaysIgnored) {
  EXPECT_EXIT(IgnoreAndGoOn(), testing::ExitedWithCode(0), "");
}

TEST_F(CancelWatchTest, APrivateFolderIsPrivateAndGoesWithItsContents) {
  std::string path;
  {
    const PrivateFolder folder({"var/tmp"});
    path = folder.Path();
    EXPECT_EQ(std::filesystem::status(path).permissions(), std::filesystem::perms::owner_all);
    EXPECT_TRUE(std::filesystem::is_directory(path + "/var/tmp"));
    std::ofstream(path + "/var/tmp/file") << "content";
  }
  EXPECT_FALSE(std::filesystem::exists(path));
}

}  // namespace
}  // namespace vox::cli::test
