#include "sim/usbbus/UsbText.h"

#include <iomanip>
#include <sstream>

namespace vox::sim {
namespace {

constexpr std::uint8_t kHubClass = 9;

using Octets = std::vector<std::uint8_t>;

void Put16(Octets& to, unsigned value) {
  to.push_back(static_cast<std::uint8_t>(value));
  to.push_back(static_cast<std::uint8_t>(value >> 8));
}

Octets Interfaces(const UsbDescription& description) {
  Octets octets;
  std::uint8_t number = 0;
  for (const UsbInterface& interface : description.interfaces) {
    const auto endpoints = static_cast<std::uint8_t>(interface.endpoints.size());
    octets.insert(octets.end(), {9, 4, number++, 0, endpoints, interface.interface_class,
                                 interface.subclass, interface.protocol, 0});
    for (const UsbEndpoint& endpoint : interface.endpoints) {
      octets.insert(octets.end(), {7, 5, endpoint.address, endpoint.type});
      Put16(octets, endpoint.packet);
      octets.push_back(endpoint.interval);
    }
  }
  return octets;
}

Octets Descriptors(const UsbDescription& description, std::uint8_t device_class) {
  Octets octets = {18, 1, 0x00, 0x02, device_class, 0, 0, 64};
  Put16(octets, description.vendor);
  Put16(octets, description.product);
  Put16(octets, 0x0100);
  octets.insert(octets.end(), {1, 2, 3, 1});  // strings: manufacturer, product, serial number
  const Octets interfaces = Interfaces(description);
  octets.insert(octets.end(), {9, 2});
  Put16(octets, static_cast<unsigned>(9 + interfaces.size()));
  octets.insert(octets.end(),
                {static_cast<std::uint8_t>(description.interfaces.size()), 1, 0, 0x80, 50});
  octets.insert(octets.end(), interfaces.begin(), interfaces.end());
  return octets;
}

// Padded gives a number with at least so many digits.
std::string Padded(int value, int digits, bool hexadecimal = false) {
  std::ostringstream text;
  if (hexadecimal) text << std::hex;
  text << std::setw(digits) << std::setfill('0') << value;
  return text.str();
}

std::string Hex(const Octets& octets) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (const std::uint8_t octet : octets) {
    text += kDigits[octet >> 4];
    text += kDigits[octet & 15];
  }
  return text;
}

// umockdev undoes C escapes, so every byte that is not plain is written as one.
std::string Escaped(const std::string& text) {
  std::string escaped;
  for (const char letter : text) {
    const auto octet = static_cast<unsigned char>(letter);
    if (octet >= 0x20 && octet < 0x7F && octet != '\\') {
      escaped += letter;
      continue;
    }
    for (const int shift : {6, 3, 0}) {
      if (shift == 6) escaped += '\\';
      escaped += static_cast<char>('0' + ((octet >> shift) & 7));
    }
  }
  return escaped;
}

std::string Attribute(const char* name, const std::optional<std::string>& value) {
  if (!value) return {};
  return std::string("A: ") + name + "=" + Escaped(*value + "\n") + "\n";
}

std::string Text(const UsbDescription& description, int address, std::uint8_t device_class) {
  const std::string node = UsbNodePath(description.bus, address);
  const std::string vendor = Padded(description.vendor, 4, true);
  const std::string product = Padded(description.product, 4, true);
  std::ostringstream text;
  text << "P: " << UsbSysPath(description.bus, description.ports).substr(4) << '\n'
       << "N: " << node.substr(5) << '\n'
       << "E: SUBSYSTEM=usb\nE: DEVTYPE=usb_device\nE: DEVNAME=" << node << '\n'
       << "E: BUSNUM=" << Padded(description.bus, 3) << '\n'
       << "E: DEVNUM=" << Padded(address, 3) << '\n'
       << "E: PRODUCT=" << vendor << '/' << product << "/100\n"
       << Attribute("busnum", std::to_string(description.bus))
       << Attribute("devnum", std::to_string(address)) << Attribute("speed", "480")
       << Attribute("bConfigurationValue", "1") << Attribute("idVendor", vendor)
       << Attribute("idProduct", product) << Attribute("manufacturer", description.manufacturer)
       << Attribute("product", description.product_name) << Attribute("serial", description.serial)
       << "H: descriptors=" << Hex(Descriptors(description, device_class)) << "\n\n";
  return text.str();
}

}  // namespace

std::vector<std::uint8_t> UsbDescriptors(const UsbDescription& description) {
  return Descriptors(description, 0);
}

std::string UsbName(int bus, const std::vector<int>& ports) {
  if (ports.empty()) return "usb" + std::to_string(bus);
  std::string name = std::to_string(bus);
  for (std::size_t hop = 0; hop < ports.size(); ++hop) {
    name += hop == 0 ? '-' : '.';
    name += std::to_string(ports[hop]);
  }
  return name;
}

std::string UsbSysPath(int bus, const std::vector<int>& ports) {
  std::string path = "/sys/devices/pci0000:00/0000:00:14.0/" + UsbName(bus, {});
  std::vector<int> way;
  for (const int port : ports) {
    way.push_back(port);
    path += '/';
    path += UsbName(bus, way);
  }
  return path;
}

std::string UsbNodePath(int bus, int address) {
  return "/dev/bus/usb/" + Padded(bus, 3) + "/" + Padded(address, 3);
}

std::string UsbDeviceText(const UsbDescription& description, int address) {
  return Text(description, address, 0);
}

std::string UsbHubText(int bus, const std::vector<int>& ports, int address) {
  const UsbEndpoint changes = {.address = 0x81, .type = 3, .packet = 4, .interval = 12};
  UsbDescription hub = {.bus = bus, .ports = ports, .vendor = 0x1d6b, .product = 2};
  hub.interfaces = {{.interface_class = kHubClass,
                     .subclass = 0,
                     .protocol = 0,
                     .endpoints = {changes},
                     .driver = "hub"}};
  return Text(hub, address, kHubClass);
}

}  // namespace vox::sim
