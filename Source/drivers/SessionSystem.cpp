#include "vox/drivers/SessionSystem.h"

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <thread>
#include <utility>

#include <sys/ipc.h>
#include <sys/sem.h>

namespace vox {
namespace {

int make_semaphore_set(key_t key, int semaphores, int flags) {
  return ::semget(key, semaphores, flags);
}

// A worker starts with every signal blocked: the handlers of the host program run on its own
// threads.
int start_worker(pthread_t* thread, void* (*body)(void*), void* argument) {
  sigset_t all, before;
  sigfillset(&all);
  ::pthread_sigmask(SIG_SETMASK, &all, &before);
  const int error = ::pthread_create(thread, nullptr, body, argument);
  ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
  return error;
}

double seconds_since_1970() {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration<double>(now).count();
}

void pause_thread(std::chrono::milliseconds time) {
  std::this_thread::sleep_for(time);
}

SessionSystem system_in_use = {&::ftok,       &make_semaphore_set, &::semop,
                               &start_worker, &seconds_since_1970, &std::malloc,
                               5.0,           &pause_thread};

}  // namespace

const SessionSystem& CurrentSessionSystem() {
  return system_in_use;
}

SessionSystem SetSessionSystem(const SessionSystem& system) {
  return std::exchange(system_in_use, system);
}

}  // namespace vox
