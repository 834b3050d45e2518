// Standard output of vox.
//
// Thread rule: the main thread.
#pragma once

#include <string>

namespace vox::cli {

// PrintOut writes a text to standard output and flushes it. Throws Failure.
void PrintOut(const std::string& text);

}  // namespace vox::cli
