// FakeUsbPort is the USB of a machine, in memory: attached devices that do and refuse what a test
// asks for, and books on everything that is handed out.
//
//   FakeUsbPort port;                               // in the machine's place while it lives
//   FakeUsbDevice device = StillImageDevice("SN1");
//   device.open_refusals = 3;                       // another program holds it for three tries
//   device.on_write = [](const Bytes&, const FakeUsbTransfer&) { return kIOReturnSuccess; };
//   const int id = port.Attach(device);
//   ...
//   EXPECT_EQ(port.Held(), 0);                      // nothing leaks
//
// What no code may do fails the test at once: giving something back twice, using what was given
// back, using a pipe that does not exist. UsbScript.h has the two callbacks for whole protocols.
//
// Thread rule: any thread. The callbacks run on the thread that reads or writes, with no lock held,
// and may block; a test that changes what they share guards it.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/Hex.h"
#include "vox/platform/FileDescriptor.h"
#include "vox/platform/Mutex.h"
#include "vox/platform/UsbPort.h"

namespace vox::test {

struct FakeUsbTransfer {
  std::uint8_t pipe;
  std::uint32_t no_data_ms, completion_ms;
};

// FakeUsbAnswer is what the device sends at a read: one transfer, as if a short packet ended it.
// What is longer than the read is kept for the next ones, which then ask nobody. Bytes beside
// kIOUSBTransactionTimeout are delivered; bytes beside another error are kept for the next read.
// Clearing the pipe drops what was kept.
struct FakeUsbAnswer {
  IOReturn result = kIOReturnSuccess;
  Bytes bytes = {};
  // The device says nothing: the read waits until the time-out, a UsbInterrupt or the unplugging
  // ends it. A time-out of 0 stands for 10 s.
  bool silent = false;
};

using FakeUsbWrite = std::function<IOReturn(const Bytes&, const FakeUsbTransfer&)>;
using FakeUsbClear = std::function<void(std::uint8_t pipe)>;
using FakeUsbRead = std::function<FakeUsbAnswer(std::uint32_t size, const FakeUsbTransfer&)>;

struct FakeUsbEndpoint {
  std::uint8_t direction, transfer_type;
  std::uint16_t max_packet_size = 512;
  IOReturn properties = kIOReturnSuccess;  // of GetPipeProperties
};

struct FakeUsbInterface {
  std::uint8_t interface_class = 6, subclass = 1, protocol = 1, alternate = 0;
  std::vector<FakeUsbEndpoint> endpoints;
  bool no_plugin = false;                     // success, and a null pointer
  bool no_object = false;                     // the same of QueryInterface
  IOReturn plugin = kIOReturnSuccess;         // of IOCreatePlugInInterfaceForService
  IOReturn query = kIOReturnSuccess;          // of QueryInterface
  IOReturn open = kIOReturnSuccess;           // of USBInterfaceOpen
  IOReturn num_endpoints = kIOReturnSuccess;  // of GetNumEndpoints
};

struct FakeUsbDevice {
  Dictionary properties;  // of the registry; leave one out, or give it another type
  std::uint32_t location = 0;
  std::vector<FakeUsbInterface> interfaces;
  FakeUsbWrite on_write;  // without it bytes are taken and forgotten
  FakeUsbRead on_read;    // without it the device is silent
  FakeUsbClear on_clear;  // of ClearPipeStallBothEnds
  int open_refusals = 0;  // how often USBDeviceOpenSeize says kIOReturnExclusiveAccess first
  bool no_plugin = false, no_object = false;
  IOReturn plugin = kIOReturnSuccess;
  IOReturn query = kIOReturnSuccess;
  IOReturn open = kIOReturnSuccess;
  IOReturn get_location = kIOReturnSuccess;
  IOReturn interface_iterator = kIOReturnSuccess;
};
inline constexpr int kAlwaysRefused = std::numeric_limits<int>::max();

// StillImageDevice gives a supported device, "Veltronix" "QD7200", with one still-image interface:
// pipe 1 bulk in, pipe 2 bulk out, pipe 3 interrupt in.
inline constexpr std::uint16_t kFakeUsbVendor = 0x5658, kFakeUsbProduct = 0x1520;
FakeUsbDevice StillImageDevice(const std::string& serial, std::uint32_t location = 0x01100000);

// One operation, in the platform's name, and what of this goes with it.
struct FakeUsbCall {
  std::string name;
  std::uint8_t pipe = 0;
  Bytes bytes = {};        // that were written, or delivered
  std::uint32_t size = 0;  // that was to be written or read
  std::uint32_t no_data_ms = 0, completion_ms = 0;
  std::chrono::steady_clock::time_point when = {};
};

class FakeUsbPort final : public UsbPort {
 public:
  FakeUsbPort();
  ~FakeUsbPort();

