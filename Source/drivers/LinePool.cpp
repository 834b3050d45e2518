#include "vox/drivers/LinePool.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

#include "vox/drivers/SessionSystem.h"

namespace vox {

LineBuffer new_line(std::size_t size) {
  void* line = CurrentSessionSystem().line_memory(std::max<std::size_t>(size, 1));
  if (line == nullptr) throw std::bad_alloc();
  return LineBuffer(static_cast<unsigned char*>(line));
}

LineBuffer cleared_line(std::size_t size) {
  LineBuffer line = new_line(size);
  std::memset(line.get(), 0, size);
  return line;
}

LinePool::LinePool(std::size_t room, std::uint32_t lines)
    : m_room(std::max(room, sizeof(KEPT))), m_left(lines) {}

// All that was given is taken over at once, so that no other thread ever unlinks a line.
LineBuffer LinePool::take() {
  const std::uint32_t left = m_left.load(std::memory_order_relaxed);
  if (left > 0) m_left.store(left - 1, std::memory_order_relaxed);
  if (m_mine == nullptr) m_mine = m_given.exchange(nullptr, std::memory_order_acquire);
  LineBuffer line;
  if (m_mine != nullptr) {
    KEPT* const kept = std::exchange(m_mine, m_mine->next);
    line.reset(reinterpret_cast<unsigned char*>(kept));
  }
  if (left <= 1) clear();
  return line ? std::move(line) : new_line(m_room);
}

void LinePool::give(LineBuffer line) {
  if (!line || m_left.load(std::memory_order_relaxed) == 0) return;
  KEPT* const kept = ::new (line.release()) KEPT{m_given.load(std::memory_order_relaxed)};
  while (!m_given.compare_exchange_weak(kept->next, kept, std::memory_order_release,
                                        std::memory_order_relaxed)) {
  }
}

void LinePool::clear() {
  free_all(std::exchange(m_mine, nullptr));
  free_all(m_given.exchange(nullptr, std::memory_order_acquire));
}

void LinePool::free_all(KEPT* first) {
  while (first != nullptr) std::free(std::exchange(first, first->next));
}

}  // namespace vox
