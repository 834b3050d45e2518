#include "vox/drivers/usb/UsbScanCtrl.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <iterator>
#include <new>
#include <utility>

#include "vox/SupportedDevices.h"
#include "vox/drivers/usb/UsbRegistry.h"
#include "vox/platform/SystemLog.h"

namespace vox {
namespace {

constexpr int OPEN_TRIES = 10;
constexpr std::chrono::milliseconds OPEN_PAUSE(100);  // between two tries
constexpr std::uint8_t STILL_IMAGE_CLASS = 6;         // bInterfaceClass

enum OPEN_LEVEL { LEVEL_CLOSED = 0, LEVEL_MATCHING = 2 };

// plug_in makes the interface object of a registry object; null on failure.
template <class T>
T* plug_in(io_service_t service, IOUSBUserClientType type) {
  IOCFPlugInInterface* plugin = nullptr;
  const IOReturn made =
      UsbPort::Current().IOCreatePlugInInterfaceForService(service, type, &plugin);
  if (made != kIOReturnSuccess || plugin == nullptr) return nullptr;
  T* object = nullptr;
  const IOReturn got = plugin->QueryInterface(&object);
  plugin->Release();
  return got == kIOReturnSuccess ? object : nullptr;
}

// open_device opens a device, and waits for another program that holds it. Returns: whether it is
// open.
bool open_device(IOUSBDeviceInterface182* device) {
  for (int refused = 0;;) {
    const IOReturn result = device->USBDeviceOpenSeize();
    if (result == kIOReturnSuccess) return true;
    if (result != kIOReturnExclusiveAccess) {
      std::printf("ERROR: dealWithDevice: unable to open device. ret = %08x\n", result);
      return false;
    }
    std::printf("Retry");
    if (++refused == OPEN_TRIES || UsbInterrupt::Wait(OPEN_PAUSE)) return false;
  }
}

void release_interface(UsbScanDeviceData* pDeviceData) {
  auto* const interface = std::exchange(pDeviceData->m_inf, nullptr);
  if (interface == nullptr) return;
  interface->USBInterfaceClose();
  interface->Release();
}

void release_device(UsbScanDeviceData* pDeviceData) {
  auto* const device = std::exchange(pDeviceData->d_inf, nullptr);
  if (device == nullptr) return;
  device->USBDeviceClose();
  device->Release();
}

struct TIMEOUTS {
  std::uint32_t nNoData, nCompletion;  // ms
};

TIMEOUTS timeouts(int timeOut) {
  const auto time = static_cast<std::uint32_t>(std::max(timeOut, 0));
  return {time, 2 * time};
}

// append_pipe puts a pipe behind those that the table holds. Returns: false when it is full.
bool append_pipe(std::uint8_t (&pipes)[2], std::uint8_t pipe) {
  auto* const room = std::find(std::begin(pipes), std::end(pipes), 0);
  if (room == std::end(pipes)) return false;
  *room = pipe;
  return true;
}

// take_pipe enters a pipe into the tables. Returns: whether it is one that counts.
bool take_pipe(UsbScanDeviceData* pDeviceData, std::uint8_t pipe, std::uint8_t type,
               std::uint8_t direction) {
  if (type == kUSBBulk && direction == kUSBIn) return append_pipe(pDeviceData->m_bulkPipeIn, pipe);
  if (type == kUSBBulk && direction == kUSBOut)
    return append_pipe(pDeviceData->m_bulkPipeOut, pipe);
  if (type != kUSBInterrupt || direction != kUSBIn) return false;
  pDeviceData->m_intPipeIn = pipe;
  return true;
}

}  // namespace

Boolean CUsbScanCtrl::UsbScanOpen(unsigned short vendorId, unsigned short productId,
                                  const char* serial) try {
  const auto model = SupportedDevices::instance().deviceByVendorIdAndProductId(vendorId, productId);
  if (model == nullptr || serial == nullptr) return 0;
  if (OpenLevel != LEVEL_CLOSED) UsbScanClose();
  OpenLevel = LEVEL_MATCHING;
  idevice->locationID = 0;
  if (!take_device(vendorId, productId, serial)) return 0;
  m_IsOnLine = 1;
  return 1;
} catch (const std::bad_alloc&) {
  return 0;
}

// Opens the first device that can be opened, and its interface. Returns: whether there is one.
bool CUsbScanCtrl::take_device(unsigned short vendorId, unsigned short productId,
                               const std::string& serial) {
  usb_object devices;
  const USB_MATCH match = match_usb_devices(vendorId, productId, &devices);
  if (match == USB_NO_DICTIONARY)
    LogToSystem("%s: failed to create matching dictionary", "UsbScanOpen");
  if (match != USB_MATCHED) return false;
  while (const usb_object device = next_object(devices)) {
    if (!has_serial(device, serial)) continue;
    if (DealWithDevice(device.get(), idevice) == 0) break;
  }
  return idevice->m_inf != nullptr;
}

int CUsbScanCtrl::DealWithDevice(io_service_t device, UsbScanDeviceData* pDeviceData) {
  pDeviceData->is_present = 1;
  auto* const opened = plug_in<IOUSBDeviceInterface182>(device, kIOUSBDeviceUserClientTypeID);
  if (opened == nullptr) return -1;
  if (!open_device(opened)) {
    opened->Release();
    return -1;
  }
  pDeviceData->d_inf = opened;
  ++OpenLevel;
  const IOUSBFindInterfaceRequest still_image = {STILL_IMAGE_CLASS, kIOUSBFindInterfaceDontCare,
                                                 kIOUSBFindInterfaceDontCare,
                                                 kIOUSBFindInterfaceDontCare};
  std::uint32_t location = 0;
  io_iterator_t iterator = 0;
  IOReturn result = opened->GetLocationID(&location);
  if (result == kIOReturnSuccess) {
    pDeviceData->locationID = location;
    result = opened->CreateInterfaceIterator(still_image, &iterator);
  }
  if (result != kIOReturnSuccess) {
    release_device(pDeviceData);
    return -1;
  }
  const usb_object interfaces(iterator);
  while (const usb_object interface = next_object(interfaces))
    DealWithInterface(interface.get(), pDeviceData);
  return 0;
}

void CUsbScanCtrl::DealWithInterface(io_service_t interface, UsbScanDeviceData* pDeviceData) {
  auto* const opened =
      plug_in<IOUSBInterfaceInterface190>(interface, kIOUSBInterfaceUserClientTypeID);
  if (opened == nullptr) return;
  if (opened->USBInterfaceOpen() != kIOReturnSuccess) {
    opened->Release();
    return;
  }
  ++OpenLevel;
  std::uint8_t count = 0;
  const bool counted = opened->GetNumEndpoints(&count) == kIOReturnSuccess;
  if (counted) pDeviceData->m_numPipes = count;
  if (!counted || count == 0) {
    opened->USBInterfaceClose();
    opened->Release();
    return;
  }
  release_interface(pDeviceData);  // of a device with two of them the last one counts
  pDeviceData->m_inf = opened;
  DealWithPipes(pDeviceData);
}

void CUsbScanCtrl::DealWithPipes(UsbScanDeviceData* pDeviceData) {
  std::fill_n(pDeviceData->m_bulkPipeIn, std::size(pDeviceData->m_bulkPipeIn), 0);
  std::fill_n(pDeviceData->m_bulkPipeOut, std::size(pDeviceData->m_bulkPipeOut), 0);
  pDeviceData->m_intPipeIn = 0;
  pDeviceData->m_maxBulkPacketSize = 0;
  for (unsigned i = 1; i <= pDeviceData->m_numPipes; ++i) {
    const auto pipe = static_cast<std::uint8_t>(i);
    std::uint8_t direction = 0, number = 0, type = 0, interval = 0;
    std::uint16_t size = 0;
    if (pDeviceData->m_inf->GetPipeProperties(pipe, &direction, &number, &type, &size, &interval) !=
        kIOReturnSuccess) {
      release_interface(pDeviceData);
      return;
    }
    if (!take_pipe(pDeviceData, pipe, type, direction)) continue;
    if (type == kUSBBulk) pDeviceData->m_maxBulkPacketSize = size;
    pDeviceData->m_inf->ClearPipeStallBothEnds(pipe);
  }
}

Boolean CUsbScanCtrl::UsbScanRead(unsigned char* buffer, unsigned int count, unsigned int* read,
                                  int timeOut) {
  const std::uint8_t pipe = idevice->m_bulkPipeIn[0];
  if (idevice->m_inf == nullptr || pipe == 0) return 0;
  const TIMEOUTS wait = timeouts(timeOut);
  std::uint32_t size = count;
  if (idevice->m_inf->ReadPipeTO(pipe, buffer, &size, wait.nNoData, wait.nCompletion) !=
      kIOReturnSuccess)
    return 0;
  *read = size;
  return 1;
}

Boolean CUsbScanCtrl::UsbScanWrite(unsigned char* buffer, unsigned int count, int timeOut) {
  const std::uint8_t pipe = idevice->m_bulkPipeOut[0];
  if (idevice->m_inf == nullptr || pipe == 0) return 0;
  const TIMEOUTS wait = timeouts(timeOut);
  return idevice->m_inf->WritePipeTO(pipe, buffer, count, wait.nNoData, wait.nCompletion) ==
         kIOReturnSuccess;
}

void CUsbScanCtrl::UsbScanClose() {
  // What failed on the way was released there, so the pointers and not OpenLevel say what is open.
  release_interface(idevice);
  release_device(idevice);
  m_IsOnLine = 0;
  OpenLevel = LEVEL_CLOSED;
}

}  // namespace vox
