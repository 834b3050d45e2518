// Opened is the first attached scanner, opened through the port, and its pipes.
//
// Thread rule: one thread at a time.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "vox/platform/UsbPort.h"

namespace vox::test {

// Found is what the registry says of the attached devices with the ids of Plugged, in its order.
struct FoundDevice {
  std::string manufacturer, product_name, serial;  // "(none)": the device has no such text
  std::int64_t location = 0;
  std::string node;
};
std::vector<FoundDevice> FindDevices();

class Opened {
 public:
  struct Got {
    IOReturn result = kIOReturnSuccess;
    std::string bytes;  // with success
    std::int64_t milliseconds = 0;
  };
  static constexpr std::uint8_t kIn = 1, kOut = 2, kEvents = 3;  // pipes of the scanner

  Opened() = default;
  ~Opened() { Close(); }
  Opened(const Opened&) = delete;
  Opened& operator=(const Opened&) = delete;

  // OpenDevice opens the first device; Open its first still-image interface as well.
  IOReturn OpenDevice();
  IOReturn Open();
  void CloseInterface();
  void Close();

  Got Read(std::uint32_t size, std::uint32_t no_data_ms = 20'000,
           std::uint32_t completion_ms = 40'000);
  Got Write(const std::string& bytes, std::uint32_t no_data_ms = 20'000,
            std::uint32_t completion_ms = 40'000);

  IOUSBDeviceInterface182* device() { return device_; }
  IOUSBInterfaceInterface190* interface() { return interface_; }

 private:
  IOUSBDeviceInterface182* device_ = nullptr;
  IOUSBInterfaceInterface190* interface_ = nullptr;
};

}  // namespace vox::test
