#include "tests/support/NoMemory.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <limits>
#include <new>

namespace vox::test {
namespace {

constexpr int kEndless = std::numeric_limits<int>::max();

std::atomic<int> left_in_new_threads = kEndless;
thread_local bool has_failed = false;
thread_local int calls_left = left_in_new_threads;  // calls that do not fail; kEndless: all

}  // namespace

NoMemory::NoMemory(int spared) {
  has_failed = false;
  calls_left = spared;
}
NoMemory::~NoMemory() {
  calls_left = kEndless;
}
bool NoMemory::HasFailed() const {
  return has_failed;
}

NoMemoryInNewThreads::NoMemoryInNewThreads() {
  calls_left = kEndless;  // this thread is none of them
  left_in_new_threads = 0;
}
NoMemoryInNewThreads::~NoMemoryInNewThreads() {
  left_in_new_threads = kEndless;
}

namespace {

void* MemoryOrNone(std::size_t size) {
  const bool spared = calls_left > 0;
  if (spared && calls_left != kEndless) --calls_left;
  void* const block = spared ? std::malloc(std::max<std::size_t>(size, 1)) : nullptr;
  has_failed = has_failed || block == nullptr;
  if (block == nullptr) throw std::bad_alloc();
  return block;
}

}  // namespace
}  // namespace vox::test

void* operator new(std::size_t size) {
  return vox::test::MemoryOrNone(size);
}
void operator delete(void* block) noexcept {
  std::free(block);
}
void operator delete(void* block, std::size_t) noexcept {
  std::free(block);
}
