// UsbDevice is a multi-function device at USB, in this process: UsbScanner with everything that it
// needs. Whoever carries its pipes (a fake of the machine's USB, an emulated bus) asks Scanner().
//
//     UsbDevice device(options);
//     if (!device.Error().empty()) { ... }
//     device.Scanner().OnBulkOut(...);
//
// Thread rule: any thread.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "sim/DeviceOptions.h"
#include "sim/Events.h"
#include "sim/Forecast.h"
#include "sim/UsbScanner.h"

namespace vox::sim {

class UsbDevice {
 public:
  explicit UsbDevice(DeviceOptions options,
                     std::function<UsbScanner::Clock::time_point()> now = UsbScanner::Clock::now);
  ~UsbDevice();
  UsbDevice(const UsbDevice&) = delete;
  UsbDevice& operator=(const UsbDevice&) = delete;

  // Error says what is wrong with the options; such a device must not be used. Empty: nothing.
  const std::string& Error() const;
  const DeviceOptions& Options() const;  // settled: what was left open is filled in
  UsbScanner& Scanner();

  // SetFaults replaces all faults, with their counts; a silent device hears again.
  void SetFaults(const Faults& faults);
  // LoadFeeder replaces what lies in the feeder.
  void LoadFeeder(std::vector<Sheet> sheets);
  std::size_t SheetsLeft() const;
  // Events may be listened to; a listener must not call the device.
  EventLog& Events();
  // Foretell: as VirtualDevice does.
  Forecast Foretell() const;

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace vox::sim
