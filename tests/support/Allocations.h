// The library's allocations as a test sees them: the n-th one fails, and the sizes asked for.
//
// A test program that uses this links with -Wl,--wrap=malloc,--wrap=calloc. Thread rule: each
// thread sees its own.
#pragma once

#include <cstddef>
#include <vector>

namespace vox::test {

// FailingAllocation lets `spared` calls of malloc, calloc and new (std::nothrow) pass and fails the
// one after them; later ones pass again. One at a time on a thread.
class FailingAllocation {
 public:
  explicit FailingAllocation(int spared);
  ~FailingAllocation();
  FailingAllocation(const FailingAllocation&) = delete;
  FailingAllocation& operator=(const FailingAllocation&) = delete;
  bool HasFailed() const;
};

// While it lives, the sizes of callocs are noted. One at a time on a thread.
class NotedSizes {
 public:
  NotedSizes();
  ~NotedSizes();
  NotedSizes(const NotedSizes&) = delete;
  NotedSizes& operator=(const NotedSizes&) = delete;
  const std::vector<std::size_t>& Get() const { return sizes_; }  // bytes, in the order asked for

 private:
  std::vector<std::size_t> sizes_;
};

}  // namespace vox::test
