#include "vox/drivers/Semaphore.h"

#include <cstdio>

namespace vox {
namespace {

constexpr char kName[] = "Semaphore";

class PosixLock {
 public:
  explicit PosixLock(pthread_mutex_t& mutex) : m_mutex(mutex) { ::pthread_mutex_lock(&m_mutex); }
  ~PosixLock() { ::pthread_mutex_unlock(&m_mutex); }
  PosixLock(const PosixLock&) = delete;
  PosixLock& operator=(const PosixLock&) = delete;

 private:
  pthread_mutex_t& m_mutex;
};

}  // namespace

Semaphore::Semaphore() {
  ::pthread_mutex_init(&m_mutex, nullptr);
  ::pthread_cond_init(&m_cond, nullptr);
}

Semaphore::~Semaphore() {
  if (::pthread_mutex_trylock(&m_mutex) != 0) {
    std::fprintf(stderr, "%s: mutex is locked by another thread\n", kName);
    return;
  }
  const bool waited_for = m_waiters > 0;
  ::pthread_mutex_unlock(&m_mutex);
  if (waited_for) {  // the waiters still need the mutex as well
    std::fprintf(stderr, "%s: condition is locked by another thread\n", kName);
    return;
  }
  ::pthread_cond_destroy(&m_cond);
  ::pthread_mutex_destroy(&m_mutex);
}

void Semaphore::Up() {
  PosixLock lock(m_mutex);
  m_raised = true;
  ++m_value;
  ::pthread_cond_signal(&m_cond);
}

void Semaphore::UpIfNever() {
  PosixLock lock(m_mutex);
  if (m_raised) return;
  m_raised = true;
  ++m_value;
  ::pthread_cond_signal(&m_cond);
}

void Semaphore::Down() {
  PosixLock lock(m_mutex);
  while (m_value == 0) {
    ++m_waiters;
    ::pthread_cond_wait(&m_cond, &m_mutex);
    --m_waiters;
  }
  --m_value;
}

void Semaphore::Reset() {
  PosixLock lock(m_mutex);
  m_value = 0;
  m_raised = false;
}

std::uint32_t Semaphore::Value() {
  PosixLock lock(m_mutex);
  return m_value;
}

std::uint32_t Semaphore::Waiters() {
  PosixLock lock(m_mutex);
  return m_waiters;
}

}  // namespace vox
