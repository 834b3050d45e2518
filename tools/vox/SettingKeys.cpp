#include "tools/vox/SettingKeys.h"

#include <strings.h>
#include <charconv>
#include <cmath>
#include <filesystem>
#include <optional>
#include <system_error>

#include "tools/vox/DeviceChoice.h"
#include "tools/vox/Failure.h"
#include "tools/vox/KnownDevices.h"
#include "vox/UserPreferences.h"
#include "vox/platform/Folders.h"
#include "vox/platform/PropertyList.h"

namespace vox::cli {

namespace {

constexpr std::size_t kLongestShownName = 15;  // bytes of a computer's name in a device's list

UserPreferences& Preferences() {
  return UserPreferences::instance();
}

Json TextOrNull(const std::optional<std::string>& text) {
  return text ? Json(*text) : Json(nullptr);
}

[[noreturn]] void Refuse(const char* key, const std::string& value, const std::string& why) {
  throw UsageFailure(std::string(key) + " cannot be " + value + ": " + why);
}

std::string CheckText(const char* key, const std::string& value) {
  if (FitForXml(value) != value) Refuse(key, value, "give text in UTF-8");
  return value;
}

// A full path, without . and .. in it.
std::string CheckPath(const char* key, const std::string& value) {
  CheckText(key, value);
  std::error_code error;
  const std::filesystem::path path = std::filesystem::absolute(value, error).lexically_normal();
  if (error || !std::filesystem::exists(path, error)) Refuse(key, value, "it does not exist");
  return path.string();
}

void SetComputerName(const std::string& value) {
  Preferences().setComputerName(CheckText("computerName", value));
  AfterChange();
  if (value.size() > kLongestShownName)
    Note("devices show no more than " + std::to_string(kLongestShownName) +
         " bytes of the name, and only those that it is registered with again");
}

void SetShowComputerName(const std::string& value) {
  for (const char* yes : {"yes", "true", "on", "1"}) {
    if (::strcasecmp(value.c_str(), yes) == 0)
      return Preferences().setShowComputerNameOnDevice(true);
  }
  for (const char* no : {"no", "false", "off", "0"}) {
    if (::strcasecmp(value.c_str(), no) == 0)
      return Preferences().setShowComputerNameOnDevice(false);
  }
  Refuse("showComputerName", value, "choose yes or no");
}

void SetJpegFactor(const std::string& value) {
  double factor = -1;
  const auto end = value.data() + value.size();
  const auto result = std::from_chars(value.data(), end, factor);
  if (result.ec != std::errc() || result.ptr != end || !(factor >= 0 && factor <= 1))
    Refuse("jpegCompressionFactor", value, "give a number from 0 to 1");
  Preferences().setJpegCompressionFactor(factor);
}

void SetTargetFolder(const std::string& value) {
  const std::string path = CheckPath("pushScanTargetPath", value);
  std::error_code error;
  if (!std::filesystem::is_directory(path, error))
    Refuse("pushScanTargetPath", value, "it is no folder");
  Preferences().setPushScanTargetFolder(path);
}

// The library's own question would make the folder again when its volume is there, so what is
// stored is asked for alone.
Json StoredText(const char* key) {
  PreferencesStore store(UserPreferencesPath(kUserDomain));
  const auto value = store.Value(key);
  return value ? TextOrNull(value->String()) : Json(nullptr);
}

// Numbers that others kept in single precision show the digits that were meant.
Json JpegFactor() {
  return std::round(Preferences().jpegCompressionFactor() * 1e6) / 1e6;
}

Json Nothing() {
  return nullptr;
}

Json DocumentsFolder() {
  return TextOrNull(FindFolder(kDocumentsFolder, FolderDomain::UserDomain));
}

constexpr SettingKey kKeys[] = {
    {"LastScannerDeviceId", false, "the device that is used when none is named", "none",
     [] { return TextOrNull(Preferences().lastScannerDeviceId()); }, Nothing,
     [](const std::string& value) {
       const DeviceInfo device = FindRemembered(value).remembered;
       Preferences().setLastScannerDeviceId(device->String(kDeviceIdKey));
     },
     [] { Preferences().setLastScannerDeviceId(std::nullopt); }},
    {"pushScanTargetPath", false, "the folder for scans that are started at a device's panel",
     "the user's documents folder", [] { return StoredText("pushScanTargetPath"); },
     DocumentsFolder, SetTargetFolder, [] { Preferences().setPushScanTargetFolder(std::nullopt); }},
    {"pushScanTargetPathMountPoint", false, "the volume that holds that folder; set along with it",
     "none", [] { return StoredText("pushScanTargetPathMountPoint"); }, Nothing, nullptr, nullptr},
    {"ocrApplicationPath", false, "the application that such scans are handed to for their text",
     "none", [] { return TextOrNull(Preferences().pushScanOCRApplication()); }, Nothing,
     [](const std::string& value) {
       Preferences().setPushScanOCRApplication(CheckPath("ocrApplicationPath", value));
     },
     [] { Preferences().setPushScanOCRApplication(std::nullopt); }},
    {"computerName", true, "the name under which devices list this computer",
     "the host's name, its first 15 characters", [] { return Json(Preferences().computerName()); },
     [] { return Json(Preferences().defaultComputerName()); }, SetComputerName,
     [] { Preferences().setComputerName(std::nullopt); }},
    {"showComputerName", true, "whether devices show that name", "yes",
     [] { return Json(Preferences().showComputerNameOnDevice()); }, [] { return Json(true); },
     SetShowComputerName, [] { Preferences().removeSharedKey("showComputerName"); }},
    {"jpegCompressionFactor", true, "the quality of JPEG images, 0 to 1", "0.8", JpegFactor,
     [] { return Json(0.8); }, SetJpegFactor,
     [] { Preferences().removeSharedKey("jpegCompressionFactor"); }},
};

}  // namespace

std::span<const SettingKey> SettingKeys() {
  return kKeys;
}

const SettingKey* FindSetting(const std::string& name) {
  for (const SettingKey& key : kKeys) {
    if (::strcasecmp(key.name, name.c_str()) == 0) return &key;
  }
  return nullptr;
}

}  // namespace vox::cli
