#include "vox/platform/Resources.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <string_view>
#include <system_error>

#include <dlfcn.h>

namespace vox {
namespace {

namespace fs = std::filesystem;

// The file that holds this code: libvox, or the program that it was linked into.
fs::path OwnFile() {
  std::error_code failed;
  Dl_info info{};
  const auto* here = reinterpret_cast<const void*>(&ResourcePath);
  if (::dladdr(here, &info) != 0 && info.dli_fname != nullptr &&
      std::string_view(info.dli_fname) != program_invocation_name) {
    fs::path library = fs::canonical(info.dli_fname, failed);
    if (!failed) return library;
  }
  // A program's name may have come from a search in PATH, so it says little.
  return fs::read_symlink("/proc/self/exe", failed);
}

std::string FolderNearLibrary() {
  static const fs::path own = OwnFile();
  std::error_code ignored;
  for (fs::path above = own; above.has_relative_path();) {
    above = above.parent_path();
    const fs::path folder = above / "share" / "vox";
    if (fs::is_directory(folder, ignored)) return folder.string();
  }
  return {};
}

std::string ResourceFolder() {
  const char* named = ::secure_getenv("VOX_RESOURCES");
  if (named != nullptr && *named != '\0') return named;
  const std::string near = FolderNearLibrary();
  return near.empty() ? VOX_INSTALLED_RESOURCES : near;
}

}  // namespace

std::string ResourcePath(const std::string& name, const std::string& type) {
  return ResourceFolder() + "/" + name + "." + type;
}

}  // namespace vox
