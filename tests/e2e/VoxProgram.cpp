#include "tests/e2e/VoxProgram.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <iterator>
#include <sstream>
#include <thread>
#include <utility>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace vox::cli::test {

namespace {

using Clock = std::chrono::steady_clock;

std::vector<std::string> Words(const std::string& line) {
  std::istringstream in(line);
  return {std::istream_iterator<std::string>(in), {}};
}

void Redirect(const std::string& path, int descriptor) {
  const int fd = ::open(path.c_str(), O_CREAT | O_TRUNC | O_WRONLY, 0600);
  ::dup2(fd, descriptor);
  ::close(fd);
}

// Empty for a program that was ended before it was one.
std::string Text(const std::string& path) {
  if (::access(path.c_str(), F_OK) != 0) return {};
  const Bytes bytes = ReadFile(path);
  return {bytes.begin(), bytes.end()};
}

}  // namespace

void VoxProgram::Start(const std::string& arguments) {
  std::vector<std::string> words = Words(arguments);
  words.insert(words.begin(), VOX_PROGRAM);
  StartCommand(std::move(words));
}

void VoxProgram::StartCommand(std::vector<std::string> words) {
  std::vector<char*> pointers;
  for (std::string& word : words) pointers.push_back(word.data());
  pointers.push_back(nullptr);
  begun_ = Clock::now();
  child_ = ::fork();
  if (child_ != 0) return;
  ::setenv("TMPDIR", folder_.Path().c_str(), 1);
  if (::chdir(folder_.Path().c_str()) != 0) ::_exit(126);
  Redirect(output_.File("out"), STDOUT_FILENO);
  Redirect(output_.File("err"), STDERR_FILENO);
  if (!limits_.empty()) ::signal(SIGXFSZ, SIG_IGN);
  for (const auto& [resource, limit] : limits_)
    ::setrlimit(static_cast<__rlimit_resource_t>(resource), &limit);
  ::execvp(pointers[0], pointers.data());
  ::_exit(127);
}

void VoxProgram::Signal(int signal) const {
  ::kill(child_, signal);
}

bool VoxProgram::IsRunning() const {
  siginfo_t info{};
  return ::waitid(P_PID, static_cast<id_t>(child_), &info, WEXITED | WNOHANG | WNOWAIT) == 0 &&
         info.si_pid == 0;
}

Outcome VoxProgram::Wait() {
  int status = 0;
  while (::waitpid(child_, &status, 0) < 0 && errno == EINTR) {
  }
  Outcome outcome;
  outcome.took = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begun_);
  if (WIFEXITED(status)) outcome.status = WEXITSTATUS(status);
  outcome.out = Text(output_.File("out"));
  outcome.err = Text(output_.File("err"));
  return outcome;
}

Outcome VoxProgram::Run(const std::string& arguments) {
  Start(arguments);
  return Wait();
}

bool VoxProgram::WaitForLeaf(const std::string& beginning) const {
  const auto deadline = Clock::now() + std::chrono::seconds(10);
  while (Clock::now() < deadline) {
    for (const std::string& leaf : folder_.Leaves()) {
      if (leaf.rfind(beginning, 0) == 0) return true;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return false;
}

bool VoxProgram::WaitForOutput(const std::string& text) const {
  const auto deadline = Clock::now() + std::chrono::seconds(60);
  while (Clock::now() < deadline) {
    if (Text(output_.File("out")).find(text) != std::string::npos) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return false;
}

}  // namespace vox::cli::test
