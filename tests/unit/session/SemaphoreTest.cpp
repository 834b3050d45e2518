// Semaphore, and the System V sets that order a page's hand-overs.
#include "vox/drivers/Semaphore.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <set>
#include <thread>

#include <gtest/gtest.h>
#include <sys/ipc.h>
#include <sys/sem.h>

#include "tests/unit/session/SessionTest.h"
#include "vox/drivers/SemaphoreSet.h"

namespace vox::test {
namespace {

TEST(Semaphore, CountsUpAndDown) {
  Semaphore semaphore;
  semaphore.Up();
  semaphore.Up();
  EXPECT_EQ(semaphore.Value(), 2u);
  semaphore.Down();
  semaphore.Down();
  EXPECT_EQ(semaphore.Value(), 0u);
}

TEST(Semaphore, DownWaitsForUp) {
  Semaphore semaphore;
  auto down = std::async(std::launch::async, [&semaphore] { semaphore.Down(); });
  ASSERT_TRUE(Eventually([&semaphore] { return semaphore.Waiters() == 1; }));
  semaphore.Up();
  down.get();
  EXPECT_EQ(semaphore.Value(), 0u);
}

TEST(Semaphore, ResetForgetsWhatWasRaised) {
  Semaphore semaphore;
  semaphore.Up();
  semaphore.Reset();
  EXPECT_EQ(semaphore.Value(), 0u);
}

TEST(Semaphore, UpIfNeverRaisesOnceAtMost) {
  Semaphore semaphore;
  semaphore.UpIfNever();
  semaphore.UpIfNever();
  EXPECT_EQ(semaphore.Value(), 1u);
  semaphore.Down();
  semaphore.UpIfNever();
  EXPECT_EQ(semaphore.Value(), 0u);
  semaphore.Reset();
  semaphore.Up();
  semaphore.UpIfNever();
  EXPECT_EQ(semaphore.Value(), 1u);
}

// A child process has a thread wait on the condition, then destroys the semaphore and leaves.
void DestroyWithAWaiter() {
  alignas(Semaphore) static unsigned char room[sizeof(Semaphore)];
  auto* semaphore = new (room) Semaphore;
  std::thread([semaphore] { semaphore->Down(); }).detach();
  while (semaphore->Waiters() == 0) std::this_thread::yield();
  semaphore->~Semaphore();
  std::_Exit(0);
}

TEST(SemaphoreDeathTest, ConditionThatIsWaitedForIsLeftAlone) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(DestroyWithAWaiter(), testing::ExitedWithCode(0),
              "^Semaphore: condition is locked by another thread\n$");
}

// The mutex is the second member; the plain layout is what a test can reach.
struct SemaphoreLayout {
  std::uint32_t value;
  pthread_mutex_t mutex;
};

void DestroyWhileLocked() {
  alignas(Semaphore) static unsigned char room[sizeof(Semaphore)];
  auto* semaphore = new (room) Semaphore;
  ::pthread_mutex_lock(&reinterpret_cast<SemaphoreLayout*>(room)->mutex);
  semaphore->~Semaphore();
  std::_Exit(0);
}

TEST(SemaphoreDeathTest, MutexThatIsLockedIsLeftAlone) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(DestroyWhileLocked(), testing::ExitedWithCode(0),
              "^Semaphore: mutex is locked by another thread\n$");
}

class SemaphoreSetTest : public SessionTest {
 protected:
  SemaphoreSetTest() : semid_(create_line_semaphores()) {}
  ~SemaphoreSetTest() override { remove_semaphores(semid_); }
  void TearDown() override {
    remove_semaphores(semid_);
    SessionTest::TearDown();
  }
  int Count(int number) const { return ::semctl(semid_, number, GETVAL); }
  bool IsWaitedFor(int number) const { return ::semctl(semid_, number, GETNCNT) == 1; }

  int semid_;
};

TEST_F(SemaphoreSetTest, StartsWithThreeZerosForEverybody) {
  ASSERT_GT(semid_, 0);
  semid_ds about{};
  ASSERT_EQ(::semctl(semid_, 0, IPC_STAT, &about), 0);
  EXPECT_EQ(about.sem_nsems, 3u);
  EXPECT_EQ(about.sem_perm.mode & 0777, 0666);
  for (int number = 0; number < 3; ++number) EXPECT_EQ(Count(number), 0);
}

TEST_F(SemaphoreSetTest, PostAddsOneAndWaitTakesOne) {
  EXPECT_EQ(post_semaphore(semid_, kSemScaledLine), SemResult::kDone);
  EXPECT_EQ(Count(kSemScaledLine), 1);
  EXPECT_EQ(wait_semaphore(semid_, kSemScaledLine), SemResult::kDone);
  EXPECT_EQ(Count(kSemScaledLine), 0);
}

TEST_F(SemaphoreSetTest, GreatestCountIs32767) {
  ASSERT_EQ(::semctl(semid_, kSemRawLine, SETVAL, 32766), 0);
  EXPECT_EQ(post_semaphore(semid_, kSemRawLine), SemResult::kDone);
  EXPECT_EQ(post_semaphore(semid_, kSemRawLine), SemResult::kFull);
  EXPECT_EQ(Count(kSemRawLine), 32767);
}

