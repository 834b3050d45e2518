#include "tools/vox/KnownDevices.h"

#include <algorithm>
#include <cerrno>
#include <new>
#include <string>
#include <tuple>

#include "tools/vox/Output.h"
#include "tools/vox/SettingsFailure.h"
#include "vox/UserPreferences.h"
#include "vox/platform/PropertyListFile.h"

namespace vox::cli {

namespace {

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
  PrintError("note: " + line);
}

void NoteNoPings(PING_ACCESS access) {
  constexpr char kAlone[] = "; devices are asked over SNMP alone";
  if (access == PING_ACCESS_FORBIDDEN)
    Note(std::string("pings are not permitted here (see net.ipv4.ping_group_range)") + kAlone);
  if (access == PING_ACCESS_NO_DESCRIPTORS)
    Note(std::string("no file descriptor is left for pings (see ulimit -n)") + kAlone);
  if (access == PING_ACCESS_FAILED) Note(std::string("pings cannot be sent now") + kAlone);
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
    throw SettingsFailure(Store::kShared, "read", outcome.path, outcome.error);
  if (outcome.found != FileState::Damaged) return;
  const KeptFile kept = preferences.keepDamagedGlobalSettings();
  if (kept.error != 0 && kept.error != ENOENT)
    throw SettingsFailure(Store::kShared, "keep the damaged settings in", outcome.path, kept.error);
}

void AfterChange() {
  UserPreferences& preferences = UserPreferences::instance();
  const StoreOutcome outcome = preferences.lastOutcome();
  if (outcome.error == 0) return;
  if (outcome.error == ENOMEM) throw std::bad_alloc();
  const bool shared = outcome.path == preferences.pathToGlobalSettings();
  throw SettingsFailure(shared ? Store::kShared : Store::kUser, "write", outcome.path,
                        outcome.error);
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
