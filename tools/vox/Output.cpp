#include "tools/vox/Output.h"

#include <cerrno>
#include <cstdio>

#include "tools/vox/CleanText.h"
#include "tools/vox/Failure.h"

namespace vox::cli {

void PrintOut(const std::string& text) {
  if (std::fputs(CleanLines(text).c_str(), stdout) < 0 || std::fflush(stdout) != 0)
    throw FileFailure("write", "standard output", errno);
}

void PrintError(const std::string& line) {
  std::fprintf(stderr, "vox: %s\n", CleanText(line).c_str());
}

}  // namespace vox::cli
