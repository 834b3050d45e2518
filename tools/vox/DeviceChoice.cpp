#include "tools/vox/DeviceChoice.h"

#include <strings.h>

#include "tools/vox/DeviceText.h"
#include "tools/vox/Failure.h"
#include "tools/vox/KnownDevices.h"
#include "tools/vox/NetworkName.h"
#include "tools/vox/UsbDevice.h"
#include "vox/UserPreferences.h"

namespace vox::cli {

namespace {

constexpr std::size_t kNamesShown = 8;  // of devices that a message lists

enum class Match { kNone, kBeginning, kWhole };

Match MatchText(const std::string& whole, const std::string& text) {
  if (::strncasecmp(whole.c_str(), text.c_str(), text.size()) != 0) return Match::kNone;
  return whole.size() == text.size() ? Match::kWhole : Match::kBeginning;
}

// A device at USB has no name of its own: its model stands for it.
Match MatchAtUsb(const Dictionary& device, const std::string& text) {
  const std::string model = device.String(kDeviceModelNameKey).value_or("");
  const std::string behind_maker = model.substr(model.find(' ') + 1);
  const std::string serial = device.String(kDeviceSerialNumberKey).value_or("");
  return std::max({MatchText(model, text), MatchText(behind_maker, text), MatchText(serial, text)});
}

Match MatchDevice(const Dictionary& device, const std::string& text) {
  Match best = Match::kNone;
  for (const char* key : {kDeviceIdKey, kDeviceNameKey, kDeviceIpKey}) {
    const auto value = device.String(key);
    if (value) best = std::max(best, MatchText(*value, text));
  }
  return is_device_of_type(device, kDeviceTypeUsb) ? std::max(best, MatchAtUsb(device, text))
                                                   : best;
}

std::string Listed(const DeviceInfoArray& devices) {
  std::string line;
  for (std::size_t i = 0; i < devices.size() && i < kNamesShown; ++i)
    line += (line.empty() ? "" : ", ") + DeviceName(*devices[i]) + " [" +
            CleanText(devices[i]->String(kDeviceIdKey).value_or("")) + "]";
  if (devices.size() > kNamesShown)
    line += " and " + std::to_string(devices.size() - kNamesShown) + " more";
  return line;
}

[[noreturn]] void FailSeveral(const std::string& text, const DeviceInfoArray& matches) {
  throw Failure(ExitStatus::kCannot, CleanText(text) + " means several devices: " +
                                         Listed(matches) + "; give more of the name, or the id");
}

DeviceInfo Remembered(const std::string& name) {
  const DeviceInfoArray known = SortedDevices(OpenRegistry());
  if (!name.empty()) return ChooseDevice(known, name);
  return UsualDevice(known, UserPreferences::instance().lastScannerDeviceId());
}

// RememberedAtUsb gives the remembered device with that serial number, or null. A record without
// one is known by its id, which is a serial number for whoever searches.
DeviceInfo RememberedAtUsb(const std::string& serial) {
  for (const DeviceInfo& device : SortedDevices(OpenRegistry())) {
    const auto id = device->String(kDeviceIdKey);
    if (is_device_of_type(*device, kDeviceTypeUsb) &&
        (device->Find(kDeviceSerialNumberKey) != nullptr ? device->String(kDeviceSerialNumberKey)
                                                         : id) == serial)
      return device;
  }
  return nullptr;
}

DeviceTarget FindAtUsb(const std::string& name) {
  const std::string serial = UsbSerial(name);
  const DeviceInfo known = RememberedAtUsb(serial);
  if (known != nullptr) return TargetOf(known);
  const DeviceInfo attached = AttachedDevice(serial);
  return {DeviceName(*attached), "", nullptr, attached};
}

DeviceTarget UsbTargetOf(const DeviceInfo& device) {
  if (!device->String(kDeviceModelNameKey) || !device->String(kDeviceSerialNumberKey))
    throw Failure(ExitStatus::kCannot, DeviceName(*device) +
                                           " is remembered without its model or " +
                                           "its serial number; forget it with vox remove and " +
                                           "find it again with vox discover");
  return {DeviceName(*device), "", device, device};
}

}  // namespace

DeviceInfoArray MatchDevices(const DeviceInfoArray& known, const std::string& text) {
  DeviceInfoArray whole, beginning;
  if (text.empty()) return whole;
  for (const DeviceInfo& device : known) {
    const Match match = MatchDevice(*device, text);
    if (match == Match::kWhole) whole.push_back(device);
    if (match == Match::kBeginning) beginning.push_back(device);
  }
  return whole.empty() ? beginning : whole;
}

DeviceInfo ChooseDevice(const DeviceInfoArray& known, const std::string& text) {
  const DeviceInfoArray matches = MatchDevices(known, text);
  if (matches.size() == 1) return matches.front();
  if (matches.empty())
    throw Failure(
        ExitStatus::kCannot,
        "no remembered device is called " + CleanText(text) +
            "; see vox list, find it with vox discover, or name it as in net:192.168.0.5 or " +
            "usb:A7K0123");
  FailSeveral(text, matches);
}

DeviceInfo UsualDevice(const DeviceInfoArray& known, const std::optional<std::string>& last_used) {
  if (known.size() == 1) return known.front();
  for (const DeviceInfo& device : known) {
    if (last_used && device->String(kDeviceIdKey) == last_used) return device;
  }
  if (known.empty())
    throw Failure(ExitStatus::kCannot,
                  "which device? None is remembered: find them with vox discover, name one as in "
                  "net:192.168.0.5 or usb:A7K0123, or use --virtual");
  throw Failure(ExitStatus::kCannot, "which device? Name one of " + Listed(known));
}

DeviceTarget TargetOf(const DeviceInfo& device) {
  if (is_device_of_type(*device, kDeviceTypeUsb)) return UsbTargetOf(device);
  if (!is_device_of_type(*device, kDeviceTypeNetwork))
    throw Failure(ExitStatus::kCannot, DeviceName(*device) +
                                           " is remembered neither as a network " +
                                           "device nor as one at USB; forget it with vox remove");
  if (HasBrokenAddress(*device)) throw Failure(ExitStatus::kCannot, BrokenAddressLine(*device));
  return {DeviceName(*device), *device->String(kDeviceIpKey), device};
}

DeviceTarget FindDevice(const std::string& name) {
  if (IsUsbName(name)) return FindAtUsb(name);
  if (IsNetworkName(name)) return {name, NetworkAddress(name), nullptr};
  return TargetOf(Remembered(name));
}

DeviceTarget FindRemembered(const std::string& name) {
  DeviceInfo found;
  if (IsUsbName(name)) {
    found = RememberedAtUsb(UsbSerial(name));
    if (found == nullptr)
      throw Failure(ExitStatus::kCannot, "no device at USB with the serial number of " +
                                             CleanText(name) + " is remembered; see vox list");
  } else if (IsNetworkName(name)) {
    const DeviceInfoArray there = RememberedAt(NetworkAddress(name));
    if (there.empty())
      throw Failure(ExitStatus::kCannot, "no device with the address of " + CleanText(name) +
                                             " is remembered; see vox list");
    if (there.size() > 1) FailSeveral(name, there);
    found = there.front();
  } else {
    found = Remembered(name);
  }
  return {DeviceName(*found), found->String(kDeviceIpKey).value_or(""), found};
}

DeviceInfoArray RememberedAt(const std::string& address) {
  DeviceInfoArray there;
  for (const DeviceInfo& device : SortedDevices(OpenRegistry())) {
    if (device->String(kDeviceIpKey) == address) there.push_back(device);
  }
  return there;
}

}  // namespace vox::cli
