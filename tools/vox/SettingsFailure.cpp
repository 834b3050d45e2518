#include "tools/vox/SettingsFailure.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <system_error>
#include <vector>

#include <grp.h>
#include <unistd.h>

namespace vox::cli {

namespace {

constexpr char kGroup[] = "scanner";  // who may change the shared settings

// Quoted gives the path as a shell reads it.
std::string Quoted(const std::string& path) {
  std::string quoted(1, '\'');
  for (const char c : CleanText(path))
    quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return quoted + "'";
}

std::string SettingsFolderOf(const std::string& path) {
  return Quoted(std::filesystem::path(path).parent_path().string());
}

bool IsInGroup() {
  const group* wanted = ::getgrnam(kGroup);
  if (wanted == nullptr) return false;
  if (::getegid() == wanted->gr_gid) return true;
  std::vector<gid_t> own(static_cast<std::size_t>(std::max(::getgroups(0, nullptr), 0)));
  const int count = ::getgroups(static_cast<int>(own.size()), own.data());
  own.resize(static_cast<std::size_t>(std::max(count, 0)));
  return std::find(own.begin(), own.end(), wanted->gr_gid) != own.end();
}

std::string MakeFolder(const std::string& path) {
  return std::string("sudo install -d -m 2775 -g ") + kGroup + " " + SettingsFolderOf(path);
}

std::string PermissionAdvice(Store store, const std::string& path) {
  if (store == Store::kUser)
    return "the file and its folder must be your own: see ls -ld " + SettingsFolderOf(path) + " " +
           Quoted(path);
  if (IsInGroup())
    return std::string("the group ") + kGroup +
           ", which you are in, must have it: " + MakeFolder(path) + ", sudo chgrp " + kGroup +
           " and chmod 664 for the file";
  return std::string("join the group ") + kGroup + " (sudo adduser $USER " + kGroup +
         ", then log in again)";
}

std::string MissingAdvice(Store store, const std::string& path) {
  if (store == Store::kShared) return "make its folder: " + MakeFolder(path);
  return path.empty() ? "you have no home folder: set HOME, or XDG_CONFIG_HOME to a folder"
                      : "make its folder: mkdir -p " + SettingsFolderOf(path);
}

std::string Advice(Store store, const std::string& path, int error) {
  switch (error) {
    case EACCES:
    case EPERM:
      return PermissionAdvice(store, path);
    case EROFS:
      return "its file system is read-only: mount it writable";
    case ENOSPC:
      return "free some space there, see df " + SettingsFolderOf(path);
    case EDQUOT:
      return "your quota there is used up: free some space, see quota";
    case EFBIG:
      return "there is more to keep than such a file may hold: remove devices that are not needed";
    case ENOENT:
      return MissingAdvice(store, path);
    case ENOTDIR:
      return "a part of its path is no folder: move that away";
    case EINVAL:
    case EISDIR:
    case ELOOP:
      return "what bears that name is no file: move it away";
    case ETIMEDOUT:
      return "another program holds its lock; try again when that has ended";
    case ENOMEM:
      return "close other programs and try again";
    default:
      return "look at the system's log, and try again";
  }
}

ExitStatus StatusOf(int error) {
  if (error == EACCES || error == EPERM || error == EROFS) return ExitStatus::kNoPermission;
  return error == ENOMEM ? ExitStatus::kNoMemory : ExitStatus::kIoError;
}

}  // namespace

Failure SettingsFailure(Store store, const std::string& what, const std::string& path, int error) {
  const std::string file = path.empty() ? "your settings" : CleanText(path);
  return Failure(StatusOf(error), "cannot " + what + " " + file + ": " +
                                      std::generic_category().message(error) + "; " +
                                      Advice(store, path, error));
}

}  // namespace vox::cli
