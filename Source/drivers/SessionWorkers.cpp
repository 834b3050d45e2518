// The worker side of a session: the gate that new threads wait at, and what is left of the reader
// when its page is over.
#include <chrono>

#include "vox/DSDebugging.h"
#include "vox/drivers/ScanSession.h"
#include "vox/drivers/SessionSystem.h"
#include "vox/drivers/TwainImageIF.h"

namespace vox {
namespace {

std::chrono::steady_clock::time_point next_standby() {
  const std::chrono::duration<double> interval(CurrentSessionSystem().standby_interval);
  return std::chrono::steady_clock::now() +
         std::chrono::duration_cast<std::chrono::steady_clock::duration>(interval);
}

}  // namespace

void* CTwainImageIF::reader_body(void* session) {
  CTwainImageIF& dev = static_cast<ScanSession*>(session)->dev;
  if (dev.await_gate()) data_thread(&dev);
  return nullptr;
}

void* CTwainImageIF::horizontal_body(void* session) {
  ScanSession& page = *static_cast<ScanSession*>(session);
  if (page.dev.await_gate()) imageprocX_thread(&page.proc);
  return nullptr;
}

void* CTwainImageIF::vertical_body(void* session) {
  ScanSession& page = *static_cast<ScanSession*>(session);
  if (page.dev.await_gate()) imageprocY_thread(&page.proc);
  return nullptr;
}

bool CTwainImageIF::await_gate() {
  MutexLock lock(m_ka);
  while (m_gate == GATE_CLOSED) m_wake.Wait(lock);
  return m_gate == GATE_RUN;
}

void CTwainImageIF::open_gate(bool run) {
  MutexLock lock(m_ka);
  m_gate = run ? GATE_RUN : GATE_CANCELLED;
  m_wake.NotifyAll();
}

void CTwainImageIF::settle() {
  MutexLock lock(m_ka);
  m_settled = true;
  if (m_stop == PAGE_ABORT) m_semaphore.UpIfNever();
  m_wake.NotifyAll();
}

void CTwainImageIF::await_settled() {
  MutexLock lock(m_ka);
  while (!m_settled) m_wake.Wait(lock);
}

bool CTwainImageIF::stays_awake() const {
  return multipage != 0 && !m_kaStop && m_stop != PAGE_ABORT;
}

// keep_alive sends the standby command at each interval while more pages of the session may come.
void CTwainImageIF::keep_alive() {
  if (multipage == 0) return;
  DS_LogText("%s:%d:\n", "data_thread", __LINE__);
  MutexLock lock(m_ka);
  while (stays_awake()) {
    const auto time = next_standby();
    while (stays_awake() && m_wake.WaitUntil(lock, time)) {
    }
    if (!stays_awake()) return;
    lock.Unlock();
    SendCmdStandby();
    lock.Lock();
  }
}

}  // namespace vox