TEST_F(SemaphoreSetTest, RemovalWakesTheWaiter) {
  auto waiter = Aside([this] { return wait_semaphore(semid_, kSemClientLine); });
  ASSERT_TRUE(Eventually([this] { return IsWaitedFor(kSemClientLine); }));
  remove_semaphores(semid_);
  ASSERT_TRUE(Ends(waiter));
  EXPECT_EQ(waiter.get(), SemResult::kGone);
  EXPECT_EQ(post_semaphore(semid_, kSemClientLine), SemResult::kGone);
}

TEST_F(SemaphoreSetTest, IdentifiersUpTo0AreNone) {
  for (const int none : {0, kNoSemaphores}) {
    EXPECT_EQ(post_semaphore(none, 0), SemResult::kGone);
    EXPECT_EQ(wait_semaphore(none, 0), SemResult::kGone);
    remove_semaphores(none);
  }
}

TEST_F(SemaphoreSetTest, SignalsDoNotEndAWait) {
  struct sigaction action {};
  struct sigaction before {};
  action.sa_handler = &IgnoreSignal;
  ASSERT_EQ(::sigaction(SIGUSR1, &action, &before), 0);
  SemResult result = SemResult::kGone;
  std::thread waiter([this, &result] { result = wait_semaphore(semid_, kSemRawLine); });
  ASSERT_TRUE(Eventually([this] { return IsWaitedFor(kSemRawLine); }));
  for (int i = 0; i < 100; ++i) {
    ::pthread_kill(waiter.native_handle(), SIGUSR1);
    ASSERT_TRUE(Eventually([this] { return IsWaitedFor(kSemRawLine); }));
  }
  EXPECT_EQ(post_semaphore(semid_, kSemRawLine), SemResult::kDone);
  waiter.join();
  ::sigaction(SIGUSR1, &before, nullptr);
  EXPECT_EQ(result, SemResult::kDone);
}

TEST_F(SemaphoreSetTest, HostsRandomNumbersAreLeftAlone) {
  ::srandom(7);
  const long first = ::random();
  ::srandom(7);
  remove_semaphores(create_line_semaphores());
  EXPECT_EQ(::random(), first);
}

// What the system answers while a set is made, and what it was asked.
struct Script {
  std::vector<int> identifiers;  // of make_set, in order; afterwards -1
  std::size_t asked = 0;
  std::set<int> projects;
  std::vector<int> flags;
};
Script script;

key_t NotedKey(const char* path, int project) {
  EXPECT_STREQ(path, "/dev/null");
  EXPECT_GE(project, 0);
  EXPECT_LT(project, 256);
  script.projects.insert(project);
  return 1000 + project;
}
int ScriptedSet(key_t, int semaphores, int flags) {
  EXPECT_EQ(semaphores, 3);
  script.flags.push_back(flags);
  const std::size_t at = script.asked++;
  return at < script.identifiers.size() ? script.identifiers[at] : -1;
}

class MakingSetsTest : public SessionTest {
 protected:
  void Answers(std::vector<int> identifiers) {
    script = Script{};
    script.identifiers = std::move(identifiers);
    WithSystem([](SessionSystem& system) {
      system.make_key = &NotedKey;
      system.make_set = &ScriptedSet;
    });
  }
};

TEST_F(MakingSetsTest, NewExclusiveSetForEverybody) {
  Answers({77});
  EXPECT_EQ(create_line_semaphores(), 77);
  EXPECT_EQ(script.flags, std::vector<int>{IPC_CREAT | IPC_EXCL | 0666});
}

TEST_F(MakingSetsTest, TenthAttemptStillCounts) {
  Answers({-1, -1, -1, -1, -1, -1, -1, -1, -1, 77});
  EXPECT_EQ(create_line_semaphores(), 77);
  EXPECT_GT(script.projects.size(), 1u) << "each attempt draws another number";
}

TEST_F(MakingSetsTest, NoEleventhAttempt) {
  Answers({-1, -1, -1, -1, -1, -1, -1, -1, -1, -1, 77});
  EXPECT_EQ(create_line_semaphores(), kNoSemaphores);
  EXPECT_EQ(script.asked, 10u);
  EXPECT_EQ(LinesLogged("StartScan: Can't get semid\n"), 1);
}

TEST_F(MakingSetsTest, WithoutAKeyThereIsNoSecondAttempt) {
  Answers({77});
  WithSystem([](SessionSystem& system) { system.make_key = &NoKey; });
  EXPECT_EQ(create_line_semaphores(), kNoSemaphores);
  EXPECT_EQ(script.asked, 0u);
  EXPECT_EQ(LinesLogged("StartScan: Can't generate key"), 1);
}

TEST_F(MakingSetsTest, NextPageDoesNotTryTheSameKeysAgain) {
  Answers({77, 78, 79, 80});
  for (int page = 0; page < 4; ++page) create_line_semaphores();
  EXPECT_GT(script.projects.size(), 1u);
}

}  // namespace
}  // namespace vox::test
