// UsbScannerModel hangs a virtual device (UsbDevice.h) on the emulated bus.
//
//     UsbScannerModel model(device);
//     const std::string name = bus.Plug(model.Description(1), model);
//     ... model.Gone() is readable: a fault unplugged it, so bus.Unplug(name) ...
//
// Thread rule: as UsbDeviceModel; Gone and Description from any thread.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <thread>

#include "sim/UsbDevice.h"
#include "sim/usbbus/UsbModel.h"
#include "vox/platform/FileDescriptor.h"
#include "vox/platform/Mutex.h"

namespace vox::sim {

class UsbScannerModel final : public UsbDeviceModel {
 public:
  explicit UsbScannerModel(UsbDevice& device);
  ~UsbScannerModel() override;
  UsbScannerModel(const UsbScannerModel&) = delete;
  UsbScannerModel& operator=(const UsbScannerModel&) = delete;

  // Description is the device at this port of bus 1: one still-image interface.
  UsbDescription Description(int port) const;
  UsbDevice& Device() { return device_; }
  // Gone is raised when the device is no longer plugged and the bus does not know it yet.
  EventFd& Gone() { return gone_; }

  void OnPlugged(const std::function<void()>& wake) override VOX_EXCLUDES(mutex_);
  UsbAnswer OnPacketOut(std::uint8_t endpoint, std::span<const std::uint8_t> packet) override;
  UsbSent OnPacketIn(std::uint8_t endpoint, std::span<std::uint8_t> room) override
      VOX_EXCLUDES(mutex_);
  void OnClearHalt(std::uint8_t endpoint) override;

 private:
  using Clock = std::chrono::steady_clock;
  void WakeInTime() VOX_EXCLUDES(mutex_);

  UsbDevice& device_;
  EventFd gone_;
  Mutex mutex_;
  Condition changed_;
  std::function<void()> wake_ VOX_GUARDED_BY(mutex_);
  std::optional<Clock::time_point> again_ VOX_GUARDED_BY(mutex_);  // when the bus is to ask again
  bool stopped_ VOX_GUARDED_BY(mutex_) = false;
  std::thread waker_;
};

}  // namespace vox::sim
