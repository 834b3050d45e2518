#include "tools/vox/Output.h"

#include <cerrno>
#include <cstdio>

#include "tools/vox/Failure.h"

namespace vox::cli {

void PrintOut(const std::string& text) {
  if (std::fputs(text.c_str(), stdout) < 0 || std::fflush(stdout) != 0)
    throw FileFailure("write", "standard output", errno);
}

}  // namespace vox::cli
