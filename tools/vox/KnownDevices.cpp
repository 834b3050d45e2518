#include "tools/vox/KnownDevices.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <system_error>
#include <tuple>

#include "vox/UserPreferences.h"
#include "vox/platform/PropertyListFile.h"

namespace vox::cli {

namespace {

constexpr char kGroup[] = "scanner";  // who may change the shared settings

std::string Why(int error) {
  return std::generic_category().message(error);
}

std::string FolderOf(const std::string& path) {
  return std::filesystem::path(path).parent_path().string();
}

void ReportDamage(const std::string& path) {
  if (ReadDictionaryFile(path).state != FileState::Damaged) return;
  const KeptFile kept = KeepDamagedFile(path);
  const std::string which = "the settings in " + CleanText(path);
  if (kept.error == ENOENT) return;  // somebody mended it
  if (kept.error != 0) {
    Note(which + " are damaged and count as empty");
  } else if (kept.first) {
    Note(which + " were damaged and count as empty; they are kept as " + CleanText(kept.path));
  }
}

}  // namespace

void Note(const std::string& line) {
  std::fprintf(stderr, "vox: note: %s\n", line.c_str());
}

void NoteNoPings() {
  Note(
      "pings are not permitted here (see net.ipv4.ping_group_range); devices are asked over SNMP "
      "alone");
}

DevicesManager& OpenRegistry() {
  static const bool looked = [] {
    ReportDamage(UserPreferences::instance().pathToGlobalSettings());
    ReportDamage(UserPreferencesPath(kUserDomain));
    return true;
  }();
  static_cast<void>(looked);
  return DevicesManager::instance();
}

void BeforeSharedChange() {
  UserPreferences& preferences = UserPreferences::instance();
  const StoreOutcome outcome = preferences.globalSettingsOutcome();
  if (outcome.found == FileState::Unreadable)
    throw SharedFailure("read", outcome.path, outcome.error);
  if (outcome.found != FileState::Damaged) return;
  const KeptFile kept = preferences.keepDamagedGlobalSettings();
  if (kept.error != 0 && kept.error != ENOENT)
    throw SharedFailure("keep the damaged settings in", outcome.path, kept.error);
}

void AfterChange() {
  UserPreferences& preferences = UserPreferences::instance();
  const StoreOutcome outcome = preferences.lastOutcome();
  if (outcome.error == 0) return;
  if (outcome.path == preferences.pathToGlobalSettings())
    throw SharedFailure("write", outcome.path, outcome.error);
  throw FileFailure("write", outcome.path, outcome.error);
}

Failure SharedFailure(const std::string& what, const std::string& path, int error) {
  const std::string line = "cannot " + what + " " + CleanText(path) + ": " + Why(error);
  if (error == EACCES || error == EPERM)
    return Failure(ExitStatus::kNoPermission, line + "; join the group " + kGroup +
                                                  " (sudo adduser $USER " + kGroup +
                                                  ", then log in again)");
  if (error == ENOENT)
    return Failure(ExitStatus::kIoError, line + "; make its folder: sudo install -d -m 2775 -g " +
                                             kGroup + " '" + CleanText(FolderOf(path)) + "'");
  return FileFailure(what, path, error);
}

DeviceInfoArray SortedDevices(const DevicesManager& registry) {
  DeviceInfoArray devices = registry.knownDevices();
  std::sort(devices.begin(), devices.end(), [](const DeviceInfo& a, const DeviceInfo& b) {
    const auto key = [](const Dictionary& info) {
      return std::make_tuple(info.String(kDeviceNameKey), info.String(kDeviceIdKey));
    };
    return key(*a) < key(*b);
  });
  return devices;
}

}  // namespace vox::cli
