// NoMemory makes operator new fail while it lives: of the calling thread, all but the first
// `spared` calls; NoMemoryInNewThreads: every one of threads that start meanwhile. Linking
// NoMemory.cpp replaces the operators of the whole test program.
#pragma once

namespace vox::test {

class NoMemory {
 public:
  explicit NoMemory(int spared = 0);
  ~NoMemory();
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

}  // namespace vox::test
