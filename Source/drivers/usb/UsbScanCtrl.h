// CUsbScanCtrl owns one USB connection to a scanner: it finds the device by its ids and its serial
// number, opens it and its still-image interface, and reads and writes the bulk pipes. It knows
// nothing of what goes over them.
//
//   OpenLevel   0 --UsbScanOpen--> 2 --a device was opened--> 3 --its interface too--> 4
//               0 <--UsbScanClose-- any
//
// A failed UsbScanOpen leaves OpenLevel where it stopped, and what was opened open: UsbScanClose,
// or the next UsbScanOpen, releases it. A level above 4 stands for 4: a device with a second
// still-image interface, or a second device that was tried.
//
// Pipes are numbered from 1, as the interface's endpoints come; 0 is none.
// Errors: FALSE and no more. A device that cannot be opened is told on standard output.
// Thread rule: one thread at a time. A UsbInterrupt of that thread ends the waits.
#pragma once

#include <cstdint>
#include <string>

#include "vox/platform/Export.h"
#include "vox/platform/UsbPort.h"

namespace vox {

using Boolean = std::uint8_t;  // 0 is FALSE, 1 is TRUE

// UsbScanDeviceData is what is known of the opened device.
struct UsbScanDeviceData {
  io_object_t notification;       // not used
  const std::string* deviceName;  // not used
  std::uint32_t locationID;       // see GetLocationID; 0 until the device told it
  std::uint8_t m_numPipes;        // endpoints of the interface
  // In the order of their numbers; 0 where there is none, the third and later ones are left out.
  std::uint8_t m_bulkPipeOut[2];      // the first is written to
  std::uint8_t m_bulkPipeIn[2];       // the first is read from
  std::uint8_t m_intPipeIn;           // the last one
  std::uint32_t m_maxBulkPacketSize;  // bytes, of the last bulk pipe
  std::uint32_t m_maxIntPacketSize;   // not filled
  IOUSBInterfaceInterface190* m_inf;  // the open interface; null: none
  IOUSBDeviceInterface182* d_inf;     // the open device; null: none
  Boolean is_present;                 // a device was tried
  Boolean Fax;                        // not filled
  Boolean PrintColor;                 // not filled
  char buf[512];                      // not used
};

class VOX_EXPORT CUsbScanCtrl {
 public:
  CUsbScanCtrl() = default;
  // The destructor closes nothing: the owner calls UsbScanClose.
  virtual ~CUsbScanCtrl() = default;
  CUsbScanCtrl(const CUsbScanCtrl&) = delete;
  CUsbScanCtrl& operator=(const CUsbScanCtrl&) = delete;

  // UsbScanOpen opens the attached device with these ids and this serial number. A device that
  // another program holds is tried ten times, 100 ms apart.
  // Returns: TRUE once its still-image interface and pipes are ready; FALSE otherwise, and at once,
  // with nothing changed, when the ids are not those of a supported model.
  Boolean UsbScanOpen(unsigned short vendorId, unsigned short productId, const char* serial);

  // UsbScanClose releases what is open.
  void UsbScanClose();

  // UsbScanRead reads up to `count` bytes; *read becomes what came. It ends when nothing has come
  // for timeOut ms, and after twice that time.
  // Returns: FALSE on any failure, *read being untouched.
  Boolean UsbScanRead(unsigned char* buffer, unsigned int count, unsigned int* read, int timeOut);

  // UsbScanWrite writes `count` bytes, with the same time-outs. A count of 0, where buffer may be
  // null, sends a zero-length packet.
  Boolean UsbScanWrite(unsigned char* buffer, unsigned int count, int timeOut);

  Boolean IsOnLine() const { return m_IsOnLine; }

  // GetLastError is always 0.
  std::uint32_t GetLastError() const { return m_dwLastError; }

  // SendNullPacket does nothing; UsbScanWrite(nullptr, 0, 0) sends one.
  Boolean SendNullPacket() { return 1; }

 protected:
  Boolean m_IsOnLine = 0;
  std::uint32_t m_dwLastError = 0;
  UsbScanDeviceData* const idevice = &m_deviceData;
  UsbScanDeviceData m_deviceData{};
  std::int32_t OpenLevel = 0;

 private:
  bool take_device(unsigned short vendorId, unsigned short productId, const std::string& serial);
  int DealWithDevice(io_service_t device, UsbScanDeviceData* pDeviceData);
  void DealWithInterface(io_service_t interface, UsbScanDeviceData* pDeviceData);
  static void DealWithPipes(UsbScanDeviceData* pDeviceData);
};

}  // namespace vox
