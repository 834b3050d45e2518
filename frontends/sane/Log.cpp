#include "frontends/sane/Log.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <string>

#include "tools/vox/CleanText.h"

namespace vox::sane {

namespace {

constexpr std::size_t kLongest = 512;  // bytes of a line

std::atomic<int> wanted{0};

}  // namespace

void OpenLog() {
  const char* level = std::getenv("SANE_DEBUG_VOX");
  wanted = level != nullptr ? static_cast<int>(std::strtol(level, nullptr, 10)) : 0;
}

void Log(int level, const char* format, ...) {
  if (level > wanted) return;
  char text[kLongest];
  std::va_list values;
  va_start(values, format);
  std::vsnprintf(text, sizeof text, format, values);
  va_end(values);
  try {
    std::fprintf(stderr, "[vox] %s\n", cli::CleanText(text).c_str());
  } catch (const std::bad_alloc&) {
    for (char* at = text; *at != '\0'; ++at) {
      if (*at < ' ' || *at > '~') *at = '?';
    }
    std::fprintf(stderr, "[vox] %s\n", text);
  }
}

}  // namespace vox::sane
