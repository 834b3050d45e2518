#include "vox/drivers/net/NetworkComm/wnxsimple.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "vox/drivers/net/NetworkComm/wnxoid.h"

namespace vox {

const char* szDefaultComName = "public";

namespace {

using pdu_owner = std::unique_ptr<snmp_pdu, decltype(&free_snmp_pdu)>;

constexpr std::int32_t VALUE_MAX = WNXSNMP_VALUE_SIZE - 1;  // one byte is kept for the NUL

std::int32_t arcs_size(std::int32_t count) {
  return count * static_cast<std::int32_t>(sizeof(std::uint32_t));
}

// copy_text writes bytes[0, size) and a NUL to text[0, capacity), cut where they do not fit.
void copy_text(char* text, std::int32_t capacity, const char* bytes, std::int32_t size) {
  const auto count = static_cast<std::size_t>(std::clamp(size, 0, capacity - 1));
  if (count > 0) std::memcpy(text, bytes, count);
  text[count] = '\0';
}

bool take_community(snmp_simple_pdu* simple, snmp_pdu* pdu) {
  if (simple->szComName[0] == '\0' && szDefaultComName) {
    copy_text(simple->szComName, WNXSNMP_COMNAME_SIZE, szDefaultComName,
              static_cast<std::int32_t>(strnlen(szDefaultComName, WNXSNMP_COMNAME_SIZE)));
  }
  pdu->nComnameLen = static_cast<std::int32_t>(strnlen(simple->szComName, WNXSNMP_COMNAME_SIZE));
  if (pdu->nComnameLen >= WNXSNMP_COMNAME_SIZE) return false;
  pdu->pcComName = static_cast<char*>(wnx_copy(simple->szComName, pdu->nComnameLen));
  return pdu->pcComName != nullptr;
}

bool take_oid(const char* text, snmp_val_list* binding) {
  std::uint32_t arcs[WNXSNMP_ARCS_MAX];
  std::int32_t length = WNXSNMP_OIDTEXT_SIZE, count = WNXSNMP_ARCS_MAX;
  if (oid_string2array(text, &length, arcs, &count) != 0) return false;
  binding->pdwOid = static_cast<std::uint32_t*>(wnx_copy(arcs, arcs_size(count)));
  binding->nOidLen = count;
  return binding->pdwOid != nullptr;
}

bool take_value(const snmp_simple_val& value, snmp_val_list* binding) {
  if (value.byDataType == 0) {
    binding->byDataType = WNXSNMP_TAG_NULL;
    return true;
  }
  if (value.nValSize < 0 || value.nValSize > VALUE_MAX) return false;
  binding->byDataType = value.byDataType;
  binding->nValSize = value.nValSize;
  binding->uniVal.pbyData = static_cast<std::uint8_t*>(wnx_copy(value.SnmpValBuf, value.nValSize));
  return binding->uniVal.pbyData != nullptr;
}

bool take_bindings(const snmp_simple_pdu& simple, snmp_pdu* pdu) {
  snmp_val_list** tail = &pdu->lpSnmpValList;
  for (std::int32_t i = 0; i < simple.nValNum; ++i) {
    if (!simple.lpSnmpSimpleVal) return false;
    *tail = static_cast<snmp_val_list*>(std::calloc(1, sizeof(snmp_val_list)));
    if (!*tail) return false;
    const snmp_simple_val& value = simple.lpSnmpSimpleVal[i];
    if (!take_oid(value.szOid, *tail) || !take_value(value, *tail)) return false;
    tail = &(*tail)->lpNextSnmpValList;
  }
  return true;
}

bool give_value(const snmp_val_list& binding, snmp_simple_val* value) {
  std::memset(value, 0, sizeof *value);
  if (binding.nValSize < 0 || binding.nValSize > VALUE_MAX) return false;
  // Types without a representation here have a size but no bytes; the zeros stand for them.
  if (binding.uniVal.pbyData && binding.nValSize > 0) {
    std::memcpy(value->SnmpValBuf, binding.uniVal.pbyData,
                static_cast<std::size_t>(binding.nValSize));
  }
  value->byDataType = binding.byDataType;
  value->nValSize = binding.nValSize;
  return oid_array2string(value->szOid, WNXSNMP_OIDTEXT_SIZE, binding.pdwOid, binding.nOidLen) == 0;
}

bool give_values(const snmp_pdu& pdu, snmp_simple_pdu* simple) {
  const snmp_val_list* binding = pdu.lpSnmpValList;
  for (std::int32_t i = 0; binding && i < simple->nValNum; ++i) {
    if (!simple->lpSnmpSimpleVal) return false;
    if (!give_value(*binding, &simple->lpSnmpSimpleVal[i])) {
      // Half an answer must not be taken for the next peer's when the record is used again.
      std::memset(simple->lpSnmpSimpleVal, 0,
                  static_cast<std::size_t>(i + 1) * sizeof(snmp_simple_val));
      return false;
    }
    binding = binding->lpNextSnmpValList;
  }
  return true;
}

}  // namespace

snmp_pdu* snmp_simple2standard(snmp_simple_pdu* simple) {
  if (!simple) return nullptr;
  pdu_owner pdu(get_pdu_memory(), &free_snmp_pdu);
  if (!pdu) return nullptr;
  std::memset(pdu.get(), 0, sizeof(snmp_pdu));
  pdu->nVersion = WNXSNMP_VERSION_1;
  pdu->byCommand = simple->byCommand;
  if (!take_community(simple, pdu.get())) return nullptr;
  pdu->nReqID = std::rand();
  if (!take_bindings(*simple, pdu.get())) return nullptr;
  return pdu.release();
}

std::int32_t snmp_standard2simple(snmp_pdu* pdu, snmp_simple_pdu* simple) {
  pdu_owner owner(pdu, &free_snmp_pdu);
  if (!pdu || !simple) return -1;
  simple->IPAddress = pdu->IPAddress;
  std::memset(simple->szComName, 0, sizeof simple->szComName);
  copy_text(simple->szComName, WNXSNMP_COMNAME_SIZE, pdu->pcComName,
            pdu->pcComName ? pdu->nComnameLen : 0);
  simple->nErrStat = pdu->nErrStat;
  simple->nErrIndex = pdu->nErrIndex;
  if (!give_values(*pdu, simple)) return -1;
  static_cast<void>(owner.release());  // the caller's again
  return 0;
}

}  // namespace vox
