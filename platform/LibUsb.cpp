#include "vox/platform/LibUsb.h"

namespace vox {

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

IOReturn ListLibUsbDevices(LibUsbContext* context, LibUsbDevices* devices) {
  libusb_context* fresh = nullptr;
  const int made = libusb_init(&fresh);
  if (made < 0) return LibUsbResult(made);
  context->reset(fresh);
  libusb_device** list = nullptr;
  const auto listed = libusb_get_device_list(fresh, &list);
  if (listed < 0) return LibUsbResult(listed);
  devices->reset(list);
  return kIOReturnSuccess;
}

LibUsbConfig LibUsbConfigOf(libusb_device* device) {
  libusb_config_descriptor* config = nullptr;
  if (libusb_get_active_config_descriptor(device, &config) < 0) return nullptr;
  return LibUsbConfig(config);
}

}  // namespace vox
