// UsbUrbs is the transfers that programs have handed to one emulated device, from submitting to
// reaping, and the packets that move them.
//
// Source: the kernel's usbfs, linux/usbdevice_fs.h. Not thread-safe: UsbNode locks.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <span>

#include <umockdev.h>

#include "sim/usbbus/UsbModel.h"

struct usbdevfs_urb;

namespace vox::sim {

class UsbUrbs {
 public:
  UsbUrbs(const UsbDescription& description, UsbDeviceModel& model);

  // Each gives 0, or the negative errno that the program is to see.
  int Submit(UMockdevIoctlData* arg, const void* client);
  int Reap(UMockdevIoctlData* arg, const void* client);
  int Discard(unsigned long address, const void* client);
  int ClearHalt(std::uint8_t endpoint);

  // Pump moves packets until every endpoint waits.
  void Pump();
  // Fail ends all transfers: the device is gone.
  void Fail(int status);
  // Forget drops what a program left behind.
  void Forget(const void* client);
  // IsAnyDone: something can be reaped.
  bool IsAnyDone() const { return !done_.empty(); }

 private:
  struct Unref {
    void operator()(UMockdevIoctlData* data) const { g_object_unref(data); }
  };
  using Data = std::unique_ptr<UMockdevIoctlData, Unref>;
  struct Urb {
    Data data;
    const void* client = nullptr;
    std::size_t moved = 0;  // bytes
    bool zero_sent = false;
  };
  struct Pipe {
    UsbEndpoint endpoint;
    bool halted = false;
    std::deque<Urb> waiting;
  };

  static usbdevfs_urb& Of(const Urb& urb);
  static std::span<std::uint8_t> Buffer(const Urb& urb);
  void Finish(Urb urb, int status);
  bool MoveOne(Pipe& pipe);
  bool MoveIn(Pipe& pipe, Urb& urb, int* status);
  bool MoveOut(Pipe& pipe, Urb& urb, int* status);

  UsbDeviceModel& model_;
  std::map<std::uint8_t, Pipe> pipes_;  // by endpoint address
  std::deque<Urb> done_;
};

}  // namespace vox::sim
