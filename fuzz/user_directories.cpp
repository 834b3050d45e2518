// The file that says where the user's folders lie. Property: a folder that is found is an absolute
// path without NUL or slashes at its end; written down as an entry it is found again; and lines
// that are no entries, before or after, change nothing.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "vox/platform/UserDirectories.h"

namespace {

constexpr std::string_view kName = "XDG_DOCUMENTS_DIR";

void Expect(bool holds) {
  if (!holds) std::abort();
}

std::string EntryOf(const std::string& path) {
  std::string entry = std::string(kName) + "=\"";
  for (const char character : path) {
    if (character == '"' || character == '\\') entry += '\\';
    entry += character;
  }
  return entry + "\"";
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  const auto path = vox::UserDirectory(text, kName, "/home/me");
  Expect(vox::UserDirectory("# remark\n" + text + "\nXDG_MUSIC_DIR=\"/m\"", kName, "/home/me") ==
         path);
  if (!path) return 0;
  Expect(path->starts_with('/') && path->find('\0') == std::string::npos);
  Expect(path->size() == 1 || !path->ends_with('/'));
  Expect(vox::UserDirectory(EntryOf(*path), kName, "/home/me") == path);
  return 0;
}
