#include "vox/drivers/ScanSession.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <new>
#include <utility>

#include "vox/drivers/SessionSystem.h"
#include "vox/platform/SystemLog.h"

namespace vox {
namespace {

constexpr std::size_t kTableBytesPerLine = 16;
constexpr std::chrono::milliseconds kFullSemaphoreWait{1};

thread_local const CTwainImageIF* worker_of = nullptr;

}  // namespace

LineTable::LineTable(__DataContainer& container, std::uint32_t lines)
    : m_container(container), m_lines(lines) {
  void* table = std::calloc(std::max<std::size_t>(lines, 1), kTableBytesPerLine);
  if (table == nullptr) throw std::bad_alloc();
  m_container.LineArray = static_cast<unsigned char**>(table);
}

LineTable::~LineTable() {
  free_lines();
  std::free(std::exchange(m_container.LineArray, nullptr));
}

void LineTable::put(std::uint32_t i, LineBuffer line) {
  if (i >= m_lines) return;
  if (m_above < i + 1) m_above = i + 1;  // only by the thread that fills empty slots
  const LineBuffer before(slot(i).exchange(line.release()));
}

LineBuffer LineTable::take(std::uint32_t i) {
  if (i >= m_lines) return nullptr;
  return LineBuffer(slot(i).exchange(nullptr));
}

unsigned char* LineTable::at(std::uint32_t i) const {
  return i < m_lines ? slot(i).load() : nullptr;
}

void LineTable::free_lines() {
  for (std::uint32_t i = 0; i < m_above; ++i) take(i);
}

ScanSession::ScanSession(CTwainImageIF& owner, std::uint32_t dwScannable)
    : dev(owner),
      proc{&owner.ScanData, &owner.UserData, owner.rParam, owner.scan_info, &owner},
      dparam(owner.ScanParam),
      scannable(dwScannable),
      sizes(line_sizes(proc.sparam, proc.sinfo)),
      horizontal(proc.sparam, proc.sinfo),
      vertical(proc.sparam, proc.sinfo),
      lead(sizes, vertical, proc.sinfo.Window.yExtent, proc.sparam.dwImageLength),
      device_pool(std::max(sizes.raw_room, sizes.device_room), proc.sinfo.Window.yExtent),
      client_pool(sizes.client_room, proc.sparam.dwImageLength),
      device_lines(owner.ScanData, proc.sinfo.Window.yExtent),
      client_lines(owner.UserData, proc.sparam.dwImageLength) {}

// A waiter counts itself before it looks, and who moves the lead looks at the count afterwards: one
// of them sees the other.
template <typename Allowed>
bool ScanSession::wait_for_lead(Allowed allowed) {
  if (allowed()) return !stopping();
  MutexLock lock(dev.m_ka);
  ++lead_waiters;
  while (!allowed() && !stopping() && proc.SData->semid > 0) dev.m_wake.Wait(lock);
  --lead_waiters;
  return !stopping() && proc.SData->semid > 0;
}

bool ScanSession::wait_to_read(std::uint32_t i) {
  return wait_for_lead([this, i] {
    return lead.may_read(i, taken, static_cast<std::uint32_t>(proc.SData->StartLineReady.load()));
  });
}

bool ScanSession::wait_to_make(std::uint32_t j) {
  return wait_for_lead([this, j] { return lead.may_make(j, taken); });
}

void ScanSession::lead_moved() const {
  if (lead_waiters == 0) return;
  MutexLock lock(dev.m_ka);
  dev.m_wake.NotifyAll();
}

void ScanSession::store_device_line(std::uint32_t i, LineBuffer line) {
  if (!stopping()) device_lines.put(i, std::move(line));
}

void ScanSession::store_client_line(std::uint32_t j, LineBuffer line) {
  if (!stopping()) client_lines.put(j, std::move(line));
}

LineBuffer ScanSession::take_device_line(std::uint32_t i) {
  return device_lines.take(i);
}

const unsigned char* ScanSession::device_line(std::uint32_t i) {
  return device_lines.at(i);
}

LineBuffer ScanSession::raw_line(std::size_t filled) {
  LineBuffer line = device_pool.take();
  std::memset(line.get() + filled, 0, sizes.raw_room - filled);
  return line;
}

// Where device lines become client lines, all of them go back to where the reader takes them; the
// pool is the reader's then, so that the few others come from the heap.
LineBuffer ScanSession::client_line() {
  return vertical.passes_lines() ? new_line(device_pool.room()) : client_pool.take();
}

void ScanSession::recycle_client_line(LineBuffer line) {
  LinePool& pool = vertical.passes_lines() ? device_pool : client_pool;
  pool.give(std::move(line));
}

void ScanSession::free_device_lines(std::uint32_t end) {
  const auto start = static_cast<std::uint32_t>(proc.SData->StartLineReady.load());
  if (end <= start) return;
  for (std::uint32_t i = start; i < end; ++i) device_pool.give(device_lines.take(i));
  proc.SData->StartLineReady = static_cast<std::int32_t>(end);
  lead_moved();
}

bool ScanSession::post(int number) const {
  for (;;) {
    const SemResult result = post_semaphore(semid, number);
    if (result == SemResult::kDone) return true;
    if (result == SemResult::kGone) return false;
    if (number == kSemScaledLine) return true;
    MutexLock lock(dev.m_ka);
    if (stopping()) return false;
    dev.m_wake.WaitFor(lock, kFullSemaphoreWait);
  }
}

// Who asks for a stop does so before the set is removed.
bool ScanSession::announce(int number) const {
  if (post(number)) return true;
  if (!stopping()) LogToSystem("Sem post fail!\n");
  return false;
}

void ScanSession::fail(std::uint32_t status) const {
  if (status != IF_ERR_STS_NONE) dev.SetIfErrorStatus(status);
  dev.remove_set();
}

WorkerScope::WorkerScope(const CTwainImageIF& dev) : m_before(std::exchange(worker_of, &dev)) {}
WorkerScope::~WorkerScope() {
  worker_of = m_before;
}
bool WorkerScope::is_worker_of(const CTwainImageIF& dev) {
  return worker_of == &dev;
}

}  // namespace vox
