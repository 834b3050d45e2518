#include "tests/support/Allocations.h"

#include <new>

namespace {

constexpr int kOff = -1;
thread_local int spared_left = kOff;
thread_local bool has_failed = false;
thread_local std::vector<std::size_t>* noted = nullptr;

bool IsToFail() {
  if (spared_left == kOff || has_failed) return false;
  if (spared_left-- > 0) return false;
  has_failed = true;
  return true;
}

}  // namespace

// The linker sends the library's calls here (--wrap).
extern "C" {
void* __real_malloc(std::size_t size);
void* __real_calloc(std::size_t count, std::size_t size);
void* __wrap_malloc(std::size_t size);
void* __wrap_calloc(std::size_t count, std::size_t size);

void* __wrap_malloc(std::size_t size) {
  return IsToFail() ? nullptr : __real_malloc(size);
}
void* __wrap_calloc(std::size_t count, std::size_t size) {
  if (noted) noted->push_back(count * size);
  return IsToFail() ? nullptr : __real_calloc(count, size);
}
}

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  try {
    return IsToFail() ? nullptr : ::operator new(size);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

namespace vox::test {

FailingAllocation::FailingAllocation(int spared) {
  spared_left = spared;
  has_failed = false;
}
FailingAllocation::~FailingAllocation() {
  spared_left = kOff;
  has_failed = false;
}
bool FailingAllocation::HasFailed() const {
  return has_failed;
}

NotedSizes::NotedSizes() {
  noted = &sizes_;
}
NotedSizes::~NotedSizes() {
  noted = nullptr;
}

}  // namespace vox::test
