// What the library asks of the machine's USB: which devices are attached, and the pipes of one.
//
// The operations bear the names, shapes and result codes that IOKit gives them, on which the
// controller and the search are modelled; the Linux side stands on libusb-1.0. Tests put a fake in
// its place (Service.h), or let libusb meet an emulated bus.
//
// Two kinds of handle exist. A registry object (io_object_t) names a device, an interface or an
// iterator; it is given back with IOObjectRelease. An interface object is a plug-in, an open device
// or an open interface; it is given back with its Release(), which also closes what is still open.
//
// Nothing of the registry opens a device: names and serial numbers come from where the system keeps
// them.
//
// Thread rule: the registry's operations from any thread. One interface object is used by one
// thread at a time, and so are an open device and its interfaces together; two devices never meet.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include "vox/platform/Export.h"
#include "vox/platform/PropertyValue.h"
#include "vox/platform/Service.h"

namespace vox {

using IOReturn = std::uint32_t;
inline constexpr IOReturn kIOReturnSuccess = 0;
inline constexpr IOReturn kIOReturnError = 0xE00002BC;  // what no other code says
inline constexpr IOReturn kIOReturnNoMemory = 0xE00002BD;
inline constexpr IOReturn kIOReturnNoResources = 0xE00002BE;      // no file descriptor is left
inline constexpr IOReturn kIOReturnNoDevice = 0xE00002C0;         // unplugged, or never there
inline constexpr IOReturn kIOReturnBadArgument = 0xE00002C2;      // a pipe that does not exist
inline constexpr IOReturn kIOReturnExclusiveAccess = 0xE00002C5;  // another program holds it
inline constexpr IOReturn kIOReturnNotOpen = 0xE00002CD;
inline constexpr IOReturn kIOReturnNotPermitted = 0xE00002E2;   // this user may not open it
inline constexpr IOReturn kIOReturnAborted = 0xE00002EB;        // a UsbInterrupt ended the transfer
inline constexpr IOReturn kIOReturnNotResponding = 0xE00002ED;  // the bus failed
inline constexpr IOReturn kIOUSBPipeStalled = 0xE000404F;
inline constexpr IOReturn kIOUSBTransactionTimeout =
    0xE0004051;  // nothing, or not all, came in time

using io_object_t = std::uint32_t;  // 0: none
using io_service_t = io_object_t;
using io_iterator_t = io_object_t;

// Class and properties of attached devices.
inline constexpr char kIOUSBDeviceClassName[] = "IOUSBDevice";
inline constexpr char kUSBVendorID[] = "idVendor";                     // integer
inline constexpr char kUSBProductID[] = "idProduct";                   // integer
inline constexpr char kUSBSerialNumberString[] = "USB Serial Number";  // string
inline constexpr char kUSBVendorString[] = "USB Vendor Name";          // string
inline constexpr char kUSBProductString[] = "USB Product Name";        // string
inline constexpr char kUSBDevicePropertyLocationID[] = "locationID";   // integer, see GetLocationID
inline constexpr char kUSBDeviceNode[] = "Device Node";  // string: /dev/bus/usb/BBB/DDD

// Directions and transfer types of GetPipeProperties.
inline constexpr std::uint8_t kUSBOut = 0, kUSBIn = 1;
inline constexpr std::uint8_t kUSBBulk = 2, kUSBInterrupt = 3;

inline constexpr std::uint16_t kIOUSBFindInterfaceDontCare = 0xFFFF;

struct IOUSBFindInterfaceRequest {
  std::uint16_t bInterfaceClass;
  std::uint16_t bInterfaceSubClass;
  std::uint16_t bInterfaceProtocol;
  std::uint16_t bAlternateSetting;
};

// IOUSBInterfaceInterface190 is one interface of an open device. Pipes are numbered from 1 in the
// order of the interface's endpoints.
class IOUSBInterfaceInterface190 {
 public:
  virtual IOReturn USBInterfaceOpen() = 0;
  virtual IOReturn USBInterfaceClose() = 0;
  virtual IOReturn GetNumEndpoints(std::uint8_t* count) = 0;
  // interval: milliseconds.
  virtual IOReturn GetPipeProperties(std::uint8_t pipe, std::uint8_t* direction,
                                     std::uint8_t* number, std::uint8_t* transfer_type,
                                     std::uint16_t* max_packet_size, std::uint8_t* interval) = 0;
  virtual IOReturn ClearPipeStallBothEnds(std::uint8_t pipe) = 0;

  // ReadPipeTO reads up to *size bytes; *size becomes what came, which is less when the device sent
  // a short packet. It ends when no byte has come for no_data_ms, and when it has not ended after
  // completion_ms; 0 stands for a finite time of the port's own. Bytes that came before a time-out
  // are not lost: the read succeeds with them. What the device sends beyond *size, and what a read
  // had received before it failed otherwise, is kept for the next read of the same pipe.
  virtual IOReturn ReadPipeTO(std::uint8_t pipe, void* buffer, std::uint32_t* size,
                              std::uint32_t no_data_ms, std::uint32_t completion_ms) = 0;

