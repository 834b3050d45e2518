// Semaphore: a counting semaphore made of a mutex and a condition. The transport raises it once
// when the device has finished a page; the call that ends the page lowers it.
//
// Thread rule: all operations from any thread; it is destroyed when nobody waits on it any more.
#pragma once

#include <cstdint>

#include <pthread.h>

#include "vox/platform/Export.h"

namespace vox {

class VOX_EXPORT Semaphore {
 public:
  Semaphore();

  // ~Semaphore leaves a mutex that is locked, or a condition that is waited for, undestroyed and
  // says so on the standard error stream: destroying a condition with a waiter would block for
  // ever.
  ~Semaphore();

  Semaphore(const Semaphore&) = delete;
  Semaphore& operator=(const Semaphore&) = delete;

  void Up();     // adds one and wakes one waiter
  void Down();   // waits while the count is 0, then takes one
  void Reset();  // the count becomes 0: what an earlier page raised is forgotten

  // UpIfNever is Up unless it was raised since Reset already, whether or not that was taken since.
  void UpIfNever();

  std::uint32_t Value();    // the count now
  std::uint32_t Waiters();  // threads inside Down now that wait

 private:
  std::uint32_t m_value = 0;  // count, guarded by m_mutex
  pthread_mutex_t m_mutex;    // plain POSIX objects: a busy one can be left alone
  pthread_cond_t m_cond;
  bool m_raised = false;        // Up since Reset, guarded by m_mutex
  std::uint32_t m_waiters = 0;  // threads in pthread_cond_wait, guarded by m_mutex
};

}  // namespace vox
