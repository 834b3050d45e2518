// SessionSystem: the system calls that starting, timing and handing over a page depend on, in one
// place, so that a test can make any of them fail or can hold a page at a chosen moment.
//
// Thread rule: SetSessionSystem before any page starts; the calls themselves from any thread.
#pragma once

#include <chrono>
#include <cstddef>

#include <pthread.h>
#include <sys/types.h>

struct sembuf;

namespace vox {

struct SessionSystem {
  key_t (*make_key)(const char* path, int project);                              // ftok
  int (*make_set)(key_t key, int semaphores, int flags);                         // semget
  int (*operate)(int semid, sembuf* operations, std::size_t count);              // semop
  int (*start_thread)(pthread_t* thread, void* (*body)(void*), void* argument);  // 0 or an errno
  double (*wall_clock)();                  // seconds since 1970
  void* (*line_memory)(std::size_t size);  // malloc, for lines
  double standby_interval;  // seconds between two standby commands while a feeder waits
  void (*pause)(std::chrono::milliseconds time);  // sleeps
};

// CurrentSessionSystem gives the calls in use; at first those of the system itself.
const SessionSystem& CurrentSessionSystem();

// SetSessionSystem replaces them and returns those that were in use.
SessionSystem SetSessionSystem(const SessionSystem& system);

}  // namespace vox
