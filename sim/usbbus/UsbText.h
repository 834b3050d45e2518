// How an emulated device looks in the file system of devices: its descriptors, and its entry in
// umockdev's text format.
//
// Sources: USB 2.0, chapter 9.6 (descriptors); umockdev(1) for the text.
// Thread rule: free functions, any thread.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "sim/usbbus/UsbModel.h"

namespace vox::sim {

// UsbDescriptors gives the device descriptor and its one configuration.
std::vector<std::uint8_t> UsbDescriptors(const UsbDescription& description);

// UsbName gives the device's name on its bus; no ports: the root hub's.
std::string UsbName(int bus, const std::vector<int>& ports);
// UsbSysPath gives its folder below the testbed.
std::string UsbSysPath(int bus, const std::vector<int>& ports);
// UsbNodePath gives its device node.
std::string UsbNodePath(int bus, int address);

std::string UsbDeviceText(const UsbDescription& description, int address);
std::string UsbHubText(int bus, const std::vector<int>& ports, int address);

}  // namespace vox::sim
