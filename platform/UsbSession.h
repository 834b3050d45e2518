// UsbSession is one open device: its libusb context, which no other device shares, so that no
// thread ever handles another's transfers, and the interfaces it holds.
//
// The still-image interfaces are claimed when the device is opened, since only a claim tells that
// another program holds one, and stay claimed until it is closed; an interface object that opens
// such an interface uses that claim. Other interfaces are claimed while they are open. Kernel
// drivers that were bound come back when a claim ends.
//
// Thread rule: one thread at a time.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <span>
#include <vector>

#include "vox/platform/LibUsb.h"
#include "vox/platform/UsbPort.h"
#include "vox/platform/UsbRecords.h"

namespace vox {

struct UsbPipeShape {
  std::uint8_t endpoint = 0;  // its address
  std::uint8_t type = 0;      // as kUSBBulk
  std::uint16_t packet = 0;   // bytes
  std::uint8_t interval = 0;  // milliseconds
};

struct UsbInterfaceShape {
  std::uint8_t number = 0, alternate = 0;
  std::vector<UsbPipeShape> pipes;
};

class UsbSession {
 public:
  using Time = std::chrono::steady_clock::time_point;
  struct Moved {
    IOReturn result = kIOReturnSuccess;  // success: the device ended the transfer, or it is full
    std::uint32_t bytes = 0;             // also with a failure
  };

  explicit UsbSession(UsbRecord record) : record_(std::move(record)) {}
  ~UsbSession() { Close(); }
  UsbSession(const UsbSession&) = delete;
  UsbSession& operator=(const UsbSession&) = delete;

  const UsbRecord& Record() const { return record_; }
  IOReturn Open();
  void Close();
  bool IsOpen() const { return handle_ != nullptr; }

  // Interfaces gives those that the request asks for, each once.
  IOReturn Interfaces(const IOUSBFindInterfaceRequest& request,
                      std::vector<UsbInterfaceShape>* interfaces) const;
  IOReturn Take(const UsbInterfaceShape& interface);
  void GiveBack(const UsbInterfaceShape& interface);
  IOReturn ClearHalt(std::uint8_t endpoint);

  // Transfer moves bytes to or from the buffer until the transfer ends; it is cancelled at the
  // deadline and when a UsbInterrupt's descriptor is readable. Returns: Moved with
  // kIOUSBTransactionTimeout at the deadline.
  Moved Transfer(const UsbPipeShape& pipe, std::span<std::uint8_t> buffer, Time deadline);

 private:
  struct Claim {
    bool for_device = false;  // made when the device was opened
    bool in_use = false;      // by an interface object
  };

  IOReturn OpenListed();
  IOReturn ClaimStillImage(libusb_device* device);
  IOReturn MakeClaim(std::uint8_t interface);

  const UsbRecord record_;
  LibUsbContext context_;
  LibUsbHandle handle_;  // none: not open
  std::map<std::uint8_t, Claim> claims_;
};

}  // namespace vox
