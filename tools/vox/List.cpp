// vox list: what is remembered; the network is asked for --online alone.
#include "tools/vox/CancelWatch.h"
#include "tools/vox/DeviceText.h"
#include "tools/vox/KnownDevices.h"
#include "tools/vox/OnlineTest.h"
#include "tools/vox/Output.h"
#include "tools/vox/Premises.h"
#include "tools/vox/Verbs.h"

namespace vox::cli {

namespace {

std::string Row(const Dictionary& device, const ListOptions& options, bool online) {
  if (!options.json)
    return DeviceLine(device, !options.online ? "" : online ? "online" : "no answer");
  Json record = DeviceRecord(device);
  if (options.online) record["online"] = online;
  return JsonLine(record);
}

}  // namespace

void RunList(const ListOptions& options) {
  CancelWatch watch;
  const Premises premises(options.with, false, watch);
  premises.RememberVirtual();
  const DevicesManager& registry = OpenRegistry();
  const DeviceInfoArray devices = SortedDevices(registry);
  std::set<std::string> online;
  if (options.online) online = OnlineIds(registry, devices);
  watch.Finish();
  std::string text;
  for (const DeviceInfo& device : devices)
    text += Row(*device, options, online.contains(device->String(kDeviceIdKey).value_or("")));
  PrintOut(text);
  if (devices.empty()) Note("no device is remembered; find some with vox discover");
}

}  // namespace vox::cli
