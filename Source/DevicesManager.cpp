#include "vox/DevicesManager.h"

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

void renew_location(Dictionary& info) {
  const auto location = DevicesManager::deviceLocationWithDeviceInfo(info);
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
  synchronizeDevices();
}

void DevicesManager::synchronizeDevices() {
  m_knownDevices.clear();
  const Dictionary settings = UserPreferences::instance().allSharedValues();
  for (const auto& [key, record] : settings) {
    if (!key.starts_with(DEVICE_RECORD)) continue;
    const DeviceInfo info = copy_of_record(record);
    if (info == nullptr) continue;
    default_push(*info);
    renew_location(*info);
    m_knownDevices[*info->String(kDeviceIdKey)] = info;
  }
}

void DevicesManager::appendDevices(const DeviceInfoDictionary& devices) {
  Dictionary records;
  for (const auto& [key, found] : devices) {
    const DeviceInfo changed = merge(found);
    if (changed != nullptr) records.Set(record_key(*found->String(kDeviceIdKey)), *changed);
  }
  UserPreferences::instance().setValuesForSharedKeys(records);
}

void DevicesManager::appendOneDeviceInfo(const DeviceInfo& found) {
  if (merge(found) != nullptr) saveDeviceInfo(found->String(kDeviceIdKey));
}

// merge gives the stored dictionary when it needs saving, else null.
DeviceInfo DevicesManager::merge(const DeviceInfo& found) {
  const auto id = found != nullptr ? found->String(kDeviceIdKey) : std::nullopt;
  if (!id) return nullptr;
  bool save = false;
  DeviceInfo stored = infoForDevice(*id);
  if (stored == nullptr) {
    stored = std::make_shared<Dictionary>(*found);
    m_knownDevices[*id] = stored;
    save = true;
  } else if (is_device_of_type(*found, kDeviceTypeNetwork)) {
    const bool moved = take_over(*stored, *found, kDeviceIpKey);
    const bool renamed = take_over(*stored, *found, kDeviceNameKey);
    save = moved || renamed;
  }
  default_push(*stored);
  if (!save) return nullptr;
  renew_location(*stored);
  return stored;
}

void DevicesManager::saveDeviceInfo(const std::optional<std::string>& deviceId) {
  const DeviceInfo info = deviceId ? infoForDevice(*deviceId) : nullptr;
  if (info == nullptr) return;
  UserPreferences::instance().setValueForSharedKey(*info, record_key(*deviceId));
}

void DevicesManager::saveDevices(const std::vector<std::string>& ids) {
  Dictionary records;
  for (const std::string& id : ids) {
    const DeviceInfo known = infoForDevice(id);
    if (known != nullptr) records.Set(record_key(id), *known);
  }
  UserPreferences::instance().setValuesForSharedKeys(records);
}

void DevicesManager::saveAllDevices() {
  std::vector<std::string> ids;
  for (const auto& [id, info] : m_knownDevices) {
    if (const auto own = info->String(kDeviceIdKey)) ids.push_back(*own);
  }
  saveDevices(ids);
}

void DevicesManager::removeDevice(const std::string& deviceId) {
  m_knownDevices.erase(deviceId);
  UserPreferences::instance().removeSharedKey(record_key(deviceId));
}

DeviceInfoArray DevicesManager::knownDevices() const {
  DeviceInfoArray devices;
  for (const auto& [id, info] : m_knownDevices) devices.push_back(info);
  return devices;
}

DeviceInfo DevicesManager::infoForDevice(const std::string& deviceId) const {
  const auto known = m_knownDevices.find(deviceId);
  return known != m_knownDevices.end() ? known->second : nullptr;
}

std::optional<DeviceInfoArray> DevicesManager::devicesListFromDevicesIdList(
    const std::vector<std::string>& ids) const {
  DeviceInfoArray devices;
  for (const std::string& id : ids) {
    devices.push_back(infoForDevice(id));
    if (devices.back() == nullptr) return std::nullopt;
  }
  return devices;
}

std::vector<std::string> DevicesManager::devicesIdListFromDevicesList(
    const DeviceInfoArray& devices) const {
  std::vector<std::string> ids;
  for (const DeviceInfo& info : devices) {
    ids.push_back(info != nullptr ? info->String(kDeviceIdKey).value_or("") : "");
  }
  return ids;
}

std::optional<std::string> DevicesManager::deviceLocation(const std::string& deviceId) const {
  const DeviceInfo info = infoForDevice(deviceId);
  return info != nullptr ? deviceLocationWithDeviceInfo(*info) : std::nullopt;
}

std::optional<std::string> DevicesManager::deviceLocationWithDeviceInfo(const Dictionary& info) {
  if (is_device_of_type(info, kDeviceTypeUsb)) return "USB";
  if (!is_device_of_type(info, kDeviceTypeNetwork)) return std::nullopt;
  return info.String(kDeviceNameKey).value_or("") + " (" + info.String(kDeviceIpKey).value_or("") +
         ")";
}

std::unique_ptr<CTwainImageIF> DevicesManager::createInterfaceForDevice(
    const std::string& deviceId) const {
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
}

bool DevicesManager::isDeviceOnline(const std::optional<std::string>& deviceId) const {
  if (!deviceId) return false;
  const std::unique_ptr<CTwainImageIF> interface = createInterfaceForDevice(*deviceId);
  return interface != nullptr && interface->IsOnLine(0);
}

}  // namespace vox
