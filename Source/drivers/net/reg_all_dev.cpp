#include "vox/drivers/net/reg_all_dev.h"

#include "vox/DevicesManager.h"
#include "vox/drivers/net/searchregister.h"

namespace vox {

DeviceInfoArray reg_all_dev() {
  return reg_devices(DevicesManager::instance().knownDevices());
}

}  // namespace vox
