// NoMemory makes every operator new of the calling thread fail while it lives. Linking NoMemory.cpp
// replaces the operators of the whole test program.
#pragma once

namespace vox::test {

class NoMemory {
 public:
  NoMemory();
  ~NoMemory();
  NoMemory(const NoMemory&) = delete;
  NoMemory& operator=(const NoMemory&) = delete;
};

}  // namespace vox::test
