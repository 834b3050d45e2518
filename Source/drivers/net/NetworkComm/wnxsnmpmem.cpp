#include "vox/drivers/net/NetworkComm/wnxsnmpmem.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace vox {
namespace {

void free_bindings(snmp_val_list* binding) {
  while (binding) {
    snmp_val_list* const next = binding->lpNextSnmpValList;
    std::free(binding->pdwOid);
    std::free(binding->uniVal.pbyData);
    std::free(binding);
    binding = next;
  }
}

// zeroed gives an array; an empty one is no null pointer.
void* zeroed(std::int32_t count, std::size_t size) {
  return std::calloc(static_cast<std::size_t>(std::max(count, 1)), size);
}

}  // namespace

void* wnx_copy(const void* bytes, std::int32_t size) {
  if (size < 0 || (size > 0 && !bytes)) return nullptr;
  const auto count = static_cast<std::size_t>(size);
  auto* const copy = static_cast<std::uint8_t*>(std::malloc(count + 1));
  if (!copy) return nullptr;
  if (count > 0) std::memcpy(copy, bytes, count);
  copy[count] = 0;
  return copy;
}

snmp_pdu* get_pdu_memory() {
  return static_cast<snmp_pdu*>(std::malloc(sizeof(snmp_pdu)));
}

void free_snmp_pdu(snmp_pdu* pdu) {
  if (!pdu) return;
  free_bindings(pdu->lpSnmpValList);
  std::free(pdu->pcComName);
  std::free(pdu->pdwEntOid);
  std::free(pdu->pdwOidSrc);
  std::free(pdu->pdwOidDst);
  std::free(pdu->pdwOidContext);
  std::free(pdu);
}

snmp_simple_pdu* WNXSNMP_MallocSnmpSimplePdu(std::int32_t count, std::int32_t values) {
  if (count < 0 || values < 0) return nullptr;
  auto* const pdus = static_cast<snmp_simple_pdu*>(zeroed(count, sizeof(snmp_simple_pdu)));
  if (!pdus) return nullptr;
  for (std::int32_t i = 0; i < count; ++i) {
    pdus[i].lpSnmpSimpleVal =
        static_cast<snmp_simple_val*>(zeroed(values, sizeof(snmp_simple_val)));
    if (!pdus[i].lpSnmpSimpleVal) {
      WNXSNMP_FreeSnmpSimplePdu(i, pdus);
      return nullptr;
    }
    pdus[i].nValNum = values;
  }
  return pdus;
}

std::int32_t WNXSNMP_FreeSnmpSimplePdu(std::int32_t count, snmp_simple_pdu* pdus) {
  if (!pdus) return 0;
  for (std::int32_t i = 0; i < count; ++i) std::free(pdus[i].lpSnmpSimpleVal);
  std::free(pdus);
  return 0;
}

}  // namespace vox
