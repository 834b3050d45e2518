// The search of all kinds of devices at once.
//
// Thread rule: any thread; a search of the network lasts at least a second.
#pragma once

#include "vox/CancelDelegate.h"
#include "vox/DeviceDictionary.h"
#include "vox/platform/Export.h"

namespace vox {

// The kinds of devices, to be combined.
enum SEARCH_KINDS : int { SEARCH_USB = 1, SEARCH_NETWORK = 2, SEARCH_ALL = 3 };

// searchDevices finds the devices of the given kinds that answer now and gives their dictionaries
// by "deviceId"; where a device at USB and one of the network have the same, the one at USB. It
// reads and changes nothing of the registry. Other bits of kinds do not matter.
// delegate: see searchNetworkDevices (drivers/net/search.h) and searchUsbDevices
//           (drivers/usb/UsbSearch.h); may be null.
VOX_EXPORT DeviceInfoDictionary searchDevices(CancelDelegate* delegate, int kinds);

}  // namespace vox
