// UsbNode is the device node of one emulated device: what programs ask of it with ioctl.
//
// Source: the kernel's usbfs, linux/usbdevice_fs.h.
// Thread rule: any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include <umockdev.h>

#include "sim/usbbus/UsbModel.h"
#include "sim/usbbus/UsbUrbs.h"
#include "vox/platform/FileDescriptor.h"
#include "vox/platform/Mutex.h"

namespace vox::sim {

class UsbNode {
 public:
  UsbNode(UsbDescription description, int address, UsbDeviceModel& model);

  const UsbDescription& Description() const { return description_; }
  int Address() const { return address_; }

  // MakeFile puts the node's file in place, below the testbed's root. Throws: std::runtime_error.
  void MakeFile(const std::string& root) VOX_EXCLUDES(mutex_);
  // OnIoctl answers one ioctl; false: not one of usbfs.
  bool OnIoctl(UMockdevIoctlClient* client) VOX_EXCLUDES(mutex_);
  // OnGone: the program closed the node, or ended.
  void OnGone(const void* client) VOX_EXCLUDES(mutex_);
  void Pump() VOX_EXCLUDES(mutex_);
  void Unplug() VOX_EXCLUDES(mutex_);
  bool HasDriver(std::size_t interface) VOX_EXCLUDES(mutex_);

 private:
  struct Interface {
    const void* owner = nullptr;  // the client that claimed it
    bool driver_bound = false;
  };

  int Answer(unsigned long request, UMockdevIoctlData* arg, const void* client)
      VOX_REQUIRES(mutex_);
  int AnswerOfInterface(unsigned long request, UMockdevIoctlData* arg, const void* client)
      VOX_REQUIRES(mutex_);
  int AnswerOfTransfer(unsigned long request, UMockdevIoctlData* arg, const void* client)
      VOX_REQUIRES(mutex_);
  int Claim(std::size_t interface, const void* client) VOX_REQUIRES(mutex_);
  int ClaimDetached(UMockdevIoctlData* arg, const void* client) VOX_REQUIRES(mutex_);
  int Release(std::size_t interface, const void* client) VOX_REQUIRES(mutex_);
  int DriverName(UMockdevIoctlData* arg) VOX_REQUIRES(mutex_);
  int BindDriver(UMockdevIoctlData* arg) VOX_REQUIRES(mutex_);
  void ShowState() VOX_REQUIRES(mutex_);

  const UsbDescription description_;
  const int address_;
  UsbDeviceModel& model_;

  Mutex mutex_;
  UsbUrbs urbs_ VOX_GUARDED_BY(mutex_);
  std::vector<Interface> interfaces_ VOX_GUARDED_BY(mutex_);
  FileDescriptor file_ VOX_GUARDED_BY(mutex_);
  bool unplugged_ VOX_GUARDED_BY(mutex_) = false;
};

}  // namespace vox::sim
