// NoDescriptors lets the process have no further file descriptor while it lives.
#pragma once

#include <gtest/gtest.h>
#include <sys/resource.h>

namespace vox::test {

class NoDescriptors {
 public:
  NoDescriptors() {
    EXPECT_EQ(::getrlimit(RLIMIT_NOFILE, &was_), 0);
    const rlimit none{0, was_.rlim_max};
    EXPECT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
  }
  ~NoDescriptors() { ::setrlimit(RLIMIT_NOFILE, &was_); }
  NoDescriptors(const NoDescriptors&) = delete;
  NoDescriptors& operator=(const NoDescriptors&) = delete;

 private:
  rlimit was_{};
};

}  // namespace vox::test
