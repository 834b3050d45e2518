// Registry is a desktop with a registry of devices; Reload() is a program that starts anew.
#pragma once

#include <atomic>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include "tests/unit/prefs/Desktop.h"
#include "vox/DevicesManager.h"

namespace vox {

inline DeviceInfo Network(const std::string& mac, const std::string& ip, const std::string& name) {
  return std::make_shared<Dictionary>(Dictionary{{"deviceId", mac},
                                                 {"type", "network"},
                                                 {"modelName", "Veltronix QD7200"},
                                                 {"ip", ip},
                                                 {"name", name},
                                                 {"mac", mac}});
}

inline DeviceInfo Usb(const std::string& serial) {
  return std::make_shared<Dictionary>(Dictionary{{"deviceId", serial},
                                                 {"type", "usb"},
                                                 {"modelName", "Veltronix QD7200"},
                                                 {"serialNumber", serial}});
}

class Registry : public Desktop {
 protected:
  Registry() { std::filesystem::create_directories(Path("root/var/lib/Veltronix Vox")); }
  static DevicesManager& Manager() { return DevicesManager::instance(); }
  void Reload() {
    manager_.reset();
    manager_.emplace();
  }
  static void Store(const std::string& key, const PropertyValue& value) {
    Prefs().setValueForSharedKey(value, key);
  }
  static std::optional<Dictionary> StoredDevice(const std::string& id) {
    const auto value = Prefs().valueForSharedKey("Device." + id);
    const Dictionary* const stored = value ? value->AsDictionary() : nullptr;
    return stored != nullptr ? std::optional(*stored) : std::nullopt;
  }
  static std::string SharedText() { return Text(Prefs().pathToGlobalSettings()); }
  static std::set<std::string> Ids(const DeviceInfoArray& devices) {
    std::set<std::string> ids;
    for (const DeviceInfo& info : devices) ids.insert(info->String("deviceId").value_or("?"));
    return ids;
  }

  std::optional<DevicesManager::Fresh> manager_{std::in_place};
};

// Cancelled counts how often it was asked and says yes from the n-th time on.
class CancelledAt final : public CancelDelegate {
 public:
  explicit CancelledAt(int n) : n_(n) {}
  bool isCancelled() override { return ++asked >= n_; }
  std::atomic<int> asked = 0;

 private:
  const int n_;
};

}  // namespace vox
