// UsbBus is an emulated USB bus, on which programs of this machine that use libusb find devices
// that are models (UsbModel.h). It stands on umockdev: a program takes part when it runs with
//
//   LD_PRELOAD=libumockdev-preload.so.0  (before it, the run-time library of its sanitizer)
//   UMOCKDEV_DIR=<Root()>                (set in this process and what it starts)
//
// and so must the process of the bus itself (umockdev-wrapper). The programs must end before the
// bus does: umockdev aborts the others. Static and set-user-id programs cannot take part.
//
// Every device that is plugged gets an address that no other had, as on a real bus; the hubs on the
// way to it are made. https://github.com/martinpitt/umockdev
//
// Thread rule: any thread.
#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "sim/usbbus/UsbModel.h"
#include "vox/platform/FileDescriptor.h"
#include "vox/platform/Mutex.h"

namespace vox::sim {

class UsbNode;

class UsbBus {
 public:
  UsbBus();  // throws std::runtime_error without the preloaded library
  ~UsbBus();
  UsbBus(const UsbBus&) = delete;
  UsbBus& operator=(const UsbBus&) = delete;

  const std::string& Root() const { return root_; }

  // Plug attaches a device and gives its name on the bus, such as "1-4.2" for port 2 of the hub at
  // port 4 of bus 1. The model lives until the bus is gone. Throws: std::runtime_error for a
  // description that no device can have, or a port that is taken.
  std::string Plug(const UsbDescription& description, UsbDeviceModel& model) VOX_EXCLUDES(mutex_);
  // Unplug takes a device away: its transfers end, and every later call on it fails.
  void Unplug(const std::string& name) VOX_EXCLUDES(mutex_);
  // SetNodeMode sets who may open an attached device, as chmod does.
  void SetNodeMode(const std::string& name, unsigned mode) VOX_EXCLUDES(mutex_);
  // HasDriver: whether the interface's kernel driver is bound to it now.
  bool HasDriver(const std::string& name, std::size_t interface) VOX_EXCLUDES(mutex_);
  // Node gives the path of an attached device; empty: no such device.
  std::string Node(const std::string& name) VOX_EXCLUDES(mutex_);

 private:
  struct Testbed;  // umockdev's objects
  using NodePtr = std::shared_ptr<UsbNode>;

  void AddHubs(const UsbDescription& description) VOX_REQUIRES(mutex_);
  NodePtr Find(const std::string& name) VOX_EXCLUDES(mutex_);
  void PumpWhenWoken() VOX_EXCLUDES(mutex_);

  Mutex mutex_;
  const std::unique_ptr<Testbed> testbed_ VOX_PT_GUARDED_BY(mutex_);
  const std::string root_;
  std::map<std::string, NodePtr> nodes_ VOX_GUARDED_BY(mutex_);  // the attached ones, by name
  std::vector<NodePtr> gone_ VOX_GUARDED_BY(mutex_);     // programs may still have them open
  std::map<int, int> addresses_ VOX_GUARDED_BY(mutex_);  // by bus, the last one given
  std::set<std::string> hubs_ VOX_GUARDED_BY(mutex_);
  const std::shared_ptr<EventFd> woken_ = std::make_shared<EventFd>();
  EventFd stop_;
  std::thread pump_;
};

}  // namespace vox::sim
