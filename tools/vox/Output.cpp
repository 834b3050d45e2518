#include "tools/vox/Output.h"

#include <cerrno>
#include <cstdio>

#include "tools/vox/CleanText.h"
#include "tools/vox/Failure.h"

namespace vox::cli {

namespace {

std::FILE* kept_output = nullptr;  // null: the C library's own

}  // namespace

void KeepStandardOutput() {
  std::FILE* const nowhere = std::fopen("/dev/null", "we");
  if (nowhere == nullptr) return;
  kept_output = stdout;
  stdout = nowhere;
}

void PrintOut(const std::string& text) {
  std::FILE* const out = kept_output != nullptr ? kept_output : stdout;
  if (std::fputs(CleanLines(text).c_str(), out) < 0 || std::fflush(out) != 0)
    throw FileFailure("write", "standard output", errno);
}

void PrintError(const std::string& line) {
  std::fprintf(stderr, "vox: %s\n", CleanText(line).c_str());
}

}  // namespace vox::cli
