#include "tests/e2e/ServerProcess.h"

#include <csignal>
#include <cstdio>
#include <stdexcept>
#include <utility>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "vox/platform/FileDescriptor.h"

extern char** environ;

namespace vox::test {

ServerProcess::ServerProcess() {
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
  FileDescriptor in(ends[1]);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
  char program[] = VOX_JOBD_PROGRAM, option[] = "--device-port", value[] = "0";
  char* arguments[] = {program, option, value, nullptr};
  const int failed = ::posix_spawn(&process_, program, &actions, nullptr, arguments, environ);
  posix_spawn_file_actions_destroy(&actions);
  in.Reset();
  std::FILE* out = ::fdopen(ends[0], "r");
  int port = 0;
  const bool printed = failed == 0 && std::fscanf(out, "device port %d", &port) == 1;
  std::fclose(out);
  if (!printed) throw std::runtime_error("the job server does not start");
  device_port_ = static_cast<std::uint16_t>(port);
}

void ServerProcess::Kill() {
  if (process_ <= 0) return;
  ::kill(process_, SIGKILL);
  ::waitpid(std::exchange(process_, -1), nullptr, 0);
}

}  // namespace vox::test
