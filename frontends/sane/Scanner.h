// Scanner is a device that a frontend has opened: the library's scan interface, and what the device
// can do.
//
//   net:MAC       a remembered device, used where it was found last; if another one or nobody
//                 answers there, or none is remembered, it is searched for: see Devices::SearchFor
//   net:ADDRESS   whoever answers there; a dotted address, with or without "net:", or a host name
//   usb:SERIAL    the device at USB with that serial number
//
// Owner: the scan interface lives as long as the object. Thread rule: constructed on any thread;
// then as CTwainImageIF says.
#pragma once

#include <memory>
#include <string>

#include "frontends/sane/Devices.h"
#include "tools/vox/Abilities.h"
#include "vox/DeviceDictionary.h"
#include "vox/drivers/TwainImageIF.h"

namespace vox::sane {

class Scanner {
 public:
  // Throws cli::Failure: kCannot for a name that nobody bears and for a device that is not there,
  // kBusy, kNoPermission, and kIoError for one that stops answering meanwhile.
  Scanner(const std::string& name, Devices& devices);
  Scanner(const Scanner&) = delete;
  Scanner& operator=(const Scanner&) = delete;

  CTwainImageIF& Interface() { return *interface_; }
  const cli::Abilities& What() const { return what_; }
  bool AtUsb() const { return usb_ != nullptr; }

  // PaperInFeeder asks the device whether paper lies in its feeder; one at USB does not tell, and
  // counts as loaded. Throws cli::Failure kIoError when it does not answer.
  bool PaperInFeeder();

  // CheckUsb looks what keeps a device at USB from being used now. Throws cli::Failure: kBusy,
  // kNoPermission, kIoError for one that is gone. Nothing happens for one on the network.
  void CheckUsb() const;

 private:
  void OpenUsb(const std::string& serial, Devices& devices);
  void OpenByMac(const std::string& mac, Devices& devices);
  void OpenAt(const std::string& address);
  void ReadAbilities();

  std::unique_ptr<CTwainImageIF> interface_;
  DeviceInfo usb_;  // the record of a device at USB
  cli::Abilities what_;
};

}  // namespace vox::sane
