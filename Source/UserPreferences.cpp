#include "vox/UserPreferences.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <string_view>
#include <system_error>
#include <utility>

#include <sys/stat.h>

#include "vox/platform/Folders.h"
#include "vox/platform/HostName.h"
#include "vox/platform/MeasurementUnits.h"
#include "vox/platform/Mounts.h"
#include "vox/platform/PropertyList.h"

namespace vox {
namespace {

constexpr const char* kDomain = "com.veltronix.vox";
constexpr const char* kSharedFile = "/Veltronix Vox/com.veltronix.vox.plist";

constexpr const char* kLastScanner = "LastScannerDeviceId";
constexpr const char* kTargetPath = "pushScanTargetPath";
constexpr const char* kTargetMount = "pushScanTargetPathMountPoint";
constexpr const char* kOcrApplication = "ocrApplicationPath";
constexpr const char* kComputerName = "computerName";
constexpr const char* kShowComputerName = "showComputerName";
constexpr const char* kJpegFactor = "jpegCompressionFactor";

constexpr std::size_t kLongestDefaultName = 15;  // characters, as devices show them
constexpr double kDefaultJpegFactor = 0.8;
constexpr mode_t kTargetMode = 0777;  // less the umask

// How the last access of this thread went; see lastOutcome.
thread_local StoreOutcome last_outcome;

bool is_folder(const std::string& path) {
  std::error_code ignored;  // what cannot be looked at is none for this user
  return std::filesystem::is_directory(path, ignored);
}

std::optional<std::string> documents_folder() {
  return FindFolder(kDocumentsFolder, FolderDomain::UserDomain);
}

// A UTF-8 character begins with each byte but those of the form 10xxxxxx.
std::string first_characters(const std::string& text, std::size_t count) {
  std::size_t begun = 0;
  const auto end = std::find_if(text.begin(), text.end(), [&](char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0) != 0x80 && begun++ == count;
  });
  return {text.begin(), end};
}

// How many leading characters of the mount point stand at the front of the path too: all but the
// last one of the mount point, or none. Leaving the last one out is on purpose: it makes the length
// of the root 0, so that the root is never chosen for a match.
std::size_t matched_length(const std::string& point, const std::string& path) {
  const std::size_t compared = point.empty() ? 0 : point.size() - 1;
  return std::strncmp(point.c_str(), path.c_str(), compared) == 0 ? compared : 0;
}

// The source of the mount with the longest match, of equal ones the first; the first mount when
// none matches.
std::optional<std::string> mount_source(const std::string& path) {
  const std::vector<Mount> mounts = MountTable::Current().Mounts();
  if (mounts.empty()) return std::nullopt;
  return std::max_element(mounts.begin(), mounts.end(),
                          [&](const Mount& a, const Mount& b) {
                            return matched_length(a.point, path) < matched_length(b.point, path);
                          })
      ->source;
}

// Mount sources that are mere words ("tmpfs") are no folders beside the working folder.
bool is_mounted_folder(const std::optional<std::string>& source) {
  return source && source->starts_with('/') && is_folder(*source);
}

std::optional<std::string> settings_key(const std::optional<std::string>& device_id) {
  if (!device_id || FitForXml(*device_id) != *device_id) return std::nullopt;
  return "Settings." + *device_id;
}

StoreOutcome outcome_of(const std::string& path, const DictionaryFile& file) {
  return {file.state == FileState::Unreadable ? file.error : 0, path, file.state};
}

Dictionary read_shared(const std::string& path) {
  DictionaryFile file = ReadDictionaryFile(path);
  last_outcome = outcome_of(path, file);
  return std::move(file.content);
}

void write_shared(const std::string& path, const Dictionary& content) {
  last_outcome.error = WriteDictionaryFile(path, content);
}

}  // namespace

template <>
Singleton<UserPreferences>::Slot& Singleton<UserPreferences>::slot() {
  static Slot& slot = *new Slot;  // never destroyed: threads may outlive main
  return slot;
}

UserPreferences::UserPreferences()
    : units(MeasurementUnits::Current().Name()), user(UserPreferencesPath(kDomain)) {}

std::string UserPreferences::measurementUnits() const {
  return units;
}

bool UserPreferences::isMetricMeasurementUnits() const {
  return units == "Centimeters";
}

void UserPreferences::synchronize_user() {
  last_outcome = StoreOutcome{user.Synchronise(), user.Path()};
}

std::optional<std::string> UserPreferences::user_string(const char* key) const {
  const auto value = user.Value(key);
  return value ? value->String() : std::nullopt;
}

void UserPreferences::set_user(const std::string& key, const std::optional<PropertyValue>& value) {
  if (value) {
    user.Set(key, *value);
  } else {
    user.Remove(key);
  }
}

std::optional<std::string> UserPreferences::lastScannerDeviceId() const {
  return user_string(kLastScanner);
}

