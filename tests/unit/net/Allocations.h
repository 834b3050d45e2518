// Makes the n-th allocation of the library fail on the calling thread.
#pragma once

namespace vox::test {

// FailingAllocation lets `spared` calls of malloc and calloc pass and fails the one after them;
// later ones pass again. One at a time on a thread.
class FailingAllocation {
 public:
  explicit FailingAllocation(int spared);
  ~FailingAllocation();
  FailingAllocation(const FailingAllocation&) = delete;
  FailingAllocation& operator=(const FailingAllocation&) = delete;
  bool HasFailed() const;
};

}  // namespace vox::test
