// Which remembered device a DEVICE of the command line means.
//
// Thread rule: pure functions, but for FindDevice, which is the main thread's.
#pragma once

#include <optional>
#include <string>

#include "vox/DeviceDictionary.h"

namespace vox::cli {

// MatchDevices gives the devices that `text` may mean: those whose id, name or address it is, or,
// at USB, the serial number or the model with or without the maker's name; else those of which one
// of these begins with it. Capitals count as small letters. Empty text means none.
DeviceInfoArray MatchDevices(const DeviceInfoArray& known, const std::string& text);

// ChooseDevice gives the one device that `text` means. Throws Failure 4: no device, with what to
// do; several, with their names.
DeviceInfo ChooseDevice(const DeviceInfoArray& known, const std::string& text);

// UsualDevice is the device when none was named: the only one, else the one used last. Throws
// Failure 4.
DeviceInfo UsualDevice(const DeviceInfoArray& known, const std::optional<std::string>& last_used);

// DeviceTarget is the device of a command.
struct DeviceTarget {
  std::string label;         // for messages
  std::string address;       // dotted; empty at USB
  DeviceInfo remembered;     // null for one that was named by net:ADDRESS, or is not remembered
  DeviceInfo usb = nullptr;  // of a device at USB, what is remembered of it or was found there
};

// FindDevice gives the device that DEVICE names; empty is one that was left out. A serial number
// that is not remembered is looked for at USB. Throws Failure.
DeviceTarget FindDevice(const std::string& name);

// TargetOf gives a remembered device as that of a command. Throws Failure 4: its type is unknown,
// or its record lacks the address, or, at USB, the model or the serial number.
DeviceTarget TargetOf(const DeviceInfo& device);

// FindRemembered is FindDevice for commands about what is remembered: net:ADDRESS is the remembered
// device with that address, usb:SERIAL the one at USB with that serial number.
DeviceTarget FindRemembered(const std::string& name);

// RememberedAt gives the remembered devices with that dotted address: several, where an address
// passed from one device to another.
DeviceInfoArray RememberedAt(const std::string& address);

}  // namespace vox::cli
