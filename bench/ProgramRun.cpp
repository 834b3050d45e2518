#include "bench/ProgramRun.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace vox::bench {
namespace {

using Clock = std::chrono::steady_clock;

double Seconds(const timeval& time) {
  return static_cast<double>(time.tv_sec) + 1e-6 * static_cast<double>(time.tv_usec);
}

pid_t Start(std::vector<std::string> words, const std::string& out) {
  posix_spawn_file_actions_t files;
  ::posix_spawn_file_actions_init(&files);
  ::posix_spawn_file_actions_addopen(&files, STDOUT_FILENO, out.c_str(),
                                     O_WRONLY | O_CREAT | O_TRUNC, 0600);
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  pid_t child = -1;
  const int error =
      ::posix_spawnp(&child, arguments[0], &files, nullptr, arguments.data(), environ);
  ::posix_spawn_file_actions_destroy(&files);
  return error == 0 ? child : -1;
}

std::size_t Lines(const std::string& path) {
  std::ifstream text(path);
  return static_cast<std::size_t>(std::count(std::istreambuf_iterator<char>(text), {}, '\n'));
}

}  // namespace

ProgramRun RunProgram(const std::vector<std::string>& words, const std::string& out) {
  ProgramRun run;
  const Clock::time_point begun = Clock::now();
  const pid_t child = Start(words, out);
  int status = 0;
  rusage usage{};
  if (child < 0 || ::wait4(child, &status, 0, &usage) != child) return run;
  run.end = Clock::now();
  run.seconds = std::chrono::duration<double>(run.end - begun).count();
  run.cpu_seconds = Seconds(usage.ru_utime) + Seconds(usage.ru_stime);
  run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  run.lines = Lines(out);
  return run;
}

ProgramRun RunVox(const std::string& verb, const std::string& out) {
  return RunProgram({VOX_PROGRAM, verb}, out);
}

}  // namespace vox::bench