void UserPreferences::setLastScannerDeviceId(const std::optional<std::string>& deviceId) {
  set_user(kLastScanner, deviceId);
  synchronize_user();
}

std::optional<PropertyValue> UserPreferences::settingsForDevice(
    const std::optional<std::string>& deviceId) {
  synchronize_user();
  const auto key = settings_key(deviceId);
  return key ? user.Value(*key) : std::nullopt;
}

void UserPreferences::saveSettingsForDevice(const std::optional<PropertyValue>& value,
                                            const std::optional<std::string>& deviceId) {
  const auto key = settings_key(deviceId);
  if (!key) return;
  set_user(*key, value);
  synchronize_user();
}

std::optional<std::string> UserPreferences::pushScanTargetFolder(
    std::optional<std::string>* unavailable) {
  if (unavailable != nullptr) unavailable->reset();
  synchronize_user();
  auto chosen = user_string(kTargetPath);
  if (!chosen) return documents_folder();
  if (is_folder(*chosen)) return chosen;
  if (is_mounted_folder(user_string(kTargetMount)) && ::mkdir(chosen->c_str(), kTargetMode) == 0) {
    return std::nullopt;  // on purpose: not available this time, and there when asked again
  }
  if (unavailable != nullptr) *unavailable = chosen;
  return documents_folder();
}

void UserPreferences::setPushScanTargetFolder(const std::optional<std::string>& path) {
  set_user(kTargetPath, path);
  set_user(kTargetMount, path ? mount_source(*path) : std::nullopt);
  synchronize_user();
}

std::optional<std::string> UserPreferences::pushScanOCRApplication() {
  synchronize_user();
  return user_string(kOcrApplication);
}

void UserPreferences::setPushScanOCRApplication(const std::optional<std::string>& path) {
  set_user(kOcrApplication, path);
  synchronize_user();
}

std::string UserPreferences::computerName() {
  if (auto stored = read_shared(pathToGlobalSettings()).String(kComputerName)) return *stored;
  return defaultComputerName();
}

std::string UserPreferences::defaultComputerName() const {
  return first_characters(HostName::Current().Name(), kLongestDefaultName);
}

void UserPreferences::setComputerName(const std::optional<std::string>& name) {
  setValueForSharedKey(name, kComputerName);
}

bool UserPreferences::showComputerNameOnDevice() {
  return read_shared(pathToGlobalSettings()).Truth(kShowComputerName).value_or(true);
}

void UserPreferences::setShowComputerNameOnDevice(bool show) {
  setValueForSharedKey(show, kShowComputerName);
}

double UserPreferences::jpegCompressionFactor() {
  const auto stored = read_shared(pathToGlobalSettings()).Number(kJpegFactor);
  if (!stored || std::isnan(*stored)) return kDefaultJpegFactor;
  return std::clamp(*stored, 0.0, 1.0);
}

void UserPreferences::setJpegCompressionFactor(double factor) {
  setValueForSharedKey(factor, kJpegFactor);
}

std::string UserPreferences::pathToGlobalSettings() const {
  return StandardFolder(kPreferencesFolder, FolderDomain::LocalDomain).value_or("") + kSharedFile;
}

std::optional<PropertyValue> UserPreferences::valueForSharedKey(const std::string& key) {
  return read_shared(pathToGlobalSettings()).Value(key);
}

std::vector<std::string> UserPreferences::allSharedKeys() {
  return read_shared(pathToGlobalSettings()).Keys();
}

Dictionary UserPreferences::allSharedValues() {
  return read_shared(pathToGlobalSettings());
}

void UserPreferences::setValueForSharedKey(const std::optional<PropertyValue>& value,
                                           const std::string& key) {
  if (!value) return removeSharedKey(key);
  const std::string path = pathToGlobalSettings();
  Dictionary settings = read_shared(path);
  settings.Set(key, *value);
  write_shared(path, settings);
}

void UserPreferences::setValuesForSharedKeys(const Dictionary& values) {
  if (values.IsEmpty()) return;
  const std::string path = pathToGlobalSettings();
  Dictionary settings = read_shared(path);
  for (const auto& [key, value] : values) settings.Set(key, value);
  write_shared(path, settings);
}

void UserPreferences::removeSharedKey(const std::string& key) {
  const std::string path = pathToGlobalSettings();
  Dictionary settings = read_shared(path);
  settings.Remove(key);
  write_shared(path, settings);
}

StoreOutcome UserPreferences::lastOutcome() const {
  return last_outcome;
}

void UserPreferences::noteNoMemory() {
  last_outcome.error = ENOMEM;
}

StoreOutcome UserPreferences::globalSettingsOutcome() const {
  const std::string path = pathToGlobalSettings();
  return outcome_of(path, ReadDictionaryFile(path));
}

KeptFile UserPreferences::keepDamagedGlobalSettings() {
  return KeepDamagedFile(pathToGlobalSettings());
}

}  // namespace vox
