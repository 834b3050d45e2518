// What libusb hands out, given back by itself, and its results as the port's. libusb stays inside
// the library: this header is not installed.
//
// Thread rule: free functions, any thread; an object belongs to one thread at a time.
#pragma once

#include <memory>

#include <libusb.h>

#include "vox/platform/UsbPort.h"

namespace vox {

struct LibUsbGiveBack {
  void operator()(libusb_context* context) const { libusb_exit(context); }
  void operator()(libusb_device_handle* handle) const { libusb_close(handle); }
  void operator()(libusb_config_descriptor* config) const { libusb_free_config_descriptor(config); }
  void operator()(libusb_device** list) const { libusb_free_device_list(list, 1); }
  void operator()(libusb_transfer* transfer) const { libusb_free_transfer(transfer); }
};
using LibUsbContext = std::unique_ptr<libusb_context, LibUsbGiveBack>;
using LibUsbHandle = std::unique_ptr<libusb_device_handle, LibUsbGiveBack>;
using LibUsbConfig = std::unique_ptr<libusb_config_descriptor, LibUsbGiveBack>;
using LibUsbDevices = std::unique_ptr<libusb_device*[], LibUsbGiveBack>;  // ends with null
using LibUsbTransfer = std::unique_ptr<libusb_transfer, LibUsbGiveBack>;

// LibUsbResult gives what a libusb error is called here; 0 and above are success.
IOReturn LibUsbResult(long long error);

// LibUsbFailure gives what an error, below 0, is called that may come of want of file descriptors,
// which libusb has no error for: then kIOReturnNoResources.
IOReturn LibUsbFailure(long long error);

// ListLibUsbDevices looks at the bus anew, in a context of its own. kIOReturnNoResources where
// there are too few file descriptors to do that, and to open a device then.
IOReturn ListLibUsbDevices(LibUsbContext* context, LibUsbDevices* devices);

// LibUsbConfigOf gives the device's active configuration; none when it has none.
LibUsbConfig LibUsbConfigOf(libusb_device* device);

}  // namespace vox
