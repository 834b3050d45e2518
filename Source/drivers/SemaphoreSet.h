// The System V semaphore sets that order the hand-overs of a page: three counting semaphores a
// page, numbered as below, all 0 at first.
//
// The kernel settles three things here. A count holds 32,767 at most (SEMVMX). Only the removal of
// the set wakes a thread that waits on it. And the first set of a fresh IPC namespace has the
// identifier 0, which everything above takes for "none"; create_line_semaphores never hands it out.
//
// Thread rule: any thread; each call is one system call, repeated when a signal interrupts it.
#pragma once

namespace vox {

constexpr int kSemRawLine = 0;     // reader -> horizontal: one more raw device line
constexpr int kSemScaledLine = 1;  // horizontal -> vertical: one more rescaled device line
constexpr int kSemClientLine = 2;  // vertical -> ReadLine: one more client line
constexpr int kLineSemaphores = 3;

constexpr int kNoSemaphores = -1;  // the identifier when there is no set

enum class SemResult {
  kDone,
  kFull,  // the count stands at its greatest value; nothing was added
  kGone,  // the set is removed, or was never there
};

// create_line_semaphores makes a new set: up to ten keys of "/dev/null" with random project
// numbers. A set that a killed process has left behind gives its key up (SemaphoreOwners.h).
// Returns: the identifier, above 0; kNoSemaphores after a line in the system log.
int create_line_semaphores();

SemResult post_semaphore(int semid, int number);  // adds 1
SemResult wait_semaphore(int semid, int number);  // takes 1, waiting for it; never kFull

// remove_semaphores removes the set; every thread that waits on it gets kGone. An identifier of 0
// or below is none.
void remove_semaphores(int semid);

}  // namespace vox
