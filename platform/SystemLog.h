// The system log: hard failures of the library go to syslog(3), through a sink that tests can
// replace.
//
// Thread rule: LogToSystem may be called from any thread; SetSystemLogSink before threads start.
#pragma once

#include <functional>
#include <string>

#include "vox/platform/Export.h"

namespace vox {

using SystemLogSink = std::function<void(const std::string& line)>;

// LogToSystem formats one line (printf rules; the format is always a literal, device text only an
// argument) and passes it to the sink. A line is cut at 9,215 bytes, which two of the longest paths
// do not fill.
VOX_EXPORT void LogToSystem(const char* format, ...) __attribute__((format(printf, 1, 2)));

// SetSystemLogSink replaces the sink and returns the one that was there; an empty sink stands for
// syslog(3).
VOX_EXPORT SystemLogSink SetSystemLogSink(SystemLogSink sink);

}  // namespace vox
