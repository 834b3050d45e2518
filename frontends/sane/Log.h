// Log writes to standard error when SANE_DEBUG_VOX asks for it, and nothing otherwise.
//
// Levels: 1 what failed, 2 what was done, 3 each step of a page. It never throws, so that a handler
// of an exception may call it; without memory all but ASCII becomes a '?'.
// Thread rule: any thread.
#pragma once

namespace vox::sane {

// OpenLog reads SANE_DEBUG_VOX: the highest level that is written; 0 or none is nothing.
void OpenLog();

void Log(int level, const char* format, ...) __attribute__((format(printf, 2, 3)));

}  // namespace vox::sane
