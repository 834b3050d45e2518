#include "vox/platform/UsbRecords.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <span>

#include <fcntl.h>
#include <unistd.h>

#include "vox/platform/DescriptorRefusals.h"
#include "vox/platform/FileDescriptor.h"
#include "vox/platform/PropertyList.h"

namespace vox {
namespace {

constexpr std::size_t kMostPorts = 7;  // USB 3.2, 10.2: hubs are five deep
// A string descriptor holds 126 UTF-16 units, at most three bytes each in UTF-8, and a line's end.
constexpr std::size_t kLongestText = 126 * 3 + 1;

std::optional<std::string> ReadAttribute(const std::string& path) {
  const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY));
  if (!file) {
    NoteDescriptorRefusal(errno);
    return std::nullopt;
  }
  std::array<char, kLongestText> text;
  const auto length = ::read(file.Get(), text.data(), text.size());
  if (length < 0) return std::nullopt;
  std::string value(text.data(), static_cast<std::size_t>(length));
  if (const auto end = value.find('\n'); end != std::string::npos) value.resize(end);
  return value;
}

// What a device says of itself is shown to people and written to files, so it is made fit for both.
std::optional<std::string> ReadText(const std::string& path) {
  const auto text = ReadAttribute(path);
  if (!text) return std::nullopt;
  std::string clean = FitForXml(*text);
  for (char& letter : clean) {
    if (static_cast<unsigned char>(letter) < 0x20 || letter == 0x7F) letter = ' ';
  }
  if (clean.empty()) return std::nullopt;
  return clean;
}

std::string FolderOf(int bus, std::span<const std::uint8_t> ports) {
  std::string folder = "/sys/bus/usb/devices/";
  if (ports.empty()) return folder + "usb" + std::to_string(bus) + "/";
  folder += std::to_string(bus);
  for (std::size_t hop = 0; hop < ports.size(); ++hop) {
    folder += hop == 0 ? '-' : '.';
    folder += std::to_string(ports[hop]);
  }
  return folder + "/";
}

std::uint32_t LocationOf(std::uint8_t bus, std::span<const std::uint8_t> ports) {
  std::uint32_t location = static_cast<std::uint32_t>(bus) << 24;
  int shift = 20;
  for (const std::uint8_t port : ports) {
    if (shift < 0) break;
    location |= (port & 0xFu) << shift;
    shift -= 4;
  }
  return location;
}

void ReadTexts(const std::string& folder, UsbRecord* record) {
  // Another device may have come to this place since libusb looked.
  if (ReadAttribute(folder + "devnum") != std::to_string(record->address)) return;
  record->manufacturer = ReadText(folder + "manufacturer");
  record->product_name = ReadText(folder + "product");
  record->serial = ReadText(folder + "serial");
}

bool IsWanted(const Dictionary& matching, const char* key, std::uint16_t id) {
  return !matching.Contains(key) || matching.Integer(key) == id;
}

}  // namespace

IOReturn ReadUsbRecords(std::vector<UsbRecord>* records) {
  LibUsbContext context;
  LibUsbDevices devices;
  const IOReturn listed = ListLibUsbDevices(&context, &devices);
  if (listed != kIOReturnSuccess) return listed;
  for (std::size_t at = 0; devices[at] != nullptr; ++at) {
    libusb_device* const device = devices[at];
    libusb_device_descriptor descriptor{};
    if (libusb_get_device_descriptor(device, &descriptor) < 0) continue;
    std::array<std::uint8_t, kMostPorts> hops{};
    const int depth = libusb_get_port_numbers(device, hops.data(), static_cast<int>(hops.size()));
    if (depth < 0) continue;
    const auto ports = std::span(hops).first(static_cast<std::size_t>(depth));
    UsbRecord record;
    record.bus = libusb_get_bus_number(device);
    record.address = libusb_get_device_address(device);
    record.location = LocationOf(record.bus, ports);
    record.vendor = descriptor.idVendor;
    record.product = descriptor.idProduct;
    ReadTexts(FolderOf(record.bus, ports), &record);
    records->push_back(std::move(record));
  }
  return kIOReturnSuccess;
}

libusb_device* FindUsbDevice(const LibUsbDevices& devices, const UsbRecord& record) {
  for (std::size_t at = 0; devices[at] != nullptr; ++at) {
    libusb_device* const device = devices[at];
    libusb_device_descriptor descriptor{};
    if (libusb_get_bus_number(device) == record.bus &&
        libusb_get_device_address(device) == record.address &&
        libusb_get_device_descriptor(device, &descriptor) == 0 &&
        descriptor.idVendor == record.vendor && descriptor.idProduct == record.product) {
      return device;
    }
  }
  return nullptr;
}

std::optional<PropertyValue> UsbProperty(const UsbRecord& record, const std::string& key) {
  if (key == kUSBVendorID) return record.vendor;
  if (key == kUSBProductID) return record.product;
  if (key == kUSBDevicePropertyLocationID) return record.location;
  if (key == kUSBVendorString) return record.manufacturer;
  if (key == kUSBProductString) return record.product_name;
  if (key == kUSBSerialNumberString) return record.serial;
  if (key == kUSBDeviceNode) {
    std::array<char, 32> node;
    std::snprintf(node.data(), node.size(), "/dev/bus/usb/%03u/%03u", unsigned{record.bus},
                  unsigned{record.address});
    return node.data();
  }
  return std::nullopt;
}

bool MatchesUsbDevice(const UsbRecord& record, const Dictionary& matching) {
  return IsWanted(matching, kUSBVendorID, record.vendor) &&
         IsWanted(matching, kUSBProductID, record.product);
}

}  // namespace vox