  // WritePipeTO writes all size bytes; a size of 0 (buffer may be null) sends a zero-length packet.
  virtual IOReturn WritePipeTO(std::uint8_t pipe, const void* buffer, std::uint32_t size,
                               std::uint32_t no_data_ms, std::uint32_t completion_ms) = 0;
  virtual void Release() = 0;

 protected:
  ~IOUSBInterfaceInterface190() = default;
};

// IOUSBDeviceInterface182 is one device.
class IOUSBDeviceInterface182 {
 public:
  // USBDeviceOpenSeize opens the device and holds its still-image interfaces until it is closed; a
  // kernel driver of theirs is put aside as long. Returns: kIOReturnExclusiveAccess when another
  // program, or another object, holds one, kIOReturnNotPermitted when the user may not,
  // kIOReturnNoDevice when it is gone, also when it was plugged in again since.
  virtual IOReturn USBDeviceOpenSeize() = 0;
  virtual IOReturn USBDeviceClose() = 0;
  // GetLocationID: the bus number in the top byte, then the ports on the way to the device, four
  // bits a hop from the top.
  virtual IOReturn GetLocationID(std::uint32_t* location) = 0;
  virtual IOReturn CreateInterfaceIterator(const IOUSBFindInterfaceRequest& request,
                                           io_iterator_t* iterator) = 0;
  virtual void Release() = 0;

 protected:
  ~IOUSBDeviceInterface182() = default;
};

// IOCFPlugInInterface is the step between a registry object and an interface object.
class IOCFPlugInInterface {
 public:
  virtual IOReturn QueryInterface(IOUSBDeviceInterface182** device) = 0;
  virtual IOReturn QueryInterface(IOUSBInterfaceInterface190** interface) = 0;
  virtual void Release() = 0;

 protected:
  ~IOCFPlugInInterface() = default;
};

enum IOUSBUserClientType { kIOUSBDeviceUserClientTypeID, kIOUSBInterfaceUserClientTypeID };

class VOX_EXPORT UsbPort : public Service<UsbPort> {
 public:
  // IOServiceMatching gives a dictionary that asks for every object of the class; none when it
  // cannot be made. kUSBVendorID and kUSBProductID narrow it down.
  virtual std::optional<Dictionary> IOServiceMatching(const std::string& class_name) = 0;
  virtual IOReturn IOServiceGetMatchingServices(const Dictionary& matching,
                                                io_iterator_t* iterator) = 0;
  // IOIteratorNext gives the next object, which the caller releases; 0 at the end.
  virtual io_object_t IOIteratorNext(io_iterator_t iterator) = 0;
  virtual void IOObjectRelease(io_object_t object) = 0;
  // IORegistryEntryCreateCFProperty gives a property of an attached device; none when it has none.
  virtual std::optional<PropertyValue> IORegistryEntryCreateCFProperty(io_service_t entry,
                                                                       const std::string& key) = 0;
  // On success *plugin may still be null, when there is none for the object.
  virtual IOReturn IOCreatePlugInInterfaceForService(io_service_t service, IOUSBUserClientType type,
                                                     IOCFPlugInInterface** plugin) = 0;
  // Attend gives what makes the registry cheaper to ask while it lives; it may be null.
  virtual std::shared_ptr<void> Attend() { return nullptr; }

 protected:
  ~UsbPort() = default;
};

template <>
VOX_EXPORT Service<UsbPort>::Where& Service<UsbPort>::Place();

// UsbInterrupt makes a descriptor end the transfers of this thread while it lives: once fd is
// readable (an EventFd that was raised), a running transfer is cancelled and it and every later one
// give kIOReturnAborted at once. Descriptors that are in force when one is made stay in force, and
// negative ones are ignored. Bytes that a cancelled read had received are kept for the next read.
// None of this asks for memory: who is short of it can still stop.
class VOX_EXPORT UsbInterrupt {
 public:
  static constexpr std::size_t kMost = 16;  // at once on one thread; one more ends the program

  explicit UsbInterrupt(int fd);
  ~UsbInterrupt();
  UsbInterrupt(const UsbInterrupt&) = delete;
  UsbInterrupt& operator=(const UsbInterrupt&) = delete;

  // Fds are those in force on this thread, until the next one comes or goes; a port waits for them
  // beside its transfers.
  static std::span<const int> Fds();

  // Wait sleeps for the time, at most an hour, and ends early once one of them is raised.
  // Returns: whether one is.
  static bool Wait(std::chrono::milliseconds time);

 private:
  const int fd_;
};

}  // namespace vox
