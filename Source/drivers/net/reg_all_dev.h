// Registration with every device that the registry knows.
#pragma once

#include "vox/DeviceDictionary.h"
#include "vox/platform/Export.h"

namespace vox {

// reg_all_dev runs reg_one_dev (searchregister.h) for each known device, one after the other.
// Returns: the devices that refused a wanted registration.
// Thread rule: DevicesManager's. Each device takes up to 27 s.
VOX_EXPORT DeviceInfoArray reg_all_dev();

}  // namespace vox
