// snmp_build: a message is put together from the inside out, each wrap through a work buffer.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "vox/drivers/net/NetworkComm/wnxsnmp.h"

namespace vox {
namespace {

constexpr std::int32_t FAILED = -1;

// build_cursor is where the next item goes and the room behind it; once an item did not fit, none
// does.
struct build_cursor {
  std::uint8_t* at;
  std::int32_t left;

  void number(std::int32_t value) {
    if (at) at = asn_build_int(at, &left, WNXSNMP_TAG_INTEGER, &value, WNXSNMP_INTEGER_SIZE);
  }
};

// built gives the bytes that were written from `start` on, or FAILED.
std::int32_t built(const build_cursor& cursor, const std::uint8_t* start) {
  return cursor.at ? static_cast<std::int32_t>(cursor.at - start) : FAILED;
}

std::int32_t build_bindings(const snmp_pdu& pdu, std::uint8_t* out, std::int32_t capacity) {
  build_cursor cursor{out, capacity};
  for (const snmp_val_list* binding = pdu.lpSnmpValList; binding && cursor.at;
       binding = binding->lpNextSnmpValList) {
    cursor.at = snmp_build_var_op(cursor.at, &cursor.left, binding->pdwOid, binding->nOidLen,
                                  binding->byDataType, binding->uniVal.pbyData, binding->nValSize);
  }
  return built(cursor, out);
}

std::int32_t build_request_fields(const snmp_pdu& pdu, std::uint8_t* out, std::int32_t capacity) {
  build_cursor cursor{out, capacity};
  cursor.number(pdu.nReqID);
  cursor.number(pdu.nErrStat);
  cursor.number(pdu.nErrIndex);
  return built(cursor, out);
}

// RFC 1157 4.1.6, but for the time-stamp, which this system tags as an INTEGER.
std::int32_t build_trap_fields(const snmp_pdu& pdu, std::uint8_t* out, std::int32_t capacity) {
  build_cursor cursor{out, capacity};
  cursor.at =
      asn_build_oid(cursor.at, &cursor.left, WNXSNMP_TAG_OID, pdu.pdwEntOid, pdu.nEntOidLen);
  if (cursor.at) {
    cursor.at =
        asn_build_string(cursor.at, &cursor.left, WNXSNMP_TAG_IPADDRESS,
                         pdu.AgentAddress.byAgentAddress, sizeof pdu.AgentAddress.byAgentAddress);
  }
  cursor.number(pdu.nTrapType);
  cursor.number(pdu.nSpecificType);
  if (cursor.at) {
    cursor.at = asn_build_unsigned_int(cursor.at, &cursor.left, WNXSNMP_TAG_INTEGER, &pdu.ulTime,
                                       WNXSNMP_INTEGER_SIZE);
  }
  return built(cursor, out);
}

// wrap writes header and contents to out[0, capacity) and gives the bytes of both.
std::int32_t wrap(std::uint8_t* out, std::int32_t capacity, std::uint8_t tag,
                  const std::uint8_t* contents, std::int32_t length) {
  build_cursor cursor{out, capacity};
  cursor.at = asn_build_string(out, &cursor.left, tag, contents, length);
  return built(cursor, out);
}

// build_pdu writes the PDU to work[0, capacity), with message[0, capacity) as the stage.
std::int32_t build_pdu(const snmp_pdu& pdu, std::uint8_t* message, std::uint8_t* work,
                       std::int32_t capacity) {
  const std::int32_t bindings = build_bindings(pdu, message, capacity);
  if (bindings == FAILED) return FAILED;
  const std::int32_t list = wrap(work, capacity, WNXSNMP_TAG_SEQUENCE, message, bindings);
  if (list == FAILED) return FAILED;
  const std::int32_t fields = pdu.byCommand == WNXSNMP_PDU_TRAP
                                  ? build_trap_fields(pdu, message, capacity)
                                  : build_request_fields(pdu, message, capacity);
  if (fields == FAILED || list > capacity - fields) return FAILED;
  std::memcpy(message + fields, work, static_cast<std::size_t>(list));
  return wrap(work, capacity, pdu.byCommand, message, fields + list);
}

}  // namespace

std::int32_t snmp_build(const snmp_pdu* pdu, std::uint8_t* message, std::int32_t* length) {
  if (!pdu || !message || !length || *length <= 0) return FAILED;
  if (pdu->nVersion != WNXSNMP_VERSION_1) return FAILED;
  const std::int32_t capacity = std::min(*length, WNXSNMP_MESSAGE_SIZE);
  const std::unique_ptr<std::uint8_t, decltype(&std::free)> work(
      static_cast<std::uint8_t*>(std::malloc(static_cast<std::size_t>(capacity))), &std::free);
  if (!work) return FAILED;
  const std::int32_t size = build_pdu(*pdu, message, work.get(), capacity);
  if (size == FAILED) return FAILED;
  build_cursor cursor{message, capacity};
  cursor.at =
      snmp_auth_build(message, &cursor.left, reinterpret_cast<const std::uint8_t*>(pdu->pcComName),
                      pdu->nComnameLen, pdu->nVersion, size);
  if (!cursor.at || size > cursor.left) return FAILED;
  std::memcpy(cursor.at, work.get(), static_cast<std::size_t>(size));
  *length = static_cast<std::int32_t>(cursor.at - message) + size;
  return 0;
}

}  // namespace vox
