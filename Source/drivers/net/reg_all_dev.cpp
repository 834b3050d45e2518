#include "vox/drivers/net/reg_all_dev.h"

#include "vox/DevicesManager.h"
#include "vox/drivers/net/searchregister.h"

namespace vox {

DeviceInfoArray reg_all_dev() {
  DeviceInfoArray failed;
  for (const DeviceInfo& device : DevicesManager::instance().knownDevices()) {
    if (!reg_one_dev(device)) failed.push_back(device);
  }
  return failed;
}

}  // namespace vox
