// Devices at USB, as commands name them and find them attached. Nothing here keeps a device open.
//
// Thread rule: any thread.
#pragma once

#include <optional>
#include <string>

#include "tools/vox/Failure.h"
#include "vox/DeviceDictionary.h"

namespace vox::cli {

// IsUsbName tells whether a DEVICE has the form usb:SERIAL, and UsbSerial gives its serial number.
// Throws Failure 64 for an empty one.
bool IsUsbName(const std::string& device);
std::string UsbSerial(const std::string& device);

// AttachedDevice gives the attached device with that serial number. Throws Failure: 9 where there
// is none, 10 where file descriptors were too few to look.
DeviceInfo AttachedDevice(const std::string& serial);

// IsAttached tells whether the device of a record is attached now, and was seen: a refusal
// (DescriptorRefusals.h) may have kept it from being.
bool IsAttached(const Dictionary& device);

// IsUnplugged tells whether it is gone, of a device that has just failed, which the machine may
// take half a second to notice.
bool IsUnplugged(const Dictionary& device);

// UsbTrouble is what keeps a device from being used: the reason goes behind "cannot ...: ".
struct UsbTrouble {
  ExitStatus status;
  std::string reason;
};

// FindUsbTrouble looks whether this user can use the device of a record now, and opens it for a
// moment. One that another program holds is tried again for a second. Returns: nothing when it can
// be used, or when only using it will tell.
std::optional<UsbTrouble> FindUsbTrouble(const Dictionary& device);

}  // namespace vox::cli
