// Neighbourhood is a host and devices around it, each a machine of its own on one switch: the host
// is the first machine, the n-th device has the address 10.77.0.(n + 1) and the MAC address
// 02:00:00:00:00:nn.
//
// Thread rule: one thread.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include <sys/types.h>

#include "sim/VirtualDevice.h"
#include "tests/support/Lan.h"

namespace vox::test {

// net-snmp's agent on a machine, standing in for a device.
class SnmpdDevice {
 public:
  SnmpdDevice(const Machine& machine, const std::string& folder, const std::string& objects);
  ~SnmpdDevice();
  SnmpdDevice(const SnmpdDevice&) = delete;
  SnmpdDevice& operator=(const SnmpdDevice&) = delete;

 private:
  pid_t process_ = -1;
};

class Neighbourhood {
 public:
  // Room for so many devices.
  explicit Neighbourhood(std::size_t devices) : lan_(devices + 1) {}
  const std::string& Error() const { return lan_.Error(); }
  const Machine& Host() { return lan_[0]; }

  // Add puts a device on the next machine. Throws when it does not start.
  void Add(const std::string& id, sim::DeviceOptions options);
  // AddSnmpd puts net-snmp's agent there, which says these "override" lines.
  void AddSnmpd(const std::string& id, const std::string& folder, const std::string& objects);

  // The device of a name; throws where there is none.
  sim::VirtualDevice& Device(const std::string& id) { return *House(id).device; }
  std::string MacText(const std::string& id);
  // IdOf gives the name of the device with a MAC address text, or that text.
  std::string IdOf(const std::string& mac);

  void Sleep(const std::string& id);
  void Wake(const std::string& id);
  void Unplug(const std::string& id) { House(id).machine->Unplug(); }
  void Plug(const std::string& id) { House(id).machine->Plug(); }
  void Move(const std::string& id, const std::string& address);
  void Rename(const std::string& id, const std::string& name);

 private:
  struct Plot {
    Machine* machine;
    std::size_t number;
    sim::DeviceOptions options;
    std::unique_ptr<sim::VirtualDevice> device;
    std::unique_ptr<SnmpdDevice> agent;
  };
  Plot& House(const std::string& id);
  Plot& NextPlot(const std::string& id);
  static void Start(Plot& plot);

  Lan lan_;
  std::map<std::string, Plot> plots_;
};

}  // namespace vox::test
