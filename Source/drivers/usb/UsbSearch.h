// The search of the supported scanners that are attached over USB. It asks the registry of attached
// devices alone and opens none.
//
// The dictionary of a device: "type" "usb", "serialNumber" and "deviceId" its serial number,
// "modelName" its vendor's and its product's name with a blank between. Texts are made fit for a
// property list (FitForXml).
//
// Errors: a search that fails adds nothing; only a matching dictionary that cannot be made is
// logged.
// Thread rule: any thread.
#pragma once

#include "vox/CancelDelegate.h"
#include "vox/DeviceDictionary.h"
#include "vox/platform/Export.h"
#include "vox/platform/PropertyValue.h"

namespace vox {

// searchUsbDevices gives the dictionaries of the attached devices of all supported models, by
// serial number.
// delegate: asked before each model; once it is cancelled the result is what was found so far. May
//           be null.
// requestedLocationID: only the device at this place (GetLocationID in UsbPort.h) counts; 0 any.
VOX_EXPORT DeviceInfoDictionary searchUsbDevices(CancelDelegate* delegate,
                                                 unsigned long requestedLocationID);

// searchOneUsbDevice adds the attached devices with these ids (integers) to foundDevices; of two
// with the same serial number the later one stays. Devices that lack one of the three texts, or
// have something else in its place, are left out.
// Returns: how many were added, those that took another's place included.
VOX_EXPORT int searchOneUsbDevice(DeviceInfoDictionary& foundDevices, const PropertyValue& vendorId,
                                  const PropertyValue& productId,
                                  unsigned long requestedLocationID);

}  // namespace vox
