#include "vox/drivers/usb/UsbRegistry.h"

#include "vox/platform/PropertyList.h"

namespace vox {

USB_MATCH match_usb_devices(const PropertyValue& vendorId, const PropertyValue& productId,
                            usb_object* devices) {
  UsbPort& port = UsbPort::Current();
  auto matching = port.IOServiceMatching(kIOUSBDeviceClassName);
  if (!matching) return USB_NO_DICTIONARY;
  matching->Set(kUSBVendorID, vendorId);
  matching->Set(kUSBProductID, productId);
  io_iterator_t iterator = 0;
  if (port.IOServiceGetMatchingServices(*matching, &iterator) != kIOReturnSuccess)
    return USB_NO_SERVICES;
  *devices = usb_object(iterator);
  return USB_MATCHED;
}

usb_object next_object(const usb_object& iterator) {
  return usb_object(UsbPort::Current().IOIteratorNext(iterator.get()));
}

bool has_serial(const usb_object& device, const std::string& serial) {
  const auto own = usb_string(device, kUSBSerialNumberString);
  return own && (*own == serial || FitForXml(*own) == serial);
}

std::optional<std::string> usb_string(const usb_object& device, const char* key) {
  const auto value = UsbPort::Current().IORegistryEntryCreateCFProperty(device.get(), key);
  return value ? value->String() : std::nullopt;
}

}  // namespace vox
