// vox settings: the user's own settings and those of the machine, by one list of keys.
#include "tools/vox/CancelWatch.h"
#include "tools/vox/DeviceText.h"
#include "tools/vox/KnownDevices.h"
#include "tools/vox/Output.h"
#include "tools/vox/Premises.h"
#include "tools/vox/SettingKeys.h"
#include "tools/vox/Verbs.h"
#include "vox/UserPreferences.h"

namespace vox::cli {

namespace {

constexpr char kOfADevice[] = "Settings.";  // saved scan settings, with the device's id behind
constexpr char kNothing[] = "-";

std::string Words(const Json& value) {
  if (value.is_null()) return kNothing;
  if (value.is_boolean()) return value.get<bool>() ? "yes" : "no";
  if (value.is_string()) return CleanText(value.get<std::string>());
  const std::string line = JsonLine(value);
  return line.substr(0, line.size() - 1);
}

Json Record(const SettingKey& key) {
  return {{"key", key.name},
          {"value", key.get()},
          {"store", key.shared ? "shared" : "user"},
          {"default", key.get_usual()},
          {"meaning", key.meaning}};
}

Failure UnknownKey(const std::string& name) {
  std::string line = "no setting is called " + CleanText(name) + "; there are";
  for (const SettingKey& key : SettingKeys()) line += std::string(" ") + key.name;
  return Failure(ExitStatus::kCannot, line + ", and Settings. with a device's id behind it");
}

bool IsOfADevice(const std::string& name) {
  return name.rfind(kOfADevice, 0) == 0 && name.size() + 1 > sizeof kOfADevice;
}

// What a client has saved for a device.
Json DeviceSettings(const std::string& name) {
  const auto saved =
      UserPreferences::instance().settingsForDevice(name.substr(sizeof kOfADevice - 1));
  return saved ? ValueJson(*saved) : Json(nullptr);
}

Json SavedRecord(const std::string& name, const Json& value) {
  return {{"key", name},
          {"value", value},
          {"store", "user"},
          {"default", nullptr},
          {"meaning", "what programs have saved as scan settings of this device"}};
}

void Get(const SettingsOptions& options) {
  const SettingKey* key = FindSetting(options.key);
  if (key == nullptr && !IsOfADevice(options.key)) throw UnknownKey(options.key);
  if (key != nullptr)
    return PrintOut(options.json ? JsonLine(Record(*key)) : Words(key->get()) + "\n");
  const Json value = DeviceSettings(options.key);
  PrintOut(options.json ? JsonLine(SavedRecord(options.key, value)) : Words(value) + "\n");
}

void Change(const SettingsOptions& options) {
  const SettingKey* key = FindSetting(options.key);
  if (key == nullptr && IsOfADevice(options.key))
    throw Failure(ExitStatus::kCannot, "the scan settings of a device are its programs' to change");
  if (key == nullptr) throw UnknownKey(options.key);
  if (key->set == nullptr)
    throw Failure(ExitStatus::kCannot,
                  std::string(key->name) + " cannot be set: it is " + key->meaning);
  if (key->shared) BeforeSharedChange();
  if (options.action == SettingsOptions::Action::kReset) {
    key->reset();
  } else {
    key->set(options.value);
  }
  AfterChange();
  if (options.json) PrintOut(JsonLine(Record(*key)));
}

void List(const SettingsOptions& options) {
  std::string text;
  for (const bool shared : {false, true}) {
    if (!options.json)
      text += shared ? "\nOf the machine, " +
                           CleanText(UserPreferences::instance().pathToGlobalSettings()) + "\n"
                     : "Of the user, " + CleanText(UserPreferencesPath(kUserDomain)) + "\n";
    for (const SettingKey& key : SettingKeys()) {
      if (key.shared != shared) continue;
      text += options.json ? JsonLine(Record(key))
                           : std::string("  ") + key.name + " = " + Words(key.get()) + "\n      " +
                                 key.meaning + "; usually " + key.usual + "\n";
    }
  }
  PrintOut(text);
}

}  // namespace

void RunSettings(const SettingsOptions& options) {
  CancelWatch watch;
  const Premises premises(options.with, false, watch);
  OpenRegistry();
  watch.Finish();
  switch (options.action) {
    case SettingsOptions::Action::kGet:
      return Get(options);
    case SettingsOptions::Action::kSet:
    case SettingsOptions::Action::kReset:
      return Change(options);
    case SettingsOptions::Action::kList:
      return List(options);
  }
}

}  // namespace vox::cli
