// RunProgram runs a program as a user does, and measures it; RunVox runs vox.
//
// Thread rule: the calling thread, whose network the program has; one at a time.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

namespace vox::bench {

struct ProgramRun {
  int status = -1;        // exit status; -1: ended otherwise, or not started
  std::size_t lines = 0;  // on standard output
  double seconds = 0;     // from the start of the process to its end
  double cpu_seconds = 0;
  std::chrono::steady_clock::time_point end;
};

// The first word is the program, looked up in PATH; what it writes goes by way of the file `out`.
ProgramRun RunProgram(const std::vector<std::string>& words, const std::string& out);

// `verb` is its one argument.
ProgramRun RunVox(const std::string& verb, const std::string& out);

}  // namespace vox::bench
