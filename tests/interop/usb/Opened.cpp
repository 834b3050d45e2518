#include "tests/interop/usb/Opened.h"

#include <chrono>
#include <utility>

#include "tests/interop/usb/BusProcess.h"

namespace vox::test {
namespace {

using Clock = std::chrono::steady_clock;

io_iterator_t Match() {
  UsbPort& port = UsbPort::Current();
  auto matching = port.IOServiceMatching(kIOUSBDeviceClassName);
  matching->Set(kUSBVendorID, Plugged{}.vendor);
  matching->Set(kUSBProductID, Plugged{}.product);
  io_iterator_t devices = 0;
  port.IOServiceGetMatchingServices(*matching, &devices);
  return devices;
}

std::string Text(io_service_t device, const char* key) {
  const auto value = UsbPort::Current().IORegistryEntryCreateCFProperty(device, key);
  return value ? value->String().value_or("(no text)") : "(none)";
}

// Query gives the object that the plug-in of the service makes, and releases the service.
template <class Made>
IOReturn Query(io_service_t service, IOUSBUserClientType type, Made** made) {
  UsbPort& port = UsbPort::Current();
  if (service == 0) return kIOReturnNoDevice;
  IOCFPlugInInterface* plugin = nullptr;
  IOReturn result = port.IOCreatePlugInInterfaceForService(service, type, &plugin);
  port.IOObjectRelease(service);
  if (result != kIOReturnSuccess) return result;
  result = plugin->QueryInterface(made);
  plugin->Release();
  return result;
}

}  // namespace

std::vector<FoundDevice> FindDevices() {
  UsbPort& port = UsbPort::Current();
  std::vector<FoundDevice> found;
  const io_iterator_t devices = Match();
  while (const io_service_t device = port.IOIteratorNext(devices)) {
    const auto location =
        port.IORegistryEntryCreateCFProperty(device, kUSBDevicePropertyLocationID);
    found.push_back({Text(device, kUSBVendorString), Text(device, kUSBProductString),
                     Text(device, kUSBSerialNumberString),
                     location ? location->Integer().value_or(-1) : -1,
                     Text(device, kUSBDeviceNode)});
    port.IOObjectRelease(device);
  }
  port.IOObjectRelease(devices);
  return found;
}

IOReturn Opened::OpenDevice() {
  const io_iterator_t devices = Match();
  const io_service_t service = UsbPort::Current().IOIteratorNext(devices);
  UsbPort::Current().IOObjectRelease(devices);
  const IOReturn made = Query(service, kIOUSBDeviceUserClientTypeID, &device_);
  return made == kIOReturnSuccess ? device_->USBDeviceOpenSeize() : made;
}

IOReturn Opened::Open() {
  IOReturn result = OpenDevice();
  if (result != kIOReturnSuccess) return result;
  io_iterator_t interfaces = 0;
  constexpr auto any = kIOUSBFindInterfaceDontCare;
  result = device_->CreateInterfaceIterator({6, any, any, any}, &interfaces);
  if (result != kIOReturnSuccess) return result;
  const io_service_t service = UsbPort::Current().IOIteratorNext(interfaces);
  UsbPort::Current().IOObjectRelease(interfaces);
  result = Query(service, kIOUSBInterfaceUserClientTypeID, &interface_);
  return result == kIOReturnSuccess ? interface_->USBInterfaceOpen() : result;
}

void Opened::CloseInterface() {
  if (auto* const interface = std::exchange(interface_, nullptr)) interface->Release();
}

void Opened::Close() {
  CloseInterface();
  if (auto* const device = std::exchange(device_, nullptr)) device->Release();
}

Opened::Got Opened::Read(std::uint32_t size, std::uint32_t no_data_ms,
                         std::uint32_t completion_ms) {
  Got got;
  got.bytes.resize(size);
  const auto start = Clock::now();
  got.result = interface_->ReadPipeTO(kIn, got.bytes.data(), &size, no_data_ms, completion_ms);
  got.milliseconds =
      std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
  got.bytes.resize(got.result == kIOReturnSuccess ? size : 0);
  return got;
}

Opened::Got Opened::Write(const std::string& bytes, std::uint32_t no_data_ms,
                          std::uint32_t completion_ms) {
  Got got;
  const auto start = Clock::now();
  got.result =
      interface_->WritePipeTO(kOut, bytes.empty() ? nullptr : bytes.data(),
                              static_cast<std::uint32_t>(bytes.size()), no_data_ms, completion_ms);
  got.milliseconds =
      std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
  return got;
}

}  // namespace vox::test
