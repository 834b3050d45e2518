#include "vox/platform/SystemLog.h"

#include <cstdarg>
#include <cstdio>
#include <utility>

#include <syslog.h>

#include "vox/platform/Mutex.h"

namespace vox {
namespace {

Mutex sink_mutex;

SystemLogSink& Sink() VOX_REQUIRES(sink_mutex) {
  static SystemLogSink sink;
  return sink;
}

}  // namespace

void LogToSystem(const char* format, ...) {
  char line[1024];
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
