// VirtualDevice is a multi-function device on the network, in this process: an SNMP agent, the UDP
// command responder with a registration book, and the page sender that connects to the job server
// of whoever asked. Everything it sends is built here by hand from the protocols' descriptions, so
// that it shares no error with the library.
//
//     VirtualDevice device(options);
//     if (!device.Start()) { ... device.Error() ... }
//     ... device.SnmpPort(), device.CommandPort() ...
//     device.Events().WaitFor(EventKind::kJobEnded, 1, 10s);
//     device.Stop();
//
// Any number may run at once, on one address or several.
// Thread rule: Start and Stop from one thread; everything else from any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "sim/DeviceOptions.h"
#include "sim/Events.h"
#include "sim/Forecast.h"
#include "sim/RegistrationBook.h"
#include "sim/ScanInfo.h"

namespace vox::sim {

class VirtualDevice {
 public:
  explicit VirtualDevice(DeviceOptions options);
  ~VirtualDevice();  // stops
  VirtualDevice(const VirtualDevice&) = delete;
  VirtualDevice& operator=(const VirtualDevice&) = delete;

  // Start binds the ports and begins to answer. False: Error() says what failed.
  bool Start();
  // Stop ends every connection and thread, within a tenth of a second. May be called again.
  void Stop();
  const std::string& Error() const;

  // Constant from Start on.
  const std::string& Address() const;
  std::uint16_t SnmpPort() const;
  std::uint16_t CommandPort() const;

  void SetJobServerPort(std::uint16_t port);
  // SetFaults replaces all faults, with their counts; a silent device hears again.
  void SetFaults(const Faults& faults);
  // LoadFeeder replaces what lies in the feeder.
  void LoadFeeder(std::vector<Sheet> sheets);
  std::size_t SheetsLeft() const;

  // Events may be listened to; a listener must not call the device.
  EventLog& Events();
  std::vector<ClientRegistration> Registrations() const;

  // Foretell tells what the device sends for the pages of a job that is started while the feeder is
  // as it was loaded last. It must not outlive the device.
  Forecast Foretell() const;
  // What the device sends for page `page` (0 is the first) of a job that is started with `request`
  // while the feeder is as it was loaded last, faults and edit_scan_info left aside.
  ScanInfo PageInfo(const ScanInfo& request, std::size_t page) const;
  // PagesOf gives the number of pages of such a job; 0: no document.
  std::size_t PagesOf(const ScanInfo& request) const;
  // PageLines gives PageInfo().y_extent lines of LineBytes() bytes each, in the order in which they
  // are sent, white below the device's reach.
  std::vector<std::uint8_t> PageLines(const ScanInfo& request, std::size_t page) const;

  // Prepare draws and codes every page of such a job now, so that a later one is sent without
  // delay; needs cache_bytes. False when they did not fit.
  bool Prepare(const ScanInfo& request);
  // WholeBed gives a request for everything that the unit in use can reach.
  ScanInfo WholeBed(std::uint32_t resolution, std::uint32_t data_type) const;

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace vox::sim
