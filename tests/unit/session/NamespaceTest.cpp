// Sessions in a fresh IPC namespace, as every container has one: there the kernel's first semaphore
// set has the identifier 0, which means "none" to the session.
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

#include <gtest/gtest.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <unistd.h>

#include "tests/support/FreshNamespace.h"
#include "tests/unit/session/SessionTest.h"
#include "vox/drivers/SemaphoreSet.h"

namespace vox::test {
namespace {

// Runs the work in a child process with an IPC namespace of its own; its exit code, or -1.
template <typename Work>
int InFreshIpc(Work work) {
  return InFreshNamespace(CLONE_NEWIPC, work);
}

TEST(FreshNamespace, FirstSetIs0AndIsNotKept) {
  const int code = InFreshIpc([] {
    const int probe = ::semget(IPC_PRIVATE, 1, 0600);
    if (probe != 0) return 1;  // the kernel no longer starts at 0
    ::semctl(probe, 0, IPC_RMID);
    return 0;
  });
  SKIP_IF_NOT_PERMITTED(code);
  EXPECT_EQ(code, 0);
}

TEST(FreshNamespace, SetWithTheIdentifier0IsReplaced) {
  const int code = InFreshIpc([] {
    const int semid = create_line_semaphores();
    if (semid <= 0) return 1;
    if (Exists(0)) return 2;
    if (::semctl(semid, 0, GETVAL) != 0) return 3;
    remove_semaphores(semid);
    return Exists(semid) ? 4 : 0;
  });
  SKIP_IF_NOT_PERMITTED(code);
  EXPECT_EQ(code, 0);
}

// 0 counts as no attempt: ten failures may follow it, and the set 0 is removed all the same.
int sets_made = 0;
int ZeroThenFailures(key_t key, int semaphores, int flags) {
  return ++sets_made == 1 ? ::semget(key, semaphores, flags) : -1;
}

TEST(FreshNamespace, SetWithTheIdentifier0IsNoAttempt) {
  const int code = InFreshIpc([] {
    SessionSystem system = CurrentSessionSystem();
    system.make_set = &ZeroThenFailures;
    SetSessionSystem(system);
    SetSystemLogSink([](const std::string&) {});
    if (create_line_semaphores() != kNoSemaphores) return 1;
    if (sets_made != 11) return 2;
    return Exists(0) ? 3 : 0;
  });
  SKIP_IF_NOT_PERMITTED(code);
  EXPECT_EQ(code, 0);
}

// Lines of /proc/sysvipc/sem below its heading: the sets of the caller's namespace.
int SetsOfTheNamespace() {
  std::ifstream list("/proc/sysvipc/sem");
  std::string line;
  int lines = -1;
  while (std::getline(list, line)) ++lines;
  return lines;
}

constexpr int kSetsLeft = 78;

// All tests of this program but these, in a namespace of their own, where every set is ours.
TEST(FreshNamespace, EverySessionTestPassesThereAndLeavesNoSet) {
  const int code = InFreshIpc([] {
    const pid_t tests = ::fork();
    if (tests == 0) {
      ::execl("/proc/self/exe", "/proc/self/exe", "--gtest_filter=-FreshNamespace.*",
              "--gtest_brief=1", nullptr);
      std::_Exit(126);
    }
    int status = 0;
    if (tests < 0 || ::waitpid(tests, &status, 0) != tests || !WIFEXITED(status)) return 1;
    if (SetsOfTheNamespace() != 0) return kSetsLeft;
    return WEXITSTATUS(status);
  });
  SKIP_IF_NOT_PERMITTED(code);
  EXPECT_EQ(code, 0);
}

}  // namespace
}  // namespace vox::test
