#include "vox/drivers/net/search.h"

#include <cstring>

#include "vox/drivers/net/NetworkComm/NetworkCommEntry.h"

namespace vox {
namespace {

constexpr char OID_NAME[] = "1.3.6.1.2.1.1.5.0";  // sysName (RFC 1213 3.5)

// Graphic in the C locale, whatever the program's own is.
bool is_graphic(char c) {
  return c > 0x20 && c < 0x7F;
}

}  // namespace

std::int32_t get_name(const char* address, char* name, std::int32_t size) {
  if (!name || size < 1) return NET_FAILED;
  name[0] = '\0';
  _tagMIBREQ req{};
  std::memcpy(req.oid, OID_NAME, sizeof OID_NAME);
  req.dataSize = size - 1;  // snmp2c_str puts a NUL behind the text
  req.data = reinterpret_cast<std::uint8_t*>(name);
  if (SnmpGet(address, nullptr, &req) != NET_OK) return NET_FAILED;
  snmp2c_str(name, req.dataSize);
  return NET_OK;
}

std::int32_t snmp2c_str(char* text, std::int32_t length) {
  if (!text || length < 0) return 0;
  text[length] = '\0';
  while (length > 0 && !is_graphic(text[length - 1])) text[--length] = '\0';
  return length;
}

}  // namespace vox
