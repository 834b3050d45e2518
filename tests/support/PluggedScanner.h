// PluggedScanner hangs a virtual device on the fake of the machine's USB, so that the library scans
// it in this process:
//
//   FakeUsbPort port;
//   PluggedScanner scanner(port, options);
//   CTwImgIFUsb interface("Veltronix QD7200", scanner.Serial());
//
// Thread rule: Unplug and Plug from one thread; the device from any.
#pragma once

#include <cstdint>
#include <functional>

#include "sim/UsbDevice.h"
#include "tests/support/FakeUsbPort.h"

namespace vox::test {

class PluggedScanner {
 public:
  PluggedScanner(FakeUsbPort& port, sim::DeviceOptions options);
  ~PluggedScanner();
  PluggedScanner(const PluggedScanner&) = delete;
  PluggedScanner& operator=(const PluggedScanner&) = delete;

  sim::UsbDevice& Device() { return device_; }
  const char* Serial() const { return device_.Options().usb.serial.c_str(); }
  void Unplug();
  void Plug();

 private:
  IOReturn Write(const Bytes& bytes, const FakeUsbTransfer& transfer);
  FakeUsbAnswer Read(std::uint32_t size, const FakeUsbTransfer& transfer);

  FakeUsbPort& port_;
  sim::UsbDevice device_;
  int id_ = 0;
};

}  // namespace vox::test
