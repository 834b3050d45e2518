// The number of descriptors that a process may have open.
//
// Thread rule: any thread; meant for the beginning of a program. No library call changes limits.
#pragma once

#include <sys/resource.h>

namespace vox {

// RaiseDescriptorLimit raises this process's soft limit to the hard one: programs that speak to
// many devices at once have use for more than the usual 1,024, or than a shell's 256. Programs that
// it starts get the limit, too. Where that fails the limit stays.
inline void RaiseDescriptorLimit() {
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
  limit.rlim_cur = limit.rlim_max;
  ::setrlimit(RLIMIT_NOFILE, &limit);
}

}  // namespace vox
