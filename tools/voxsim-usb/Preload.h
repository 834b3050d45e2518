// A process takes part in an emulated bus when umockdev's library was preloaded into it.
//
// Thread rule: before any thread starts.
#pragma once

#include <string>

namespace vox {

// Preload runs this program once more with the library, which what it starts has then too. Returns:
// an empty text where the library is there, or why it cannot be.
std::string Preload(char** argv);

}  // namespace vox
