// Whose a System V set is, and those that killed processes have left.
#include "vox/drivers/SemaphoreOwners.h"

#include <csignal>
#include <cstdlib>
#include <functional>
#include <future>
#include <set>
#include <vector>

#include <gtest/gtest.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/support/FreshNamespace.h"
#include "tests/unit/session/SessionTest.h"
#include "vox/drivers/SemaphoreSet.h"

namespace vox::test {
namespace {

constexpr int kKeys = 256;

key_t KeyOf(int semid) {
  semid_ds about{};
  return ::semctl(semid, 0, IPC_STAT, &about) == 0 ? about.sem_perm.__key : -1;
}

// A process that has made something, whose number it tells, and lives until it is killed.
class Maker {
 public:
  explicit Maker(const std::function<int()>& make) {
    int ends[2];
    if (::pipe(ends) != 0) return;
    child_ = ::fork();
    if (child_ == 0) {
      const int made = make();
      if (::write(ends[1], &made, sizeof made) == sizeof made) ::pause();
      std::_Exit(1);
    }
    ::close(ends[1]);
    if (::read(ends[0], &made_, sizeof made_) != sizeof made_) made_ = -1;
    ::close(ends[0]);
  }
  ~Maker() { Kill(); }
  Maker(const Maker&) = delete;
  Maker& operator=(const Maker&) = delete;

  void Kill() {
    if (child_ <= 0) return;
    ::kill(child_, SIGKILL);
    ::waitpid(child_, nullptr, 0);
    child_ = -1;
  }
  int Made() const { return made_; }

 private:
  pid_t child_ = -1;
  int made_ = -1;
};

int MadeByTheDead(const std::function<int()>& make) {
  return Maker(make).Made();
}

// Removes the set when the test is over.
class Tidy {
 public:
  explicit Tidy(int semid) : semid_(semid) {}
  ~Tidy() { ::semctl(semid_, 0, IPC_RMID); }
  Tidy(const Tidy&) = delete;
  Tidy& operator=(const Tidy&) = delete;

