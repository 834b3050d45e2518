#include "tools/vox/UsbDevice.h"

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <filesystem>

#include <unistd.h>

#include "tools/vox/KnownDevices.h"
#include "vox/SupportedDevices.h"
#include "vox/drivers/usb/UsbRegistry.h"
#include "vox/drivers/usb/UsbSearch.h"
#include "vox/platform/DescriptorRefusals.h"

namespace vox::cli {

namespace {

constexpr char kUsbPrefix[] = "usb:";
constexpr int kAttempts = 10;  // as the library makes
constexpr std::chrono::milliseconds kBetweenAttempts{100};
constexpr int kLooks = 10;
constexpr std::chrono::milliseconds kBetweenLooks{50};

// As a scan looks for it: by the ids of its model, and its serial number.
usb_object FindAttached(const Dictionary& model, const std::string& serial) {
  usb_object devices;
  if (match_usb_devices(*model.Find("vendorId"), *model.Find("productId"), &devices) != USB_MATCHED)
    return {};
  while (usb_object device = next_object(devices)) {
    if (has_serial(device, serial)) return device;
  }
  return {};
}

usb_object FindAttached(const Dictionary& device) {
  const auto model =
      SupportedDevices::instance().deviceByModelName(device.String(kDeviceModelNameKey));
  const auto serial = device.String(kDeviceSerialNumberKey);
  return model != nullptr && serial ? FindAttached(*model, *serial) : usb_object();
}

IOReturn OpenForAMoment(const usb_object& attached) {
  IOCFPlugInInterface* plugin = nullptr;
  IOReturn result = UsbPort::Current().IOCreatePlugInInterfaceForService(
      attached.get(), kIOUSBDeviceUserClientTypeID, &plugin);
  if (result != kIOReturnSuccess || plugin == nullptr) return result;
  IOUSBDeviceInterface182* device = nullptr;
  result = plugin->QueryInterface(&device);
  plugin->Release();
  if (result != kIOReturnSuccess || device == nullptr) return result;
  result = device->USBDeviceOpenSeize();
  if (result == kIOReturnSuccess) device->USBDeviceClose();
  device->Release();
  return result;
}

IOReturn TryToOpen(const usb_object& attached) {
  IOReturn result = OpenForAMoment(attached);
  for (int i = 1; i < kAttempts && result == kIOReturnExclusiveAccess; ++i) {
    if (UsbInterrupt::Wait(kBetweenAttempts)) break;
    result = OpenForAMoment(attached);
  }
  return result;
}

UsbTrouble NoDescriptors() {
  return {ExitStatus::kNoMemory, kTooFewDescriptors};
}

// HasLooked is whether a look that found nothing, and began when `refused` descriptors had been
// refused, had what it needs; the table of models, which it reads first, does not tell.
bool HasLooked(std::uint32_t refused) {
  constexpr int kOfALook = 8;
  return DescriptorRefusalsHere() == refused && HaveDescriptors(kOfALook);
}

// NotAttached is what a look found that began when `refused` descriptors had been refused.
UsbTrouble NotAttached(std::uint32_t refused) {
  if (!HasLooked(refused)) return NoDescriptors();
  return {ExitStatus::kIoError, "it is not attached; check its cable, and that it is on"};
}

UsbTrouble Forbidden(const std::string& node) {
  const std::string rule = VOX_UDEV_RULES;
  const std::string advice =
      std::filesystem::exists(rule)
          ? "plug it in again, so that " + rule + " counts, or join the group scanner (sudo " +
                "adduser $USER scanner, then log in again)"
          : "install " + rule + " (sudo cmake --install build/release --component usb) and plug " +
                "it in again; it admits who sits at this machine, and the group scanner";
  return {ExitStatus::kNoPermission, "this user may not open " + CleanText(node) + "; " + advice};
}

UsbTrouble Held(const std::string& node) {
  return {ExitStatus::kBusy, "another program holds it (fuser -v " + CleanText(node) +
                                 " names it); close that, or try again when it has finished"};
}

}  // namespace

bool IsUsbName(const std::string& device) {
  return device.rfind(kUsbPrefix, 0) == 0;
}

std::string UsbSerial(const std::string& device) {
  std::string serial = device.substr(sizeof kUsbPrefix - 1);
  if (serial.empty())
    throw UsageFailure("usb: wants a serial number, as in usb:A7K0123; vox discover shows it");
  return serial;
}

DeviceInfo AttachedDevice(const std::string& serial) {
  const std::uint32_t refused = DescriptorRefusalsHere();
  const DeviceInfoDictionary attached = searchUsbDevices(nullptr, 0);
  const auto found = attached.find(serial);
  if (found != attached.end()) return found->second;
  if (!HasLooked(refused))
    throw Failure(ExitStatus::kNoMemory, "cannot look for the serial number " + CleanText(serial) +
                                             " at USB: " + kTooFewDescriptors);
  throw Failure(ExitStatus::kIoError, "no supported device with the serial number " +
                                          CleanText(serial) + " is attached; check its cable, " +
                                          "and that it is on; vox discover shows which are");
}

bool IsAttached(const Dictionary& device) {
  return static_cast<bool>(FindAttached(device));
}

bool IsUnplugged(const Dictionary& device) {
  for (int i = 0; i < kLooks; ++i) {
    const std::uint32_t refused = DescriptorRefusalsHere();
    if (!IsAttached(device)) return DescriptorRefusalsHere() == refused;
    UsbInterrupt::Wait(kBetweenLooks);
  }
  return false;
}

std::optional<UsbTrouble> FindUsbTrouble(const Dictionary& device) {
  const auto model = device.String(kDeviceModelNameKey);
  if (!SupportedDevices::instance().isSupportedModelName(model))
    return UsbTrouble{ExitStatus::kCannot,
                      "its model, " + CleanText(model.value_or("")) + ", is not supported"};
  const std::uint32_t refused = DescriptorRefusalsHere();
  const usb_object attached = FindAttached(device);
  if (!attached) return NotAttached(refused);
  const std::string node = usb_string(attached, kUSBDeviceNode).value_or("its node");
  if (::access(node.c_str(), R_OK | W_OK) != 0 && (errno == EACCES || errno == EPERM))
    return Forbidden(node);
  switch (TryToOpen(attached)) {
    case kIOReturnExclusiveAccess:
      return Held(node);
    case kIOReturnNotPermitted:
      return Forbidden(node);
    case kIOReturnNoDevice:
      return NotAttached(refused);
    case kIOReturnNoResources:
      return NoDescriptors();
    default:
      return std::nullopt;
  }
}

}  // namespace vox::cli
