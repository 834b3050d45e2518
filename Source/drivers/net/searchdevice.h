// What is made of a device's answers, and the four questions that make its dictionary. Inside the
// library only.
//
// Thread rule: any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "vox/DeviceDictionary.h"
#include "vox/drivers/net/NetworkComm/wnxsnmpmem.h"

namespace vox {

inline constexpr char NET_VENDOR_PREFIX[] = "Veltronix ";  // in front of every model name
inline constexpr std::int32_t NET_VENDOR_PREFIX_SIZE = sizeof NET_VENDOR_PREFIX - 1;

inline constexpr char OID_MODEL_COLUMN[] = "1.3.6.1.4.1.32473.405.1.1.1.3";

// answered_model gives the model that an answer to the broadcast tells, trimmed and with the vendor
// in front; nothing for an answer of another kind.
std::optional<std::string> answered_model(const snmp_simple_pdu& answer);

// mac_text writes the first six of bytes[0, size) as get_mac gives them; false when there are
// fewer. Shapes: text[0, NET_MAC_TEXT_SIZE).
bool mac_text(const std::uint8_t* bytes, std::int32_t size, char* text);

// is_number_value tells whether a value of so many bytes can be one of SNMP's 32-bit numbers.
inline bool is_number_value(std::int32_t size) {
  return size == WNXSNMP_INTEGER_SIZE;
}

// device_dictionary makes a network device's dictionary; every text in it is fit for property lists
// and JSON.
DeviceInfo device_dictionary(const std::string& address, const std::string& model,
                             const std::string& name, const std::string& mac);

// dotted_text gives an IPv4 address in network byte order as text.
std::string dotted_text(std::uint32_t address);

// ask_device is get_dev_info that a raised nStopFd (-1 none) ends at once with -1, and that throws
// std::bad_alloc.
std::int32_t ask_device(const std::string& address, const std::string& model, DeviceInfo* device,
                        int nStopFd);

}  // namespace vox
