#include "vox/platform/Folders.h"

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string_view>
#include <system_error>
#include <vector>

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include "vox/platform/FileDescriptor.h"
#include "vox/platform/FileReplacement.h"
#include "vox/platform/UserDirectories.h"

namespace vox {
namespace {

constexpr mode_t kOwnerOnly = 0700;
constexpr std::size_t kLongestUserDirs = 64u << 10;  // bytes; a real one has some hundred
constexpr std::size_t kLongestUserRecord = 16u << 10;

std::string Variable(const char* name) {
  const char* value = ::secure_getenv(name);
  return value != nullptr ? value : "";
}

// A variable that holds a folder; relative ones are to be ignored (XDG base directories).
std::string FolderVariable(const char* name) {
  const std::string value = Variable(name);
  return value.starts_with('/') ? WithoutSlashes(value) : std::string();
}

std::string HomeOfUserDatabase() {
  std::vector<char> text(kLongestUserRecord);
  passwd record{};
  passwd* found = nullptr;
  if (::getpwuid_r(::geteuid(), &record, text.data(), text.size(), &found) != 0 ||
      found == nullptr || record.pw_dir == nullptr || record.pw_dir[0] != '/') {
    return {};
  }
  return WithoutSlashes(record.pw_dir);
}

std::string Below(const std::string& home, const char* path) {
  return home == "/" ? path : home + path;
}

// The folder that the variable names, else the one below the home.
std::string UserFolder(const char* variable, const char* below_home) {
  std::string folder = FolderVariable(variable);
  if (!folder.empty()) return folder;
  const std::string home = UserHome();
  return home.empty() ? home : Below(home, below_home);
}

std::optional<std::string> DocumentsFolder() {
  const std::string home = UserHome();
  if (home.empty()) return std::nullopt;
  std::vector<std::uint8_t> bytes;
  ReadWholeFile(UserConfigFolder() + "/user-dirs.dirs", kLongestUserDirs, &bytes, nullptr);
  const std::string text(bytes.begin(), bytes.end());
  const auto chosen = UserDirectory(text, "XDG_DOCUMENTS_DIR", home);
  return chosen ? *chosen : Below(home, "/Documents");
}

// All questions go to the open folder, not to its name, so that nobody can swap it in between.
// A folder of the user's own with a wider mode (restored from a backup, say) is narrowed.
bool IsPrivateFolder(const std::string& path) {
  const FileDescriptor folder(
      ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  struct stat status {};
  if (!folder || ::fstat(folder.Get(), &status) != 0) return false;
  if (status.st_uid != ::geteuid()) return false;
  return (status.st_mode & 07777) == kOwnerOnly || ::fchmod(folder.Get(), kOwnerOnly) == 0;
}

// Where the user's own folder lies in `place`; empty for a place that is none.
std::string TemporaryPathIn(const std::string& place) {
  if (place.empty() || place.front() != '/') return {};
  return (std::filesystem::path(place) / ("com.veltronix.vox-" + std::to_string(::geteuid())))
      .string();
}

std::string PrivateFolderIn(const std::string& place) {
  std::string path = TemporaryPathIn(place);
  if (path.empty()) return path;
  // A name that exists already is judged like a new one.
  ::mkdir(path.c_str(), kOwnerOnly);
  return IsPrivateFolder(path) ? path : std::string();
}

std::optional<std::string> TemporaryFolderIfMade() {
  for (const std::string& place : {Variable("TMPDIR"), MachinePath("/var/tmp")}) {
    std::string path = TemporaryPathIn(place);
    if (!path.empty() && IsPrivateFolder(path)) return path;
  }
  return std::nullopt;
}

}  // namespace

std::string MachinePath(const std::string& absolute) {
  std::string root = Variable("VOX_ROOT");
  while (!root.empty() && root.back() == '/') root.pop_back();
  return root + absolute;
}

std::string UserTemporaryFolder() {
  std::string folder = PrivateFolderIn(Variable("TMPDIR"));
  if (!folder.empty()) return folder;
  const std::string place = MachinePath("/var/tmp");
  std::error_code ignored;  // a place that cannot be made shows when the folder is made
  std::filesystem::create_directories(place, ignored);
  return PrivateFolderIn(place);
}

std::string UserHome() {
  const std::string home = FolderVariable("HOME");
  return home.empty() ? HomeOfUserDatabase() : home;
}

std::string UserConfigFolder() {
  return UserFolder("XDG_CONFIG_HOME", "/.config");
}

std::string UserDataFolder() {
  return UserFolder("XDG_DATA_HOME", "/.local/share");
}

std::optional<std::string> StandardFolder(FolderType type, FolderDomain domain) {
  const std::string_view name(type.name, sizeof type.name - 1);
  if (name == "pref" && domain == FolderDomain::LocalDomain) return MachinePath("/var/lib");
  if (name == "asup" && domain == FolderDomain::SystemDisk) return MachinePath("/usr/share");
  if (name == "pdoc" && domain == FolderDomain::UserDomain) return DocumentsFolder();
  if (name == "utmp" && domain == FolderDomain::UserDomain) return TemporaryFolderIfMade();
  return std::nullopt;
}

std::optional<std::string> FindFolder(FolderType type, FolderDomain domain) {
  auto path = StandardFolder(type, domain);
  std::error_code ignored;  // a folder that cannot be looked at is none for this user
  if (!path || !std::filesystem::is_directory(*path, ignored)) return std::nullopt;
  return path;
}

}  // namespace vox
