#include "vox/drivers/SemaphoreSet.h"

#include <cerrno>
#include <cstdlib>

#include <sys/ipc.h>
#include <sys/sem.h>
#include <unistd.h>

#include "vox/drivers/SemaphoreOwners.h"
#include "vox/drivers/SessionSystem.h"
#include "vox/platform/Mutex.h"
#include "vox/platform/SystemLog.h"

namespace vox {
namespace {

constexpr int kAttempts = 10;
constexpr int kProjects = 256;
constexpr char kKeyPath[] = "/dev/null";
constexpr int kNoKey = -2;  // try_set: no key can be made at all

// A generator of the library's own, seeded with the process id: the host program's random() is left
// alone, and the next page of a process does not try the same ten keys again.
int random_project() {
  static Mutex mutex;
  static pid_t seeded_by = 0;
  static random_data state{};
  static char room[64];
  MutexLock lock(mutex);
  if (seeded_by != ::getpid()) {
    seeded_by = ::getpid();
    state = {};
    ::initstate_r(static_cast<unsigned>(seeded_by), room, sizeof room, &state);
  }
  std::int32_t number = 0;
  ::random_r(&state, &number);
  return number % kProjects;
}

int new_set(key_t key) {
  return CurrentSessionSystem().make_set(key, kLineSemaphores, IPC_CREAT | IPC_EXCL | 0666);
}

int try_set() {
  const key_t key = CurrentSessionSystem().make_key(kKeyPath, random_project());
  if (key == -1) return kNoKey;
  int semid = new_set(key);
  if (semid < 0 && errno == EEXIST && remove_abandoned_semaphores(key)) semid = new_set(key);
  if (semid > 0) sign_semaphores(semid);
  return semid;
}

void remove_set(int semid) {
  ::semctl(semid, 0, IPC_RMID);
}

// make_set counts a set with the identifier 0 as no attempt; it is kept until a second one is
// there, since the kernel would hand out 0 again.
int make_set(bool& have_zero) {
  for (int attempts = 0; attempts < kAttempts;) {
    const int semid = try_set();
    if (semid > 0 || semid == kNoKey) return semid;
    if (semid == 0 && !have_zero) {
      have_zero = true;
    } else {
      ++attempts;
    }
  }
  return kNoSemaphores;
}

SemResult operate(int semid, int number, short change) {
  if (semid <= 0) return SemResult::kGone;
  sembuf operation{static_cast<unsigned short>(number), change, 0};
  while (CurrentSessionSystem().operate(semid, &operation, 1) != 0) {
    if (errno == ERANGE) return SemResult::kFull;
    if (errno != EINTR) return SemResult::kGone;
  }
  return SemResult::kDone;
}

}  // namespace

int create_line_semaphores() {
  bool have_zero = false;
  const int semid = make_set(have_zero);
  if (have_zero) remove_set(0);
  if (semid > 0) return semid;
  if (semid == kNoKey) {
    LogToSystem("%s: Can't generate key", "StartScan");
  } else {
    LogToSystem("%s: Can't get semid\n", "StartScan");
  }
  return kNoSemaphores;
}

SemResult post_semaphore(int semid, int number) {
  return operate(semid, number, 1);
}

SemResult wait_semaphore(int semid, int number) {
  return operate(semid, number, -1);
}

void remove_semaphores(int semid) {
  if (semid > 0) remove_set(semid);
}

}  // namespace vox
