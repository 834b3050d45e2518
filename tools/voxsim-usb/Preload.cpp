#include "tools/voxsim-usb/Preload.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <dlfcn.h>
#include <unistd.h>

namespace vox {
namespace {

constexpr char kPreload[] = "LD_PRELOAD";
constexpr char kMark[] = "VOXSIM_USB_PRELOADED";  // so that it is tried once

bool IsThere() {
  return ::dlopen("libumockdev-preload.so.0", RTLD_LAZY | RTLD_NOLOAD) != nullptr;
}

}  // namespace

std::string Preload(char** argv) {
  const bool tried = std::getenv(kMark) != nullptr;
  ::unsetenv(kMark);
  if (IsThere()) return {};
  if (tried) return "umockdev's library cannot be preloaded; install umockdev";
  const char* before = std::getenv(kPreload);
  const std::string libraries = std::string(before != nullptr ? before : "") +
                                (before != nullptr ? ":" : "") + VOXSIM_PRELOAD;
  ::setenv(kPreload, libraries.c_str(), 1);
  ::setenv(kMark, "1", 1);
  ::execv("/proc/self/exe", argv);
  return std::string("cannot run itself again: ") + std::strerror(errno);
}

}  // namespace vox
