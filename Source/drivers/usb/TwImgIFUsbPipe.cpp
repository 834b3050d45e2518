// The connection to a device at USB: opening and closing it, and single transfers.
#include <cstring>
#include <new>

#include "vox/SupportedDevices.h"
#include "vox/drivers/usb/TwImgIFUsb.h"
#include "vox/drivers/usb/UsbRegistry.h"

namespace vox {
namespace {

constexpr int COMMAND_MS = 300;
constexpr int NULL_PACKET_MS = 0;  // the port's own time
constexpr int READ_MS = 300;

}  // namespace

bool CTwImgIFUsb::IsOnLine(unsigned short /*wUnused*/) try {
  const auto model = SupportedDevices::instance().deviceByModelName(m_modelName);
  const PropertyValue* vendor = model ? model->Find("vendorId") : nullptr;
  const PropertyValue* product = model ? model->Find("productId") : nullptr;
  if (vendor == nullptr || product == nullptr) {
    SetIfErrorStatus(IF_ERR_STS_INTERNAL);
    return false;
  }
  usb_object devices;
  const USB_MATCH match = match_usb_devices(*vendor, *product, &devices);
  if (match == USB_NO_DICTIONARY) return false;
  while (match == USB_MATCHED) {
    const usb_object device = next_object(devices);
    if (!device) break;
    if (has_serial(device, m_serial)) return true;
  }
  SetIfErrorStatus(IF_ERR_STS_DEVICE_COMM_ERR);
  return false;
} catch (const std::bad_alloc&) {
  SetIfErrorStatus(IF_ERR_STS_MEMORY);
  return false;
}

bool CTwImgIFUsb::Open() try {
  MutexLock lock(m_pipeMutex);
  return open_device();
} catch (const std::bad_alloc&) {
  fail(IF_ERR_STS_MEMORY);
  return false;
}

bool CTwImgIFUsb::open_device() {
  if (isOpen) return true;
  const auto model = SupportedDevices::instance().deviceByModelName(m_modelName);
  if (!model) {
    fail(IF_ERR_STS_INTERNAL);
    return false;
  }
  const auto vendor = static_cast<unsigned short>(model->Integer("vendorId").value_or(0));
  const auto product = static_cast<unsigned short>(model->Integer("productId").value_or(0));
  if (!m_UsbDev.UsbScanOpen(vendor, product, m_serial.c_str())) {
    m_UsbDev.UsbScanClose();  // what was opened on the way
    fail(IF_ERR_STS_DEVICE_COMM_ERR);
    return false;
  }
  isOpen = 1;
  m_ProductId = product;
  return true;
}

bool CTwImgIFUsb::Close() {
  MutexLock lock(m_pipeMutex);
  m_bPageOpen = false;
  close_device();
  return true;
}

// The last one who needs the device closes it.
void CTwImgIFUsb::close_device() {
  if (!isOpen || m_bPageOpen || m_bInfoOpen) return;
  m_UsbDev.UsbScanClose();
  isOpen = 0;
}

void CTwImgIFUsb::hold_for_page() {
  MutexLock lock(m_pipeMutex);
  m_bPageOpen = true;
}

bool CTwImgIFUsb::is_page_open() const {
  MutexLock lock(m_pipeMutex);
  return m_bPageOpen;
}

void CTwImgIFUsb::enter_info() {
  MutexLock lock(m_pipeMutex);
  m_bInfoOpen = true;
}

void CTwImgIFUsb::leave_info() {
  MutexLock lock(m_pipeMutex);
  m_bInfoOpen = false;
  close_device();
}

int CTwImgIFUsb::product_id() const {
  MutexLock lock(m_pipeMutex);
  return m_ProductId;
}

// What a stop cut short is no error of the device's.
void CTwImgIFUsb::fail(IfErrorStatus status) {
  if (!UsbInterrupt::Wait(std::chrono::milliseconds(0))) SetIfErrorStatus(status);
}

// The descriptor of a page's abort that is still to come; none (-1) where one has been.
int CTwImgIFUsb::rising_abort() const {
  return PageStop() == PAGE_ABORT ? -1 : m_wakeAbort.Get();
}

CTwImgIFUsb::USB_READ CTwImgIFUsb::read_pipe(unsigned char* buf, unsigned int size, int ms) {
  MutexLock lock(m_pipeMutex);
  unsigned int got = 0;
  if (!isOpen || !m_UsbDev.UsbScanRead(buf, size, &got, ms)) return {false, 0};
  return {true, got};
}

bool CTwImgIFUsb::write_pipe(const void* packet, unsigned int size, int ms) {
  MutexLock lock(m_pipeMutex);
  auto* const bytes = static_cast<unsigned char*>(const_cast<void*>(packet));
  return isOpen && m_UsbDev.UsbScanWrite(bytes, size, ms);
}

bool CTwImgIFUsb::send_packet(const void* packet, unsigned int size, int ms, int msNull) {
  return write_pipe(packet, size, ms) && write_pipe(nullptr, 0, msNull);
}

bool CTwImgIFUsb::send_command(const void* packet, unsigned int size) {
  if (send_packet(packet, size, COMMAND_MS, NULL_PACKET_MS)) return true;
  fail(IF_ERR_STS_DEVICE_COMM_ERR);
  return false;
}

int CTwImgIFUsb::Read(unsigned char* buf, unsigned int size, unsigned int* read) {
  std::memset(buf, 0, size);
  const USB_READ result = read_pipe(buf, size, READ_MS);
  *read = result.size;
  return result.done ? 0 : -1;
}

}  // namespace vox
