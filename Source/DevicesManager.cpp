#include "vox/DevicesManager.h"

#include <new>
#include <utility>

#include "vox/UserPreferences.h"
#include "vox/drivers/net/TwImgIFNW.h"
#include "vox/drivers/usb/TwImgIFUsb.h"

namespace vox {
namespace {

constexpr char DEVICE_RECORD[] = "Device.";

std::string record_key(const std::string& deviceId) {
  return DEVICE_RECORD + deviceId;
}

// A device is registered for push scanning unless somebody said otherwise.
void default_push(Dictionary& info) {
  if (is_device_of_type(info, kDeviceTypeNetwork) && !info.Contains(kDevicePushKey))
    info.Set(kDevicePushKey, true);
}

std::optional<std::string> location_of(const Dictionary& info) {
  if (is_device_of_type(info, kDeviceTypeUsb)) return "USB";
  if (!is_device_of_type(info, kDeviceTypeNetwork)) return std::nullopt;
  return info.String(kDeviceNameKey).value_or("") + " (" + info.String(kDeviceIpKey).value_or("") +
         ")";
}

void renew_location(Dictionary& info) {
  const auto location = location_of(info);
  if (location) info.Set(kDeviceLocationKey, *location);
}

// Takes over one text of what was found. Returns: whether it differs from what is stored.
bool take_over(Dictionary& stored, const Dictionary& found, const char* key) {
  const auto value = found.String(key);
  if (!value || value == stored.String(key)) return false;
  stored.Set(key, *value);
  return true;
}

// The stored record as a dictionary of our own; null when it is none, or bears no id.
DeviceInfo copy_of_record(const PropertyValue& record) {
  const Dictionary* stored = record.AsDictionary();
  if (stored == nullptr || !stored->String(kDeviceIdKey)) return nullptr;
  return std::make_shared<Dictionary>(*stored);
}

DeviceInfoDictionary stored_devices() {
  DeviceInfoDictionary devices;
  const Dictionary settings = UserPreferences::instance().allSharedValues();
  for (const auto& [key, record] : settings) {
    if (!key.starts_with(DEVICE_RECORD)) continue;
    const DeviceInfo info = copy_of_record(record);
    if (info == nullptr) continue;
    default_push(*info);
    renew_location(*info);
    devices[*info->String(kDeviceIdKey)] = info;
  }
  return devices;
}

}  // namespace

template <>
Singleton<DevicesManager>::Slot& Singleton<DevicesManager>::slot() {
  static Slot& slot = *new Slot;  // never destroyed: threads may outlive main
  return slot;
}

DevicesManager::DevicesManager() {
  initDevices();
}

void DevicesManager::initDevices() {
  m_knownDevices = stored_devices();
}

void DevicesManager::synchronizeDevices() try {
  initDevices();  // what was known stays where that throws
} catch (const std::bad_alloc&) {
  UserPreferences::noteNoMemory();
}

void DevicesManager::appendDevices(const DeviceInfoDictionary& devices) try {
  DeviceInfoDictionary staged;
  Dictionary records;
  for (const auto& [key, found] : devices) {
    if (!stage(found, &staged)) continue;
    const std::string id = *found->String(kDeviceIdKey);
    records.Set(record_key(id), *staged[id]);
  }
  commit(&staged);
  UserPreferences::instance().setValuesForSharedKeys(records);
} catch (const std::bad_alloc&) {
  UserPreferences::noteNoMemory();
}

void DevicesManager::appendOneDeviceInfo(const DeviceInfo& found) try {
  appendDevices({{"", found}});
} catch (const std::bad_alloc&) {
  UserPreferences::noteNoMemory();
}

// stage puts a copy of the device's record, with what was found, beside the registry.
// Returns: whether it needs saving.
bool DevicesManager::stage(const DeviceInfo& found, DeviceInfoDictionary* staged) const {
  const auto id = found != nullptr ? found->String(kDeviceIdKey) : std::nullopt;
  if (!id) return false;
  const DeviceInfo stored = infoForDevice(*id);
  DeviceInfo& record = (*staged)[*id];
  const bool is_new = record == nullptr && stored == nullptr;
  if (record == nullptr) record = std::make_shared<Dictionary>(is_new ? *found : *stored);
  bool save = is_new;
  if (!is_new && is_device_of_type(*found, kDeviceTypeNetwork)) {
    const bool moved = take_over(*record, *found, kDeviceIpKey);
    const bool renamed = take_over(*record, *found, kDeviceNameKey);
    save = moved || renamed;
  }
  default_push(*record);
  if (save) renew_location(*record);
  return save;
}

// commit takes the copies over, which needs no memory; known dictionaries stay the same objects.
void DevicesManager::commit(DeviceInfoDictionary* staged) {
  for (const auto& [id, record] : *staged) {
    const auto known = m_knownDevices.find(id);
    if (known != m_knownDevices.end()) std::swap(*known->second, *record);
  }
  m_knownDevices.merge(*staged);
}

void DevicesManager::saveDeviceInfo(const std::optional<std::string>& deviceId) try {
  const DeviceInfo info = deviceId ? infoForDevice(*deviceId) : nullptr;
  if (info == nullptr) return;
  UserPreferences::instance().setValueForSharedKey(*info, record_key(*deviceId));
} catch (const std::bad_alloc&) {
  UserPreferences::noteNoMemory();
}

void DevicesManager::saveDevices(const std::vector<std::string>& ids) try {
  Dictionary records;
  for (const std::string& id : ids) {
    const DeviceInfo known = infoForDevice(id);
    if (known != nullptr) records.Set(record_key(id), *known);
  }
  UserPreferences::instance().setValuesForSharedKeys(records);
} catch (const std::bad_alloc&) {
  UserPreferences::noteNoMemory();
}

void DevicesManager::saveAllDevices() try {
  std::vector<std::string> ids;
  for (const auto& [id, info] : m_knownDevices) {
    if (const auto own = info->String(kDeviceIdKey)) ids.push_back(*own);
  }
  saveDevices(ids);
} catch (const std::bad_alloc&) {
  UserPreferences::noteNoMemory();
}

void DevicesManager::removeDevice(const std::string& deviceId) try {
  const std::string key = record_key(deviceId);
  m_knownDevices.erase(deviceId);
  UserPreferences::instance().removeSharedKey(key);
} catch (const std::bad_alloc&) {
  UserPreferences::noteNoMemory();
}

DeviceInfoArray DevicesManager::knownDevices() const try {
  DeviceInfoArray devices;
  for (const auto& [id, info] : m_knownDevices) devices.push_back(info);
  return devices;
} catch (const std::bad_alloc&) {
  return {};
}

DeviceInfo DevicesManager::infoForDevice(const std::string& deviceId) const {
  const auto known = m_knownDevices.find(deviceId);
  return known != m_knownDevices.end() ? known->second : nullptr;
}

std::optional<DeviceInfoArray> DevicesManager::devicesListFromDevicesIdList(
    const std::vector<std::string>& ids) const try {
  DeviceInfoArray devices;
  for (const std::string& id : ids) {
    devices.push_back(infoForDevice(id));
    if (devices.back() == nullptr) return std::nullopt;
  }
  return devices;
} catch (const std::bad_alloc&) {
  return std::nullopt;
}

std::vector<std::string> DevicesManager::devicesIdListFromDevicesList(
    const DeviceInfoArray& devices) const try {
  std::vector<std::string> ids;
  for (const DeviceInfo& info : devices) {
    ids.push_back(info != nullptr ? info->String(kDeviceIdKey).value_or("") : "");
  }
  return ids;
} catch (const std::bad_alloc&) {
  return {};
}

std::optional<std::string> DevicesManager::deviceLocation(const std::string& deviceId) const {
  const DeviceInfo info = infoForDevice(deviceId);
  return info != nullptr ? deviceLocationWithDeviceInfo(*info) : std::nullopt;
}

std::optional<std::string> DevicesManager::deviceLocationWithDeviceInfo(
    const Dictionary& info) try {
  return location_of(info);
} catch (const std::bad_alloc&) {
  return std::nullopt;
}

std::unique_ptr<CTwainImageIF> DevicesManager::createInterfaceForDevice(
    const std::string& deviceId) const try {
  const DeviceInfo info = infoForDevice(deviceId);
  if (info == nullptr) return nullptr;
  if (is_device_of_type(*info, kDeviceTypeNetwork)) {
    const auto name = info->String(kDeviceNameKey), ip = info->String(kDeviceIpKey);
    if (!name || !ip) return nullptr;
    return std::make_unique<CTwImgIFNW>(name->c_str(), ip->c_str());
  }
  if (is_device_of_type(*info, kDeviceTypeUsb)) {
    const auto model = info->String(kDeviceModelNameKey);
    const auto serial = info->String(kDeviceSerialNumberKey);
    if (!model || !serial) return nullptr;
    return std::make_unique<CTwImgIFUsb>(model->c_str(), serial->c_str());
  }
  return nullptr;
} catch (const std::bad_alloc&) {
  return nullptr;
}

bool DevicesManager::isDeviceOnline(const std::optional<std::string>& deviceId) const try {
  if (!deviceId) return false;
  const std::unique_ptr<CTwainImageIF> interface = createInterfaceForDevice(*deviceId);
  return interface != nullptr && interface->IsOnLine(0);
} catch (const std::bad_alloc&) {
  return false;
}

}  // namespace vox
