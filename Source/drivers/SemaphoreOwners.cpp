#include "vox/drivers/SemaphoreOwners.h"

#include <array>
#include <cerrno>
#include <csignal>

#include <sys/ipc.h>
#include <sys/sem.h>

#include "vox/drivers/SemaphoreSet.h"

namespace vox {
namespace {

// A process that waits for its parent to take its exit status exists.
bool exists(pid_t process) {
  return ::kill(process, 0) == 0 || errno != ESRCH;
}

bool is_used(int semid, int number) {
  if (::semctl(semid, number, GETNCNT) != 0) return true;  // somebody waits, or it is gone
  const int process = ::semctl(semid, number, GETPID);
  return process <= 0 || exists(process);
}

bool is_abandoned(int semid) {
  semid_ds about{};
  if (::semctl(semid, 0, IPC_STAT, &about) != 0 || about.sem_nsems != kLineSemaphores) return false;
  for (int number = 0; number < kLineSemaphores; ++number) {
    if (is_used(semid, number)) return false;
  }
  return true;
}

}  // namespace

// Asking whether a semaphore is 0 changes nothing, but counts as an operation on it.
void sign_semaphores(int semid) {
  std::array<sembuf, kLineSemaphores> signs{};
  unsigned short number = 0;
  for (sembuf& sign : signs) sign = {number++, 0, IPC_NOWAIT};
  ::semop(semid, signs.data(), signs.size());
}

bool remove_abandoned_semaphores(key_t key) {
  const int semid = ::semget(key, 0, 0);
  return semid >= 0 && is_abandoned(semid) && ::semctl(semid, 0, IPC_RMID) == 0;
}

}  // namespace vox
