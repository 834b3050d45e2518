// The library's allocations as a test sees them: how much was asked for, and failing on request.
// calloc is led here by the linker (see CMakeLists.txt), and new (std::nothrow) replaced.
//
// Thread rule: for tests of one thread.
#pragma once

#include <cstddef>
#include <vector>

namespace vox::test {

// While it lives, `good` allocations succeed and the others fail.
class ShortMemory {
 public:
  explicit ShortMemory(int good);
  ~ShortMemory();
  ShortMemory(const ShortMemory&) = delete;
  ShortMemory& operator=(const ShortMemory&) = delete;
};

// While it lives, the sizes of callocs are noted.
class NotedSizes {
 public:
  NotedSizes();
  ~NotedSizes();
  NotedSizes(const NotedSizes&) = delete;
  NotedSizes& operator=(const NotedSizes&) = delete;
  const std::vector<std::size_t>& Get() const { return m_sizes; }  // bytes, in the order asked for

 private:
  std::vector<std::size_t> m_sizes;
};

}  // namespace vox::test
