// OpenedDevice is the device of a command, asked what it can do. A remembered device of the network
// is used without a search; that it is still the same one is seen by its MAC address. Whether one
// at USB can be used is seen before the library opens it.
//
// Owner: the scan interface lives as long as the object. Thread rule: the main thread;
// Interface()'s Abort from any thread.
#pragma once

#include <memory>
#include <string>

#include "tools/vox/Abilities.h"
#include "tools/vox/DeviceChoice.h"
#include "tools/vox/Failure.h"
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
  const std::string& Name() const { return name_; }           // the device's own; at USB, its model
  const std::string& Address() const { return target_.address; }  // dotted; empty at USB
  // AtUsb is the record of a device at USB, remembered or found there; null: it is on the network.
  const DeviceInfo& AtUsb() const { return target_.usb; }
  // Remembered is the device's record in the registry; null for one that was named by its address.
  const DeviceInfo& Remembered() const { return target_.remembered; }
  bool IsVirtual() const { return premises_.IsVirtual(); }

  // Trouble describes a failed step as DeviceFailure does; a device that was unplugged is told so.
  Failure Trouble(const std::string& what, std::uint32_t status) const;

 private:
  void OpenNetwork();
  void OpenUsb();
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
