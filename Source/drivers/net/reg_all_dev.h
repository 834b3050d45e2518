// Registration with every device that the registry knows.
#pragma once

#include "vox/DeviceDictionary.h"
#include "vox/platform/Export.h"

namespace vox {

// reg_all_dev runs reg_one_dev (searchregister.h) for each known device, many at the same time.
// Returns: the devices that refused a wanted registration.
// Thread rule: DevicesManager's. A device takes up to 27 s.
VOX_EXPORT DeviceInfoArray reg_all_dev();

}  // namespace vox
