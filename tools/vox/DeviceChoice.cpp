#include "tools/vox/DeviceChoice.h"

#include <strings.h>

#include "tools/vox/DeviceText.h"
#include "tools/vox/Failure.h"
#include "tools/vox/KnownDevices.h"
#include "tools/vox/NetworkName.h"
#include "vox/UserPreferences.h"

namespace vox::cli {

namespace {

constexpr std::size_t kNamesShown = 8;  // of devices that a message lists
constexpr char kUsbPrefix[] = "usb:";

enum class Match { kNone, kBeginning, kWhole };

bool IsUsbName(const std::string& name) {
  return name.rfind(kUsbPrefix, 0) == 0;
}

Match MatchText(const std::string& whole, const std::string& text) {
  if (::strncasecmp(whole.c_str(), text.c_str(), text.size()) != 0) return Match::kNone;
  return whole.size() == text.size() ? Match::kWhole : Match::kBeginning;
}

Match MatchDevice(const Dictionary& device, const std::string& text) {
  Match best = Match::kNone;
  for (const char* key : {kDeviceIdKey, kDeviceNameKey, kDeviceIpKey}) {
    const auto value = device.String(key);
    if (value) best = std::max(best, MatchText(*value, text));
  }
  return best;
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

DeviceInfo Remembered(const std::string& name) {
  const DeviceInfoArray known = SortedDevices(OpenRegistry());
  if (!name.empty()) return ChooseDevice(known, name);
  return UsualDevice(known, UserPreferences::instance().lastScannerDeviceId());
}

DeviceInfo RememberedAtUsb(const std::string& name) {
  const std::string serial = name.substr(sizeof kUsbPrefix - 1);
  for (const DeviceInfo& device : SortedDevices(OpenRegistry())) {
    if (is_device_of_type(*device, kDeviceTypeUsb) && device->String(kDeviceIdKey) == serial)
      return device;
  }
  throw Failure(ExitStatus::kCannot, "no device at USB with the serial number of " +
                                         CleanText(name) + " is remembered; see vox list");
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
    throw Failure(ExitStatus::kCannot,
                  "no remembered device is called " + CleanText(text) +
                      "; see vox list, find it with vox discover, or name its address as in " +
                      "net:192.168.0.5");
  throw Failure(ExitStatus::kCannot, CleanText(text) + " means several devices: " +
                                         Listed(matches) + "; give more of the name, or the id");
}

DeviceInfo UsualDevice(const DeviceInfoArray& known, const std::optional<std::string>& last_used) {
  if (known.size() == 1) return known.front();
  for (const DeviceInfo& device : known) {
    if (last_used && device->String(kDeviceIdKey) == last_used) return device;
  }
  if (known.empty())
    throw Failure(ExitStatus::kCannot,
                  "which device? None is remembered: find them with vox discover, name one as in "
                  "net:192.168.0.5, or use --virtual");
  throw Failure(ExitStatus::kCannot, "which device? Name one of " + Listed(known));
}

void RefuseUsb(const std::string& name) {
  if (IsUsbName(name))
    throw Failure(ExitStatus::kCannot, CleanText(name) + ": this build of vox supports no USB " +
                                           "devices; name one of the network, as in " +
                                           "net:192.168.0.5");
}

DeviceTarget TargetOf(const DeviceInfo& device) {
  if (!is_device_of_type(*device, kDeviceTypeNetwork))
    throw Failure(ExitStatus::kCannot, DeviceName(*device) + " is no network device, and this " +
                                           "build of vox supports no others");
  if (HasBrokenAddress(*device)) throw Failure(ExitStatus::kCannot, BrokenAddressLine(*device));
  return {DeviceName(*device), *device->String(kDeviceIpKey), device};
}

DeviceTarget FindDevice(const std::string& name) {
  RefuseUsb(name);
  if (IsNetworkName(name)) return {name, NetworkAddress(name), nullptr};
  return TargetOf(Remembered(name));
}

DeviceTarget FindRemembered(const std::string& name) {
  DeviceInfo found;
  if (IsUsbName(name)) {
    found = RememberedAtUsb(name);
  } else if (IsNetworkName(name)) {
    found = RememberedAt(NetworkAddress(name));
    if (found == nullptr)
      throw Failure(ExitStatus::kCannot, "no device with the address of " + CleanText(name) +
                                             " is remembered; see vox list");
  } else {
    found = Remembered(name);
  }
  return {DeviceName(*found), found->String(kDeviceIpKey).value_or(""), found};
}

DeviceInfo RememberedAt(const std::string& address) {
  for (const DeviceInfo& device : SortedDevices(OpenRegistry())) {
    if (device->String(kDeviceIpKey) == address) return device;
  }
  return nullptr;
}

}  // namespace vox::cli
