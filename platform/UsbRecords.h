// UsbRecord is what the system keeps of one attached device, read without opening it.
//
// Thread rule: free functions, any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "vox/platform/LibUsb.h"
#include "vox/platform/PropertyValue.h"
#include "vox/platform/UsbPort.h"

namespace vox {

struct UsbRecord {
  std::uint8_t bus = 0, address = 0;
  std::uint32_t location = 0;  // as GetLocationID gives it
  std::uint16_t vendor = 0, product = 0;
  std::optional<std::string> manufacturer, product_name, serial;  // UTF-8, without control signs
};

// ReadUsbRecords reads every attached device anew.
IOReturn ReadUsbRecords(std::vector<UsbRecord>* records);

// FindUsbDevice gives the device of the list that the record tells of; null when it is gone. A
// device that was plugged in again has another address.
libusb_device* FindUsbDevice(const LibUsbDevices& devices, const UsbRecord& record);

// UsbProperty gives a registry property of the device; none when it has none.
std::optional<PropertyValue> UsbProperty(const UsbRecord& record, const std::string& key);

// MatchesUsbDevice tells whether the device is one that the dictionary asks for.
bool MatchesUsbDevice(const UsbRecord& record, const Dictionary& matching);

}  // namespace vox
