// SNMP messages: what parses and can be built gives, built and parsed again, the same bytes; its
// flat form holds terminated texts, sizes within their buffers, and the same OIDs.
#include <algorithm>
#include <cstdlib>
#include <memory>
#include <vector>

#include "vox/drivers/net/NetworkComm/wnxsnmp.h"

namespace {

using namespace vox;
using Pdu = std::unique_ptr<snmp_pdu, decltype(&free_snmp_pdu)>;
using Bytes = std::vector<std::uint8_t>;
Bytes Built(const snmp_pdu* pdu) {
  std::uint8_t message[1536];
  std::int32_t length = sizeof message;
  return snmp_build(pdu, message, &length) == 0 ? Bytes(message, message + length) : Bytes{};
}
Pdu Parsed(const Bytes& message) {
  const auto length = static_cast<std::int32_t>(message.size());
  return Pdu(snmp_parse(message.data(), length, 0), &free_snmp_pdu);
}

// Bindings of more than 127 bytes are built with an offset, which parsing does not undo.
bool IsMoved(const snmp_pdu& pdu) {
  bool moved = false;
  for (const snmp_val_list* at = pdu.lpSnmpValList; at; at = at->lpNextSnmpValList) {
    moved = moved || at->nOidLen * 5 + at->nValSize * 2 >= 120;
  }
  return moved;
}

bool IsSound(const snmp_simple_val& value, const snmp_val_list& binding) {
  std::uint32_t arcs[128];
  std::int32_t length = sizeof value.szOid, count = 128;
  return value.nValSize >= 0 && value.nValSize <= 1535 && value.SnmpValBuf[value.nValSize] == 0 &&
         oid_string2array(value.szOid, &length, arcs, &count) == 0 && count == binding.nOidLen &&
         std::equal(arcs, arcs + count, binding.pdwOid);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Pdu pdu = Parsed(Bytes(data, data + size));
  if (!pdu) return 0;
  const Bytes built = Built(pdu.get());
  if (!built.empty() && !IsMoved(*pdu)) {
    const Pdu again = Parsed(built);
    if (!again || Built(again.get()) != built) std::abort();
  }
  snmp_simple_pdu* const simple = WNXSNMP_MallocSnmpSimplePdu(1, 1);
  if (snmp_standard2simple(pdu.get(), simple) != 0) {
    static_cast<void>(pdu.release());  // by the failed conversion
  } else if (pdu->lpSnmpValList && !IsSound(simple->lpSnmpSimpleVal[0], *pdu->lpSnmpValList)) {
    std::abort();
  }
  WNXSNMP_FreeSnmpSimplePdu(1, simple);
  return 0;
}
