// Footprint notes what a process holds when it is made: threads, descriptors, and the semaphore
// sets that sessions make from then on. IsBack says whether all of it is given back.
//
// It counts sets through the session's own system calls, so tests that run beside it on the same
// machine do not show. Thread rule: one at a time, made before any session starts.
#pragma once

#include <cstddef>
#include <string>

#include "vox/drivers/SessionSystem.h"

namespace vox::test {

// Exists tells whether the machine has the semaphore set.
bool Exists(int semid);

class Footprint {
 public:
  Footprint();
  ~Footprint();
  Footprint(const Footprint&) = delete;
  Footprint& operator=(const Footprint&) = delete;

  // IsBack waits a moment for threads that have been joined to leave the kernel's list as well.
  bool IsBack() const;
  // Describe says what is left, for the message of a failed test.
  std::string Describe() const;
  // Sets made since, and how many of them still exist.
  std::size_t SetsMade() const;
  std::size_t SetsLeft() const;

 private:
  SessionSystem before_;
  std::size_t threads_;
  std::size_t descriptors_;
};

}  // namespace vox::test
