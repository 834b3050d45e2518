#include "vox/drivers/usb/UsbSearch.h"

#include <memory>
#include <new>
#include <optional>
#include <string>

#include "vox/SupportedDevices.h"
#include "vox/drivers/usb/UsbRegistry.h"
#include "vox/platform/PropertyList.h"
#include "vox/platform/SystemLog.h"

namespace vox {
namespace {

bool is_at(const usb_object& device, unsigned long requestedLocationID) {
  const auto place = UsbPort::Current().IORegistryEntryCreateCFProperty(
      device.get(), kUSBDevicePropertyLocationID);
  const auto number = place ? place->Integer() : std::nullopt;
  return number && static_cast<unsigned long>(*number) == requestedLocationID;
}

// Null for a device that does not tell who it is.
DeviceInfo describe(const usb_object& device) {
  const auto product = usb_string(device, kUSBProductString);
  const auto serial = usb_string(device, kUSBSerialNumberString);
  const auto vendor = usb_string(device, kUSBVendorString);
  if (!product || !serial || !vendor) return nullptr;
  const std::string id = FitForXml(*serial);
  return std::make_shared<Dictionary>(
      Dictionary{{kDeviceTypeKey, kDeviceTypeUsb},
                 {kDeviceSerialNumberKey, id},
                 {kDeviceModelNameKey, FitForXml(*vendor + " " + *product)},
                 {kDeviceIdKey, id}});
}

}  // namespace

DeviceInfoDictionary searchUsbDevices(CancelDelegate* delegate,
                                      unsigned long requestedLocationID) try {
  const auto attended = UsbPort::Current().Attend();
  DeviceInfoDictionary found;
  for (const auto& model : SupportedDevices::instance().enumerator()) {
    if (is_cancelled(delegate)) break;
    searchOneUsbDevice(found, *model->Find("vendorId"), *model->Find("productId"),
                       requestedLocationID);
  }
  return found;
} catch (const std::bad_alloc&) {
  return {};
}

int searchOneUsbDevice(DeviceInfoDictionary& foundDevices, const PropertyValue& vendorId,
                       const PropertyValue& productId, unsigned long requestedLocationID) {
  int added = 0;
  try {
    usb_object devices;
    const USB_MATCH match = match_usb_devices(vendorId, productId, &devices);
    if (match == USB_NO_DICTIONARY)
      LogToSystem("%s: Failed to create matching dict", "searchOneUsbDevice");
    if (match != USB_MATCHED) return 0;
    while (const usb_object device = next_object(devices)) {
      if (requestedLocationID != 0 && !is_at(device, requestedLocationID)) continue;
      const DeviceInfo info = describe(device);
      if (info == nullptr) continue;
      foundDevices[*info->String(kDeviceIdKey)] = info;
      ++added;
    }
  } catch (const std::bad_alloc&) {
    // What was added before stays.
  }
  return added;
}

}  // namespace vox
