// vox remove: forgets a device; the device itself is not asked.
#include "tools/vox/CancelWatch.h"
#include "tools/vox/DeviceChoice.h"
#include "tools/vox/DeviceText.h"
#include "tools/vox/KnownDevices.h"
#include "tools/vox/Output.h"
#include "tools/vox/Premises.h"
#include "tools/vox/Verbs.h"

namespace vox::cli {

void RunRemove(const RemoveOptions& options) {
  CancelWatch watch;
  const Premises premises(options.device.with, false, watch);
  premises.RememberVirtual();
  const DeviceInfo device = FindRemembered(options.device.name).remembered;
  BeforeSharedChange();
  watch.Finish();
  OpenRegistry().removeDevice(device->String(kDeviceIdKey).value_or(""));
  AfterChange();
  PrintOut(options.json ? JsonLine(DeviceRecord(*device))
                        : "forgotten: " + DeviceName(*device) + "\n");
}

}  // namespace vox::cli
