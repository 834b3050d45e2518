// OpenedDevice is the device of a command, asked what it can do. A remembered device is used
// without a search; that it is still the same one is seen by its MAC address.
//
// Owner: the scan interface lives as long as the object. Thread rule: the main thread;
// Interface()'s Abort from any thread.
#pragma once

#include <memory>
#include <string>

#include "tools/vox/Abilities.h"
#include "tools/vox/DeviceChoice.h"
#include "tools/vox/Premises.h"
#include "vox/drivers/ScanRecords.h"
#include "vox/drivers/TwainImageIF.h"

namespace vox::cli {

class OpenedDevice {
 public:
  // `name` is the DEVICE of the command line. `premises` must live longer. Throws Failure: the
  // device does not answer, or no such device.
  OpenedDevice(const std::string& name, const Premises& premises);
  OpenedDevice(const OpenedDevice&) = delete;
  OpenedDevice& operator=(const OpenedDevice&) = delete;

  CTwainImageIF& Interface() { return *interface_; }
  const Abilities& What() const { return abilities_; }
  const std::string& Label() const { return target_.label; }  // as the user named it, for messages
  const std::string& Name() const { return name_; }           // the device's own
  const std::string& Address() const { return target_.address; }  // dotted
  // Remembered is the device's record in the registry; null for one that was named by its address.
  const DeviceInfo& Remembered() const { return target_.remembered; }
  bool IsVirtual() const { return premises_.IsVirtual(); }

 private:
  void CheckIdentity() const;
  void ReadName();
  void ReadAbilities();

  const Premises& premises_;
  const DeviceTarget target_;
  std::string name_;
  std::unique_ptr<CTwainImageIF> interface_;
  Abilities abilities_;
};

}  // namespace vox::cli
