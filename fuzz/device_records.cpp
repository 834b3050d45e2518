// Any bytes as the shared settings file, loaded as the registry of devices. Property: every device
// bears the id that it is found under and the location that its keys give; a network device has its
// push flag; an interface is made only of a whole record; and what is saved is there when the
// registry loads again.
#include <cerrno>
#include <cstdint>
#include <set>
#include <string>

#include "fuzz/SettingsMachine.h"
#include "vox/DevicesManager.h"

using vox::fuzz::Expect;

namespace {

std::set<std::string> CheckedIds(const vox::DevicesManager& manager) {
  std::set<std::string> ids;
  for (const vox::DeviceInfo& info : manager.knownDevices()) {
    const auto id = info->String("deviceId");
    Expect(id && ids.insert(*id).second && manager.infoForDevice(*id) == info);
    const auto location = manager.deviceLocation(*id);
    Expect(!location || info->String("location") == location);
    const bool network = vox::is_device_of_type(*info, "network");
    Expect(!network || info->Contains("isNetworkPushEnabled"));
    const bool usb = vox::is_device_of_type(*info, "usb");
    const bool whole = (network && info->String("name") && info->String("ip")) ||
                       (usb && info->String("modelName") && info->String("serialNumber"));
    Expect((manager.createInterfaceForDevice(*id) != nullptr) == whole);
  }
  return ids;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const vox::fuzz::SettingsMachine machine;
  machine.Put(data, size);
  vox::DevicesManager& manager = vox::DevicesManager::instance();
  manager.synchronizeDevices();
  const std::set<std::string> ids = CheckedIds(manager);
  manager.saveAllDevices();
  if (vox::UserPreferences::instance().lastOutcome().error == EFBIG) return 0;  // full already
  manager.synchronizeDevices();
  Expect(CheckedIds(manager) == ids);
  return 0;
}
