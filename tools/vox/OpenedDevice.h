// OpenedDevice is the device of a command: found by its name, asked what it can do, with everything
// that --virtual needs around it.
//
// Owner: the scan interface lives as long as the object. Thread rule: the main thread;
// Interface()'s Abort from any thread.
#pragma once

#include <memory>
#include <string>

#include "tools/vox/Abilities.h"
#include "tools/vox/Options.h"
#include "vox/drivers/ScanRecords.h"
#include "vox/drivers/TwainImageIF.h"

namespace vox::cli {

class CancelWatch;
class VirtualSetup;

class OpenedDevice {
 public:
  // `both_sides` is for the paper of a virtual device. Throws Failure: the device does not answer,
  // or no such device.
  OpenedDevice(const DeviceOptions& options, bool both_sides, CancelWatch& watch);
  ~OpenedDevice();
  OpenedDevice(const OpenedDevice&) = delete;
  OpenedDevice& operator=(const OpenedDevice&) = delete;

  CTwainImageIF& Interface() { return *interface_; }
  const Abilities& What() const { return abilities_; }
  const std::string& Label() const { return label_; }      // as the user named it, for messages
  const std::string& Name() const { return name_; }        // the device's own
  const std::string& Address() const { return address_; }  // dotted
  bool IsVirtual() const { return virtual_ != nullptr; }

 private:
  void ReadName();
  void ReadAbilities();

  std::string label_, address_, name_;
  std::unique_ptr<VirtualSetup> virtual_;
  std::unique_ptr<CTwainImageIF> interface_;  // goes before the virtual device does
  Abilities abilities_;
};

}  // namespace vox::cli
