// NoMemory makes operator new fail while it lives: of the calling thread, all but the first
// `spared` calls; NoMemoryInNewThreads: every one of threads that start meanwhile. Linking
// NoMemory.cpp replaces the operators of the whole test program.
//
// Whether a call bears every shortage: the n-th allocation and all after it fail, for each n until
// the call needs no more.
//
//   EachShortage([&] { call(); }, [&](bool failed) { EXPECT_...; });
#pragma once

namespace vox::test {

class NoMemory {
 public:
  explicit NoMemory(int spared = 0);
  ~NoMemory();
  bool HasFailed() const;  // whether a call was made that failed
  NoMemory(const NoMemory&) = delete;
  NoMemory& operator=(const NoMemory&) = delete;
};

class NoMemoryInNewThreads {
 public:
  NoMemoryInNewThreads();
  ~NoMemoryInNewThreads();
  NoMemoryInNewThreads(const NoMemoryInNewThreads&) = delete;
  NoMemoryInNewThreads& operator=(const NoMemoryInNewThreads&) = delete;
};

// EachShortage runs `call` without memory after 0, 1, 2 ... allocations, and after each run `check`
// with memory, which is told whether any was missed; the last run missed none.
template <class Call, class Check>
void EachShortage(Call call, Check check) {
  for (int spared = 0, failed = 1; failed != 0; ++spared) {
    {
      const NoMemory none(spared);
      call();
      failed = none.HasFailed() ? 1 : 0;
    }
    check(failed != 0);
  }
}

}  // namespace vox::test
