// What this process, or one that a test has forked, may do no longer.
//
// Thread rule: of the calling thread alone.
#pragma once

#include <linux/capability.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace vox::test {

// DropCapabilities takes all that a superuser has beyond other users: modes of files count, too.
inline bool DropCapabilities() {
  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  __user_cap_data_struct none[2] = {};
  return ::syscall(SYS_capset, &header, none) == 0;
}

}  // namespace vox::test
