// BusScanners are the virtual scanners on an emulated bus, each at a port of its own, as a line of
// words asks:
//
//   PORT make WORDS   a scanner of this shape (UsbShape.h), plugged in; the one before it goes
//   PORT plug         PORT unplug         PORT reset    of the bus's side of it
//   PORT faults WORDS what goes wrong from now on; "none": nothing
//   PORT count KIND   how often an event has occurred   PORT wait KIND N  until it has; 1, or 0
//   PORT unread       bytes that a host left unread and the device gave up
//   PORT sheets       how many are left
//
// The bus must go before them. Throws: std::exception for what cannot be. Thread rule: one thread.
#pragma once

#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "sim/usbbus/UsbBus.h"
#include "sim/usbbus/UsbScannerModel.h"

namespace vox::test {

class BusScanners {
 public:
  std::string Answer(sim::UsbBus& bus, std::istringstream& words);

 private:
  struct Scanner;

  std::map<int, std::shared_ptr<Scanner>> scanners_;  // by port
  std::vector<std::shared_ptr<Scanner>> gone_;
};

}  // namespace vox::test
