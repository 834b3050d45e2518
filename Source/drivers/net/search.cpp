#include "vox/drivers/net/search.h"

#include <cstring>
#include <new>

#include "vox/SupportedDevices.h"
#include "vox/drivers/net/NetworkComm/NetworkCommEntry.h"
#include "vox/drivers/net/searchdevice.h"

namespace vox {
namespace {

constexpr char OID_MAC[] = "1.3.6.1.2.1.2.2.1.6.1";  // ifPhysAddress of interface 1 (RFC 1213 6)
constexpr char OID_NAME[] = "1.3.6.1.2.1.1.5.0";     // sysName (RFC 1213 6)
constexpr char OID_MODEL[] = "1.3.6.1.4.1.32473.405.1.1.1.3.0";
constexpr std::int32_t MAC_ROOM = 256;  // bytes that an answered address may have

// Graphic in the C locale, whatever the program's own is.
bool is_graphic(char c) {
  return c > 0x20 && c < 0x7F;
}

// get_bytes reads an object into data[0, size). Returns: the value's size, or -1.
template <std::size_t length>
std::int32_t get_bytes(const char* address, const char (&oid)[length], std::uint8_t* data,
                       std::int32_t size) {
  _tagMIBREQ req{};
  std::memcpy(req.oid, oid, length);
  req.dataSize = size;
  req.data = data;
  return SnmpGet(address, nullptr, &req) == NET_OK ? req.dataSize : NET_FAILED;
}

// get_text reads an object into text[0, size) as a trimmed C string; empty on failure.
template <std::size_t length>
std::int32_t get_text(const char* address, const char (&oid)[length], char* text,
                      std::int32_t size) {
  text[0] = '\0';
  // snmp2c_str puts a NUL behind the text.
  const std::int32_t got = get_bytes(address, oid, reinterpret_cast<std::uint8_t*>(text), size - 1);
  if (got < 0) return NET_FAILED;
  snmp2c_str(text, got);
  return NET_OK;
}

}  // namespace

std::int32_t get_mac(const char* address, char* text) {
  if (!text) return NET_FAILED;
  text[0] = '\0';
  std::uint8_t mac[MAC_ROOM];
  return mac_text(mac, get_bytes(address, OID_MAC, mac, MAC_ROOM), text) ? NET_OK : NET_FAILED;
}

std::int32_t get_name(const char* address, char* name, std::int32_t size) {
  if (!name || size < 1) return NET_FAILED;
  return get_text(address, OID_NAME, name, size);
}

std::int32_t get_model(char* model, std::int32_t size, const char* address) {
  if (!model || size < 1) return NET_FAILED;
  model[0] = '\0';
  if (size <= NET_VENDOR_PREFIX_SIZE) return NET_FAILED;
  const std::int32_t result =
      get_text(address, OID_MODEL, model + NET_VENDOR_PREFIX_SIZE, size - NET_VENDOR_PREFIX_SIZE);
  if (result == NET_OK) std::memcpy(model, NET_VENDOR_PREFIX, NET_VENDOR_PREFIX_SIZE);
  return result;
}

std::int32_t snmp2c_str(char* text, std::int32_t length) {
  if (!text || length < 0) return 0;
  text[length] = '\0';
  while (length > 0 && !is_graphic(text[length - 1])) text[--length] = '\0';
  return length;
}

bool is_qd7xxx(const char* model) {
  return model != nullptr && SupportedDevices::instance().isSupportedModelName(model);
}

std::int32_t get_dev_info(const std::string& address, const std::string& model,
                          DeviceInfo* device) try {
  return ask_device(address, model, device, -1);
} catch (const std::bad_alloc&) {
  return NET_FAILED;
}

DeviceInfo getNetworkDeviceInfo(bool* success, const char* address) try {
  if (success) *success = false;
  char model[NET_VENDOR_PREFIX_SIZE + NET_NAME_SIZE];
  in_addr dotted{};
  if (!net_look_up(address, &dotted)) return nullptr;
  const std::string ip = dotted_text(dotted.s_addr);
  if (get_model(model, sizeof model, ip.c_str()) != NET_OK) return nullptr;
  if (success) *success = true;
  DeviceInfo device;
  if (is_qd7xxx(model)) get_dev_info(ip, model, &device);
  return device;
} catch (const std::bad_alloc&) {
  return nullptr;
}

}  // namespace vox
