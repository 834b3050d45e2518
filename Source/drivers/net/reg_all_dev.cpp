#include "vox/drivers/net/reg_all_dev.h"

#include <new>

#include "vox/DevicesManager.h"
#include "vox/drivers/net/searchregister.h"

namespace vox {

DeviceInfoArray reg_all_dev() try {
  return reg_devices(DevicesManager::instance().knownDevices());
} catch (const std::bad_alloc&) {
  return {};
}

}  // namespace vox