  // Attach plugs a device in, with idVendor, idProduct and the rest as its properties say.
  // Returns: what names it here.
  int Attach(FakeUsbDevice device) VOX_EXCLUDES(mutex_);
  // Detach unplugs it: what is open of it gives kIOReturnNoDevice, and a silent read ends.
  void Detach(int id) VOX_EXCLUDES(mutex_);

  // Refusals of the registry itself; set them while nobody asks.
  bool no_matching = false;              // IOServiceMatching gives none
  IOReturn services = kIOReturnSuccess;  // of IOServiceGetMatchingServices

  // Held counts what was handed out and not given back.
  int Held() const { return HeldRegistry() + HeldInterfaces(); }
  int HeldRegistry() const VOX_EXCLUDES(mutex_);
  int HeldInterfaces() const VOX_EXCLUDES(mutex_);
  // Devices and interfaces that are open now.
  int OpenDevices() const VOX_EXCLUDES(mutex_);
  int OpenInterfaces() const VOX_EXCLUDES(mutex_);

  std::vector<FakeUsbCall> Calls() const VOX_EXCLUDES(mutex_);
  int Count(const std::string& name) const VOX_EXCLUDES(mutex_);
  std::vector<FakeUsbCall> CallsOf(const std::string& name) const VOX_EXCLUDES(mutex_);

  std::optional<Dictionary> IOServiceMatching(const std::string& class_name) override;
  IOReturn IOServiceGetMatchingServices(const Dictionary& matching,
                                        io_iterator_t* iterator) override;
  io_object_t IOIteratorNext(io_iterator_t iterator) override;
  void IOObjectRelease(io_object_t object) override;
  std::optional<PropertyValue> IORegistryEntryCreateCFProperty(io_service_t entry,
                                                               const std::string& key) override;
  IOReturn IOCreatePlugInInterfaceForService(io_service_t service, IOUSBUserClientType type,
                                             IOCFPlugInInterface** plugin) override;

 private:
  struct Attached;  // a device
  struct Entry;     // a registry object
  class Handed;     // what all interface objects share
  class PlugIn;
  class Device;
  class Interface;
  using AttachedPtr = std::shared_ptr<Attached>;

  void Log(FakeUsbCall call) VOX_REQUIRES(mutex_);
  io_object_t HandOut(Entry entry) VOX_REQUIRES(mutex_);
  Entry* Find(io_object_t object, const char* user) VOX_REQUIRES(mutex_);
  template <class T>
  T* Keep(std::unique_ptr<T> object) VOX_REQUIRES(mutex_);

  mutable Mutex mutex_;
  std::map<int, AttachedPtr> devices_ VOX_GUARDED_BY(mutex_);
  std::map<io_object_t, std::shared_ptr<Entry>> entries_ VOX_GUARDED_BY(mutex_);
  // Also those that were given back, so that their use is seen.
  std::vector<std::unique_ptr<Handed>> handed_ VOX_GUARDED_BY(mutex_);
  std::vector<FakeUsbCall> calls_ VOX_GUARDED_BY(mutex_);
  int last_device_ VOX_GUARDED_BY(mutex_) = 0;
  io_object_t last_object_ VOX_GUARDED_BY(mutex_) = 0;
  const Replaced in_place_;
};

}  // namespace vox::test
