// Mutex, MutexLock and Condition: thin wrappers of the POSIX objects that carry clang's thread
// safety annotations, so that `clang -Wthread-safety` checks who holds what. Deadlines are on the
// monotonic clock.
//
// Thread rule: all operations may be called from any thread.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

#if defined(__clang__)
#define VOX_ANNOTATE(x) __attribute__((x))
#else
#define VOX_ANNOTATE(x)
#endif
#define VOX_CAPABILITY(name) VOX_ANNOTATE(capability(name))
#define VOX_SCOPED_CAPABILITY VOX_ANNOTATE(scoped_lockable)
#define VOX_GUARDED_BY(mutex) VOX_ANNOTATE(guarded_by(mutex))
#define VOX_PT_GUARDED_BY(mutex) VOX_ANNOTATE(pt_guarded_by(mutex))
#define VOX_REQUIRES(...) VOX_ANNOTATE(requires_capability(__VA_ARGS__))
#define VOX_EXCLUDES(...) VOX_ANNOTATE(locks_excluded(__VA_ARGS__))
#define VOX_ACQUIRE(...) VOX_ANNOTATE(acquire_capability(__VA_ARGS__))
#define VOX_TRY_ACQUIRE(...) VOX_ANNOTATE(try_acquire_capability(__VA_ARGS__))
#define VOX_RELEASE(...) VOX_ANNOTATE(release_capability(__VA_ARGS__))
#define VOX_NO_THREAD_SAFETY_ANALYSIS VOX_ANNOTATE(no_thread_safety_analysis)

namespace vox {

class VOX_CAPABILITY("mutex") Mutex {
 public:
  Mutex() = default;
  Mutex(const Mutex&) = delete;
  Mutex& operator=(const Mutex&) = delete;
  void Lock() VOX_ACQUIRE() { mutex_.lock(); }
  void Unlock() VOX_RELEASE() { mutex_.unlock(); }
  bool TryLock() VOX_TRY_ACQUIRE(true) { return mutex_.try_lock(); }

 private:
  friend class MutexLock;
  std::mutex mutex_;
};

// MutexLock holds a Mutex for its lifetime; Unlock and Lock open a gap in it.
class VOX_SCOPED_CAPABILITY MutexLock {
 public:
  explicit MutexLock(Mutex& mutex) VOX_ACQUIRE(mutex) : lock_(mutex.mutex_) {}
  ~MutexLock() VOX_RELEASE() {}
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;
  void Unlock() VOX_RELEASE() { lock_.unlock(); }
  void Lock() VOX_ACQUIRE() { lock_.lock(); }

 private:
  friend class Condition;
  std::unique_lock<std::mutex> lock_;
};

class Condition {
 public:
  void NotifyOne() { condition_.notify_one(); }
  void NotifyAll() { condition_.notify_all(); }
  void Wait(MutexLock& lock) { condition_.wait(lock.lock_); }
  // WaitUntil returns false when the deadline passed first.
  bool WaitUntil(MutexLock& lock, std::chrono::steady_clock::time_point deadline) {
    return condition_.wait_until(lock.lock_, deadline) == std::cv_status::no_timeout;
  }
  bool WaitFor(MutexLock& lock, std::chrono::steady_clock::duration time) {
    return WaitUntil(lock, std::chrono::steady_clock::now() + time);
  }

 private:
  std::condition_variable condition_;
};

}  // namespace vox
