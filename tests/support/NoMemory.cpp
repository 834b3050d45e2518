#include "tests/support/NoMemory.h"

#include <algorithm>
#include <cstdlib>
#include <new>

namespace vox::test {
namespace {

thread_local bool none_left = false;

}  // namespace

NoMemory::NoMemory() {
  none_left = true;
}
NoMemory::~NoMemory() {
  none_left = false;
}

namespace {

void* Memory(std::size_t size) {
  void* const block = none_left ? nullptr : std::malloc(std::max<std::size_t>(size, 1));
  if (block == nullptr) throw std::bad_alloc();
  return block;
}

}  // namespace
}  // namespace vox::test

void* operator new(std::size_t size) {
  return vox::test::Memory(size);
}
void operator delete(void* block) noexcept {
  std::free(block);
}
void operator delete(void* block, std::size_t) noexcept {
  std::free(block);
}
