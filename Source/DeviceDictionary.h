// The device dictionary: what a search tells about a device and the registry keeps of it. All
// values are strings but "isNetworkPushEnabled", a truth value.
//
// Owner: dictionaries are shared, because the registry hands out the ones that it keeps.
// Thread rule: values like std::string: any number of readers, or one writer.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "vox/platform/PropertyValue.h"

namespace vox {

inline constexpr char kDeviceIdKey[] = "deviceId";          // the registry keeps it under this
inline constexpr char kDeviceTypeKey[] = "type";            // one of the types below
inline constexpr char kDeviceModelNameKey[] = "modelName";  // with the vendor's name in front
inline constexpr char kDeviceSerialNumberKey[] = "serialNumber";  // USB
inline constexpr char kDeviceIpKey[] = "ip";                      // network: IPv4, dotted
inline constexpr char kDeviceNameKey[] = "name";                  // network
inline constexpr char kDeviceMacKey[] = "mac";  // network: "%02x" six times, colons between
inline constexpr char kDevicePushKey[] = "isNetworkPushEnabled";  // network: set by the registry
inline constexpr char kDeviceLocationKey[] = "location";          // set by the registry, to show

inline constexpr char kDeviceTypeNetwork[] = "network";
inline constexpr char kDeviceTypeUsb[] = "usb";

// is_device_of_type tells whether the dictionary's "type" is this text.
inline bool is_device_of_type(const Dictionary& info, const char* type) {
  const PropertyValue* const value = info.Find(kDeviceTypeKey);
  const std::string* const text = value != nullptr ? value->AsString() : nullptr;
  return text != nullptr && *text == type;
}

using DeviceInfo = std::shared_ptr<Dictionary>;
using DeviceInfoArray = std::vector<DeviceInfo>;
using DeviceInfoDictionary = std::map<std::string, DeviceInfo>;  // by "deviceId"

}  // namespace vox
