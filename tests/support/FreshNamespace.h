// Work of a test in a child process that has kernel namespaces of its own. Where the machine does
// not permit them, the test says so:
//
//   const int code = InFreshNamespace(CLONE_NEWIPC, [] { return Works() ? 0 : 1; });
//   SKIP_IF_NOT_PERMITTED(code);
//   EXPECT_EQ(code, 0);
#pragma once

#include <cstdlib>
#include <fstream>
#include <string>

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

namespace vox::test {

inline constexpr int kNotPermitted = 77;  // exit code

inline bool WriteFile(const char* path, const std::string& text) {
  std::ofstream file(path);
  file << text << std::flush;
  return file.good();
}

// Unshare leaves the namespaces of the kinds given for fresh ones, in a user namespace whose root
// the caller becomes where that is needed.
inline bool Unshare(int kinds) {
  if (::unshare(kinds) == 0) return true;
  const std::string user = std::to_string(::getuid()), group = std::to_string(::getgid());
  return ::unshare(CLONE_NEWUSER | kinds) == 0 && WriteFile("/proc/self/setgroups", "deny") &&
         WriteFile("/proc/self/uid_map", "0 " + user + " 1") &&
         WriteFile("/proc/self/gid_map", "0 " + group + " 1");
}

// InFreshNamespace gives the exit code that the work returns, kNotPermitted, or -1.
template <typename Work>
int InFreshNamespace(int kinds, Work work) {
  const pid_t child = ::fork();
  if (child == 0) std::_Exit(Unshare(kinds) ? work() : kNotPermitted);
  int status = 0;
  if (child < 0 || ::waitpid(child, &status, 0) != child || !WIFEXITED(status)) return -1;
  return WEXITSTATUS(status);
}

#define SKIP_IF_NOT_PERMITTED(code)       \
  if ((code) == vox::test::kNotPermitted) \
  GTEST_SKIP() << "this machine does not permit these namespaces or rights"

}  // namespace vox::test
