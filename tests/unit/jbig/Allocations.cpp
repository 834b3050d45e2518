#include "tests/unit/jbig/Allocations.h"

#include <new>

namespace {

int good_allocations = -1;  // until the next ones fail; -1: none fails
std::vector<std::size_t>* noted = nullptr;

bool Fails() {
  if (good_allocations > 0)
    --good_allocations;
  else if (good_allocations == 0)
    return true;
  return false;
}

}  // namespace

extern "C" void* __real_calloc(std::size_t count, std::size_t size);
extern "C" void* __wrap_calloc(std::size_t count, std::size_t size) {
  if (noted) noted->push_back(count * size);
  return Fails() ? nullptr : __real_calloc(count, size);
}

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  try {
    return Fails() ? nullptr : ::operator new(size);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

namespace vox::test {

ShortMemory::ShortMemory(int good) {
  good_allocations = good;
}

ShortMemory::~ShortMemory() {
  good_allocations = -1;
}

NotedSizes::NotedSizes() {
  noted = &m_sizes;
}

NotedSizes::~NotedSizes() {
  noted = nullptr;
}

}  // namespace vox::test