 private:
  int semid_;
};

int UnsignedSet(int semaphores) {
  for (key_t key = ::getpid();; ++key) {
    const int semid = ::semget(key, semaphores, IPC_CREAT | IPC_EXCL | 0666);
    if (semid >= 0 || errno != EEXIST) return semid;
  }
}

class SemaphoreOwners : public SessionTest {};

TEST_F(SemaphoreOwners, ANewSetBearsItsProcess) {
  const int semid = create_line_semaphores();
  ASSERT_GT(semid, 0);
  const Tidy tidy(semid);
  for (int number = 0; number < kLineSemaphores; ++number) {
    EXPECT_EQ(::semctl(semid, number, GETPID), ::getpid());
    EXPECT_EQ(::semctl(semid, number, GETVAL), 0);
  }
}

TEST_F(SemaphoreOwners, TheSetOfAKilledProcessIsRemovedAndNotThatOfALivingOne) {
  Maker maker(&create_line_semaphores);
  const int semid = maker.Made();
  ASSERT_GT(semid, 0);
  const Tidy tidy(semid);
  const key_t key = KeyOf(semid);
  EXPECT_FALSE(remove_abandoned_semaphores(key));
  EXPECT_TRUE(Exists(semid));
  maker.Kill();
  EXPECT_TRUE(remove_abandoned_semaphores(key));
  EXPECT_FALSE(Exists(semid));
  EXPECT_FALSE(remove_abandoned_semaphores(key)) << "there is none any more";
}

TEST_F(SemaphoreOwners, OneSemaphoreThatALivingProcessUsedIsEnough) {
  for (int number = 0; number < kLineSemaphores; ++number) {
    const int semid = MadeByTheDead(&create_line_semaphores);
    const Tidy tidy(semid);
    ASSERT_EQ(post_semaphore(semid, number), SemResult::kDone);
    EXPECT_FALSE(remove_abandoned_semaphores(KeyOf(semid))) << number;
  }
}

TEST_F(SemaphoreOwners, ASetThatIsWaitedForStays) {
  const int semid = MadeByTheDead(&create_line_semaphores);
  const key_t key = KeyOf(semid);
  auto waiter = Aside([semid] { return wait_semaphore(semid, kSemScaledLine); });
  ASSERT_TRUE(Eventually([semid] { return ::semctl(semid, kSemScaledLine, GETNCNT) == 1; }));
  EXPECT_FALSE(remove_abandoned_semaphores(key));
  remove_semaphores(semid);
  ASSERT_TRUE(Ends(waiter));
  EXPECT_EQ(waiter.get(), SemResult::kGone);
}

// Its process may be about to sign it.
TEST_F(SemaphoreOwners, ASetThatBearsNobodyStays) {
  const int semid = UnsignedSet(kLineSemaphores);
  ASSERT_GE(semid, 0);
  const Tidy tidy(semid);
  EXPECT_FALSE(remove_abandoned_semaphores(KeyOf(semid)));
  EXPECT_TRUE(Exists(semid));
}

TEST_F(SemaphoreOwners, ASetOfAnotherSizeStays) {
  const int semid = MadeByTheDead([] {
    const int made = UnsignedSet(kLineSemaphores + 1);
    sign_semaphores(made);
    sembuf last{kLineSemaphores, 1, 0};
    ::semop(made, &last, 1);
    return made;
  });
  ASSERT_GE(semid, 0);
  const Tidy tidy(semid);
  EXPECT_FALSE(remove_abandoned_semaphores(KeyOf(semid)));
  EXPECT_TRUE(Exists(semid));
}

// Makes a set of each key there is, as a page's process would. Returns: how many.
int TakeEveryKey() {
  int made = 0;
  for (int project = 0; project < kKeys; ++project) {
    const int semid =
        ::semget(::ftok("/dev/null", project), kLineSemaphores, IPC_CREAT | IPC_EXCL | 0666);
    made += semid >= 0;
    sign_semaphores(semid);
  }
  return made;
}

int KeysInUse() {
  int used = 0;
  for (int project = 0; project < kKeys; ++project)
    used += ::semget(::ftok("/dev/null", project), 0, 0) >= 0;
  return used;
}

TEST(FreshNamespace, WhereTheDeadHoldEveryKeyAPageStartsAllTheSame) {
  const int code = InFreshNamespace(CLONE_NEWIPC, [] {
    if (MadeByTheDead(&TakeEveryKey) != kKeys) return 1;
    for (int page = 0; page < 3 * kKeys; ++page) {
      const int semid = create_line_semaphores();
      if (semid <= 0 || ::semctl(semid, 0, GETPID) != ::getpid()) return 2;
      remove_semaphores(semid);
    }
    return KeysInUse() < kKeys ? 0 : 3;
  });
  SKIP_IF_NOT_PERMITTED(code);
  EXPECT_EQ(code, 0);
}

TEST(FreshNamespace, WhereTheLivingHoldEveryKeyNoneIsTaken) {
  const int code = InFreshNamespace(CLONE_NEWIPC, [] {
    SetSystemLogSink([](const std::string&) {});
    Maker maker(&TakeEveryKey);
    if (maker.Made() != kKeys) return 1;
    for (int page = 0; page < kKeys; ++page) {
      if (create_line_semaphores() != kNoSemaphores) return 2;
    }
    if (KeysInUse() != kKeys) return 3;
    maker.Kill();
    return create_line_semaphores() > 0 ? 0 : 4;
  });
  SKIP_IF_NOT_PERMITTED(code);
  EXPECT_EQ(code, 0);
}

constexpr int kProcesses = 4, kPagesEach = 32;

// Returns: 0 when every set that it got is still there in the end, and its own.
int MakePages() {
  std::set<int> pages;
  for (int page = 0; page < kPagesEach; ++page) {
    const int semid = create_line_semaphores();  // ten keys of the living may come in a row
    if (semid > 0) pages.insert(semid);
  }
  ::usleep(100'000);  // the others go on
  for (const int semid : pages) {
    if (!Exists(semid) || ::semctl(semid, 0, GETPID) != ::getpid()) return 1;
  }
  return pages.size() > kPagesEach / 2 ? 0 : 2;
}

TEST(FreshNamespace, ProcessesThatTakeFromTheDeadAtOnceDoNotTakeFromEachOther) {
  const int code = InFreshNamespace(CLONE_NEWIPC, [] {
    SetSystemLogSink([](const std::string&) {});
    if (MadeByTheDead(&TakeEveryKey) != kKeys) return 1;
    int worst = 0;
    for (int i = 0; i < kProcesses; ++i) {
      if (::fork() == 0) std::_Exit(MakePages());
    }
    for (int i = 0; i < kProcesses; ++i) {
      int status = 0;
      if (::wait(&status) < 0 || !WIFEXITED(status)) return 2;
      worst = std::max(worst, WEXITSTATUS(status));
    }
    return worst == 0 ? 0 : 2 + worst;
  });
  SKIP_IF_NOT_PERMITTED(code);
  EXPECT_EQ(code, 0);
}

}  // namespace
}  // namespace vox::test
