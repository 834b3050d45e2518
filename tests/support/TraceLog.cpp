#include "tests/support/TraceLog.h"

#include <cstdarg>
#include <cstdio>
#include <optional>

#include "vox/platform/Mutex.h"

namespace vox::test {
namespace {

Mutex mutex;
std::optional<std::vector<std::string>> kept VOX_GUARDED_BY(mutex);  // none: nobody listens

}  // namespace

TraceLog::TraceLog() {
  MutexLock lock(mutex);
  kept.emplace();
}
TraceLog::~TraceLog() {
  MutexLock lock(mutex);
  kept.reset();
}
std::vector<std::string> TraceLog::Lines() const {
  MutexLock lock(mutex);
  return *kept;
}

// What the linker puts in the place of vox::DS_LogText.
extern "C" __attribute__((format(printf, 1, 2))) void __wrap__ZN3vox10DS_LogTextEPKcz(
    const char* format, ...) {
  char text[512];
  std::va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  MutexLock lock(mutex);
  if (kept) kept->emplace_back(text);
}

}  // namespace vox::test
