// The TWAIN trace family. DS_LogText is the library's own trace hook: everything that the library
// would trace passes through it, and it discards all of it.
//
// Thread rule: any thread.
#pragma once

#include "vox/platform/Export.h"

namespace vox {

// DS_LogText accepts a printf format and its arguments and discards them; nothing is formatted.
VOX_EXPORT void DS_LogText(const char* format, ...) __attribute__((format(printf, 1, 2)));

}  // namespace vox
