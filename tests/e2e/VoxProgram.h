// The vox program as a child process: what it was told, what it said, how it ended.
#pragma once

#include <chrono>
#include <map>
#include <string>
#include <vector>

#include <sys/resource.h>
#include <sys/types.h>

#include "tests/unit/cli/ReadBack.h"

namespace vox::cli::test {

struct Outcome {
  int status = -1;  // exit status; -1: ended by a signal or not at all
  std::string out, err;
  std::chrono::milliseconds took{0};
};

// VoxProgram runs in a folder of its own, which is its current folder and its TMPDIR in one, so
// that whatever it leaves behind is seen.
class VoxProgram {
 public:
  // Arguments are split at blanks. Output is read when Wait is called; it must fit into memory.
  Outcome Run(const std::string& arguments);

  // Limit sets both limits of a resource (RLIMIT_...) for programs that are started from now on; a
  // file that grows too large is an error of the write and no signal.
  void Limit(int resource, rlimit limit) { limits_[resource] = limit; }
  void Unlimit() { limits_.clear(); }

  void Start(const std::string& arguments);
  // StartCommand runs another program the same way: its name, looked up in PATH, and its arguments.
  void StartCommand(std::vector<std::string> words);
  void Signal(int signal) const;
  bool IsRunning() const;
  Outcome Wait();

  // WaitForLeaf waits until a file whose name begins so lies in the folder; false after 10 s.
  bool WaitForLeaf(const std::string& beginning) const;

  // WaitForOutput waits until standard output holds the text; false after 60 s.
  bool WaitForOutput(const std::string& text) const;

  const TestFolder& Folder() const { return folder_; }
  std::string File(const std::string& leaf) const { return folder_.File(leaf); }

 private:
  TestFolder folder_, output_;
  std::map<int, rlimit> limits_;
  pid_t child_ = -1;
  std::chrono::steady_clock::time_point begun_;
};

}  // namespace vox::cli::test
