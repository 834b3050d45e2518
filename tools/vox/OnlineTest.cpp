#include "tools/vox/OnlineTest.h"

#include <memory>
#include <vector>

#include "tools/vox/KnownDevices.h"
#include "vox/drivers/net/searchping.h"
#include "vox/platform/Threads.h"

namespace vox::cli {

namespace {

constexpr std::size_t kAtOnce = 64;

// The registry is asked on this thread only; each interface then belongs to one thread.
DeviceInfoArray AnswerOverSnmp(const DevicesManager& registry, const DeviceInfoArray& devices) {
  std::vector<std::unique_ptr<CTwainImageIF>> interfaces;
  for (const DeviceInfo& device : devices)
    interfaces.push_back(
        registry.createInterfaceForDevice(device->String(kDeviceIdKey).value_or("")));
  std::vector<char> online(devices.size(), 0);  // not bool: each is a place of its own
  RunTogether(devices.size(), kAtOnce, [&](std::size_t i) {
    online[i] = interfaces[i] != nullptr && interfaces[i]->IsOnLine(0);
  });
  DeviceInfoArray answering;
  for (std::size_t i = 0; i < devices.size(); ++i) {
    if (online[i] != 0) answering.push_back(devices[i]);
  }
  return answering;
}

}  // namespace

std::set<std::string> OnlineIds(const DevicesManager& registry, const DeviceInfoArray& devices) {
  const bool pings = network_ping_permitted();
  if (!pings) NoteNoPings();
  std::set<std::string> ids;
  for (const DeviceInfo& device : pings
                                      ? registry.filterOnlineDevicesCancelDelegate(devices, nullptr)
                                      : AnswerOverSnmp(registry, devices))
    ids.insert(device->String(kDeviceIdKey).value_or(""));
  return ids;
}

}  // namespace vox::cli
