// Discovery answers to dictionaries: an answer to the broadcast, then the values of a name and of a
// MAC address, each behind its length (two bytes). Properties: a model is trimmed and bears the
// vendor in front; a MAC address of six bytes or more gives its text; and a property list gives the
// dictionary back as it was, for all its texts are fit for one.
#include <cctype>
#include <cstdlib>
#include <string>
#include <vector>

#include "vox/drivers/net/NetworkComm/wnxsnmp.h"
#include "vox/drivers/net/search.h"
#include "vox/drivers/net/searchdevice.h"
#include "vox/platform/Bytes.h"
#include "vox/platform/PropertyList.h"

namespace {

using namespace vox;
using Bytes = std::vector<std::uint8_t>;

void Expect(bool holds) {
  if (!holds) std::abort();
}

// TakePiece gives a piece in a heap block of exactly its size.
Bytes TakePiece(ByteReader& reader) {
  const auto size = reader.TakeBe16();
  const auto piece = reader.Take(size ? std::min<std::size_t>(*size, reader.Left()) : 0);
  return Bytes(piece->begin(), piece->end());
}

std::string ModelOf(const Bytes& datagram) {
  snmp_pdu* const pdu = snmp_parse(datagram.data(), static_cast<std::int32_t>(datagram.size()), 1);
  snmp_simple_pdu* const answer = WNXSNMP_MallocSnmpSimplePdu(1, 1);
  std::string model;
  if (pdu && snmp_standard2simple(pdu, answer) == 0) {
    model = answered_model(*answer).value_or("");
    Expect(model.empty() || model.starts_with("Veltronix "));
    Expect(model.size() <= 10 || std::isgraph(static_cast<unsigned char>(model.back())));
    free_snmp_pdu(pdu);
  }
  WNXSNMP_FreeSnmpSimplePdu(1, answer);
  return model;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  ByteReader reader(data, size);
  const std::string model = ModelOf(TakePiece(reader));
  Bytes name = TakePiece(reader);
  name.push_back('#');  // where the NUL goes
  snmp2c_str(reinterpret_cast<char*>(name.data()), static_cast<std::int32_t>(name.size()) - 1);
  const Bytes address = TakePiece(reader);
  char mac[NET_MAC_TEXT_SIZE] = {};
  const bool has_mac = mac_text(address.data(), static_cast<std::int32_t>(address.size()), mac);
  Expect(has_mac == (address.size() >= 6) && std::string(mac).size() == (has_mac ? 17 : 0));
  const DeviceInfo device =
      device_dictionary("192.0.2.1", model, reinterpret_cast<const char*>(name.data()), mac);
  Expect(device->String("deviceId") == mac && device->String("mac") == mac);
  const auto xml = PropertyListXml(PropertyValue(*device));
  Expect(xml && ParsePropertyList(*xml) == PropertyValue(*device));
  return 0;
}
