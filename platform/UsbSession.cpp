#include "vox/platform/UsbSession.h"

#include <algorithm>
#include <new>

namespace vox {
namespace {

constexpr std::uint8_t kStillImage = LIBUSB_CLASS_IMAGE;

bool IsAsked(std::uint16_t asked, std::uint8_t value) {
  return asked == kIOUSBFindInterfaceDontCare || asked == value;
}

bool IsAsked(const IOUSBFindInterfaceRequest& request, const libusb_interface_descriptor& setting) {
  return IsAsked(request.bInterfaceClass, setting.bInterfaceClass) &&
         IsAsked(request.bInterfaceSubClass, setting.bInterfaceSubClass) &&
         IsAsked(request.bInterfaceProtocol, setting.bInterfaceProtocol) &&
         IsAsked(request.bAlternateSetting, setting.bAlternateSetting);
}

// USB 2.0, 9.6.6: a fast device counts 125 us times a power of two, others milliseconds.
std::uint8_t Milliseconds(const libusb_endpoint_descriptor& endpoint, bool is_fast) {
  const unsigned interval = endpoint.bInterval;
  if (!is_fast || (endpoint.bmAttributes & LIBUSB_TRANSFER_TYPE_MASK) != kUSBInterrupt) {
    return endpoint.bInterval;
  }
  const unsigned frames = 1u << (std::clamp(interval, 1u, 16u) - 1);
  return static_cast<std::uint8_t>(std::clamp(frames / 8, 1u, 255u));
}

UsbInterfaceShape ShapeOf(const libusb_interface_descriptor& setting, bool is_fast) {
  UsbInterfaceShape shape{setting.bInterfaceNumber, setting.bAlternateSetting, {}};
  for (const auto& endpoint : std::span(setting.endpoint, setting.bNumEndpoints)) {
    UsbPipeShape pipe;
    pipe.endpoint = endpoint.bEndpointAddress;
    pipe.type = endpoint.bmAttributes & LIBUSB_TRANSFER_TYPE_MASK;
    pipe.packet = endpoint.wMaxPacketSize & 0x7FF;
    pipe.interval = Milliseconds(endpoint, is_fast);
    shape.pipes.push_back(pipe);
  }
  return shape;
}

std::span<const libusb_interface_descriptor> SettingsOf(const libusb_interface& interface) {
  return {interface.altsetting, static_cast<std::size_t>(std::max(interface.num_altsetting, 0))};
}

std::span<const libusb_interface> InterfacesOf(const libusb_config_descriptor& config) {
  return {config.interface, config.bNumInterfaces};
}

}  // namespace

// What failed half-way is given back when the list of devices has been: it belongs to the context.
IOReturn UsbSession::Open() {
  if (IsOpen()) return kIOReturnExclusiveAccess;
  IOReturn opened = kIOReturnNoMemory;
  try {
    opened = OpenListed();
  } catch (const std::bad_alloc&) {
    // What was opened till then is given back as well.
  }
  if (opened != kIOReturnSuccess) Close();
  return opened;
}

IOReturn UsbSession::OpenListed() {
  LibUsbDevices devices;
  const IOReturn listed = ListLibUsbDevices(&context_, &devices);
  if (listed != kIOReturnSuccess) return listed;
  libusb_device* const device = FindUsbDevice(devices, record_);
  if (device == nullptr) return kIOReturnNoDevice;
  libusb_device_handle* handle = nullptr;
  const int opened = libusb_open(device, &handle);
  if (opened < 0) return LibUsbFailure(opened);
  handle_.reset(handle);
  libusb_set_auto_detach_kernel_driver(handle, 1);
  return ClaimStillImage(device);
}

// A device without such an interface, or without a configuration, opens all the same.
IOReturn UsbSession::ClaimStillImage(libusb_device* device) {
  const LibUsbConfig config = LibUsbConfigOf(device);
  if (!config) return kIOReturnSuccess;
  for (const libusb_interface& interface : InterfacesOf(*config)) {
    for (const auto& setting : SettingsOf(interface)) {
      if (setting.bInterfaceClass != kStillImage) continue;
      if (claims_.contains(setting.bInterfaceNumber)) continue;
      const IOReturn claimed = MakeClaim(setting.bInterfaceNumber);
      if (claimed != kIOReturnSuccess) return claimed;
      claims_[setting.bInterfaceNumber].for_device = true;
    }
  }
  return kIOReturnSuccess;
}

// The claim has its entry before it is made: without memory for one it is not.
IOReturn UsbSession::MakeClaim(std::uint8_t interface) {
  const auto entry = claims_.try_emplace(interface).first;
  const int claimed = libusb_claim_interface(handle_.get(), interface);
  if (claimed < 0) claims_.erase(entry);
  return LibUsbResult(claimed);
}

void UsbSession::Close() {
  if (handle_) {
    for (const auto& [number, claim] : claims_) libusb_release_interface(handle_.get(), number);
  }
  claims_.clear();
  handle_.reset();
  context_.reset();
}

IOReturn UsbSession::Interfaces(const IOUSBFindInterfaceRequest& request,
                                std::vector<UsbInterfaceShape>* interfaces) const {
  if (!IsOpen()) return kIOReturnNotOpen;
  libusb_device* const device = libusb_get_device(handle_.get());
  const LibUsbConfig config = LibUsbConfigOf(device);
  if (!config) return kIOReturnSuccess;
  const bool is_fast = libusb_get_device_speed(device) >= LIBUSB_SPEED_HIGH;
  for (const libusb_interface& interface : InterfacesOf(*config)) {
    const auto settings = SettingsOf(interface);
    const auto setting = std::ranges::find_if(
        settings, [&](const auto& candidate) { return IsAsked(request, candidate); });
    if (setting != settings.end()) interfaces->push_back(ShapeOf(*setting, is_fast));
  }
  return kIOReturnSuccess;
}

IOReturn UsbSession::Take(const UsbInterfaceShape& interface) {
  if (!IsOpen()) return kIOReturnNotOpen;
  const auto held = claims_.find(interface.number);
  if (held != claims_.end() && held->second.in_use) return kIOReturnExclusiveAccess;
  if (held == claims_.end()) {
    const IOReturn claimed = MakeClaim(interface.number);
    if (claimed != kIOReturnSuccess) return claimed;
  }
  claims_[interface.number].in_use = true;
  if (interface.alternate == 0) return kIOReturnSuccess;
  const IOReturn set = LibUsbResult(
      libusb_set_interface_alt_setting(handle_.get(), interface.number, interface.alternate));
  if (set != kIOReturnSuccess) GiveBack(interface);
  return set;
}

void UsbSession::GiveBack(const UsbInterfaceShape& interface) {
  const auto held = claims_.find(interface.number);
  if (held == claims_.end()) return;
  held->second.in_use = false;
  if (held->second.for_device) return;
  libusb_release_interface(handle_.get(), interface.number);
  claims_.erase(held);
}

IOReturn UsbSession::ClearHalt(std::uint8_t endpoint) {
  if (!IsOpen()) return kIOReturnNotOpen;
  return LibUsbResult(libusb_clear_halt(handle_.get(), endpoint));
}

}  // namespace vox
