// DeviceMib fills an agent with every object that a host reads to learn about the device: the
// system group, the first interface's address (RFC 1213), and the private objects under
// 1.3.6.1.4.1.32473.
//
// Thread rule: as SnmpAgent.
#pragma once

#include <functional>
#include <string>

#include "sim/DeviceOptions.h"
#include "sim/SnmpAgent.h"

namespace vox::sim {

struct DeviceMibHooks {
  std::function<bool()> feeder_loaded;  // whether paper lies in the feeder, asked at each read
};

// AddDeviceObjects adds the objects of a device; name, contact and location may be written, and
// what is written is kept by the agent.
void AddDeviceObjects(SnmpAgent& agent, const DeviceOptions& options, const DeviceMibHooks& hooks);

// UnitsOf gives the device's units in the order of the tables: the flatbed, then the feeder.
struct UnitRow {
  const UnitOptions* unit;
  bool is_feeder;
};
std::vector<UnitRow> UnitsOf(const DeviceOptions& options);

}  // namespace vox::sim
