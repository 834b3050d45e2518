#include "tools/vox/DeviceText.h"

#include "tools/vox/Failure.h"
#include "tools/vox/NetworkName.h"
#include "vox/DevicesManager.h"

namespace vox::cli {

namespace {

// Wide enough for what most devices have; longer texts push the rest of their row aside.
constexpr std::size_t kAddressWidth = 16, kNameWidth = 24, kModelWidth = 24, kIdWidth = 19;

std::size_t Characters(const std::string& text) {
  std::size_t count = 0;
  for (const char byte : text) count += (static_cast<unsigned char>(byte) & 0xC0) != 0x80;
  return count;
}

std::string Column(const Dictionary& device, const char* key, std::size_t width,
                   const char* otherwise = "-") {
  std::string text = CleanText(device.String(key).value_or(otherwise));
  const std::size_t length = Characters(text);
  text.append(length < width ? width - length : 1, ' ');
  return text;
}

}  // namespace

std::string DeviceName(const Dictionary& device) {
  const std::string id = device.String(kDeviceIdKey).value_or("a device without an id");
  if (is_device_of_type(device, kDeviceTypeUsb))
    return CleanText(device.String(kDeviceModelNameKey).value_or("USB") + " (" + id + " at USB)");
  const auto name = device.String(kDeviceNameKey);
  if (!name || name->empty()) return CleanText(id);
  return CleanText(DevicesManager::deviceLocationWithDeviceInfo(device).value_or(*name));
}

std::string DeviceLine(const Dictionary& device, const std::string& behind) {
  const bool usb = is_device_of_type(device, kDeviceTypeUsb);
  std::string line = Column(device, kDeviceIpKey, kAddressWidth, usb ? "at USB" : "-") +
                     Column(device, kDeviceNameKey, kNameWidth) +
                     Column(device, kDeviceModelNameKey, kModelWidth) +
                     Column(device, kDeviceIdKey, kIdWidth) + behind;
  line.erase(line.find_last_not_of(' ') + 1);
  return line + "\n";
}

bool HasBrokenAddress(const Dictionary& device) {
  return is_device_of_type(device, kDeviceTypeNetwork) &&
         !IsDottedAddress(device.String(kDeviceIpKey).value_or(""));
}

std::string BrokenAddressLine(const Dictionary& device) {
  const bool has_one = device.String(kDeviceIpKey).has_value();
  return DeviceName(device) + " is remembered " +
         (has_one ? "with a broken address" : "without an address") +
         "; find it again with vox discover, or name its address with vox add";
}

bool HasChanged(const Dictionary& known, const Dictionary& found) {
  return known.String(kDeviceIpKey) != found.String(kDeviceIpKey) ||
         known.String(kDeviceNameKey) != found.String(kDeviceNameKey);
}

Json DeviceRecord(const Dictionary& device) {
  Json json = Json::object();
  for (const char* key : {kDeviceIdKey, kDeviceTypeKey, kDeviceModelNameKey, kDeviceSerialNumberKey,
                          kDeviceIpKey, kDeviceNameKey, kDeviceMacKey, kDeviceLocationKey}) {
    if (const auto text = device.String(key)) json[key] = *text;
  }
  if (const auto push = device.Truth(kDevicePushKey)) json[kDevicePushKey] = *push;
  return json;
}

}  // namespace vox::cli
