#include "vox/platform/LibUsb.h"

#include "vox/platform/DescriptorRefusals.h"

namespace vox {
namespace {

// libusb keeps an event, a timer and two of its monitor of devices, opens one more at a time to
// read of a device what it is, and one for a device that is opened. Where those run out it leaves
// devices out, and tells nobody.
constexpr int kDescriptorsOfLibUsb = 8;

}  // namespace

IOReturn LibUsbResult(long long error) {
  if (error >= 0) return kIOReturnSuccess;
  switch (error) {
    case LIBUSB_ERROR_ACCESS:
      return kIOReturnNotPermitted;
    case LIBUSB_ERROR_NO_DEVICE:
      return kIOReturnNoDevice;
    case LIBUSB_ERROR_NOT_FOUND:
    case LIBUSB_ERROR_INVALID_PARAM:
      return kIOReturnBadArgument;
    case LIBUSB_ERROR_BUSY:
      return kIOReturnExclusiveAccess;
    case LIBUSB_ERROR_TIMEOUT:
      return kIOUSBTransactionTimeout;
    case LIBUSB_ERROR_PIPE:
      return kIOUSBPipeStalled;
    case LIBUSB_ERROR_NO_MEM:
      return kIOReturnNoMemory;
    case LIBUSB_ERROR_IO:
    case LIBUSB_ERROR_OVERFLOW:
      return kIOReturnNotResponding;
    default:
      return kIOReturnError;
  }
}

IOReturn LibUsbFailure(long long error) {
  return HaveDescriptors(1) ? LibUsbResult(error) : kIOReturnNoResources;
}

IOReturn ListLibUsbDevices(LibUsbContext* context, LibUsbDevices* devices) {
  if (!HaveDescriptors(kDescriptorsOfLibUsb)) return kIOReturnNoResources;
  libusb_context* fresh = nullptr;
  const int made = libusb_init(&fresh);
  if (made < 0) return LibUsbFailure(made);
  context->reset(fresh);
  libusb_device** list = nullptr;
  const auto listed = libusb_get_device_list(fresh, &list);
  if (listed < 0) return LibUsbFailure(listed);
  devices->reset(list);
  return kIOReturnSuccess;
}

LibUsbConfig LibUsbConfigOf(libusb_device* device) {
  libusb_config_descriptor* config = nullptr;
  if (libusb_get_active_config_descriptor(device, &config) < 0) return nullptr;
  return LibUsbConfig(config);
}

}  // namespace vox
