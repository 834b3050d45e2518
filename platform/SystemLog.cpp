#include "vox/platform/SystemLog.h"

#include <climits>
#include <cstdarg>
#include <cstdio>
#include <utility>

#include <syslog.h>

#include "vox/platform/Mutex.h"

namespace vox {
namespace {

// Room for two of the longest paths and a sentence: a line without the end of its path says little.
constexpr std::size_t kLongestLine = 2 * PATH_MAX + 1023;  // bytes

Mutex sink_mutex;

SystemLogSink& Sink() VOX_REQUIRES(sink_mutex) {
  static SystemLogSink sink;
  return sink;
}

}  // namespace

void LogToSystem(const char* format, ...) {
  char line[kLongestLine + 1];
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(line, sizeof line, format, arguments);
  va_end(arguments);

  MutexLock lock(sink_mutex);
  if (Sink()) {
    Sink()(line);
  } else {
    ::syslog(LOG_ERR, "%s", line);
  }
}

SystemLogSink SetSystemLogSink(SystemLogSink sink) {
  MutexLock lock(sink_mutex);
  return std::exchange(Sink(), std::move(sink));
}

}  // namespace vox
