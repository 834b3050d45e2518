// snmp_parse: a datagram, which anybody may have sent, becomes a record.
#include <cstdlib>
#include <cstring>
#include <memory>

#include "vox/drivers/net/NetworkComm/wnxsnmp.h"

namespace vox {
namespace {

using pdu_owner = std::unique_ptr<snmp_pdu, decltype(&free_snmp_pdu)>;

// parse_cursor is the next item and the bytes up to the end of what holds it. Each take_ function
// moves past what it took; after a failure the cursor is of no use.
struct parse_cursor {
  const std::uint8_t* at;
  std::int32_t left;
};

// take_header enters an item: the cursor comes to stand at its contents, bounded by them.
bool take_header(parse_cursor* cursor, std::uint8_t* tag) {
  cursor->at = asn_parse_header(cursor->at, &cursor->left, tag);
  return cursor->at != nullptr;
}

bool take_number(parse_cursor* cursor, std::int32_t* value) {
  std::uint8_t tag = 0;
  cursor->at = asn_parse_int(cursor->at, &cursor->left, &tag, value, WNXSNMP_INTEGER_SIZE);
  return cursor->at && tag == WNXSNMP_TAG_INTEGER;
}

bool copy_arcs(const std::uint32_t* arcs, std::int32_t count, std::uint32_t** copy) {
  const auto size = static_cast<std::int32_t>(sizeof(std::uint32_t)) * count;
  *copy = static_cast<std::uint32_t*>(wnx_copy(arcs, size));
  return *copy != nullptr;
}

// take_oid copies an OID into an array of its own; arcs beyond 128 are dropped.
bool take_oid(parse_cursor* cursor, std::uint32_t** copy, std::int32_t* count) {
  std::uint32_t arcs[WNXSNMP_ARCS_MAX];
  std::uint8_t tag = 0;
  *count = WNXSNMP_ARCS_MAX;
  cursor->at = asn_parse_oid(cursor->at, &cursor->left, &tag, arcs, count);
  return cursor->at && tag == WNXSNMP_TAG_OID && copy_arcs(arcs, *count, copy);
}

bool take_auth(parse_cursor* cursor, snmp_pdu* pdu) {
  std::uint8_t community[WNXSNMP_COMMUNITY_MAX];
  std::int32_t length = sizeof community;
  cursor->at = snmp_auth_parse(cursor->at, &cursor->left, community, &length, &pdu->nVersion);
  if (!cursor->at || pdu->nVersion != WNXSNMP_VERSION_1) return false;
  pdu->nComnameLen = length;
  pdu->pcComName = static_cast<char*>(wnx_copy(community, length));
  return pdu->pcComName != nullptr;
}

bool take_request_fields(parse_cursor* cursor, snmp_pdu* pdu) {
  return take_number(cursor, &pdu->nReqID) && take_number(cursor, &pdu->nErrStat) &&
         take_number(cursor, &pdu->nErrIndex);
}

// RFC 1157 4.1.6. The time-stamp may bear any tag: this system itself sends it as an INTEGER.
bool take_trap_fields(parse_cursor* cursor, snmp_pdu* pdu) {
  if (!take_oid(cursor, &pdu->pdwEntOid, &pdu->nEntOidLen)) return false;
  std::uint8_t tag = 0;
  std::int32_t size = sizeof pdu->AgentAddress.byAgentAddress;
  cursor->at =
      asn_parse_string(cursor->at, &cursor->left, &tag, pdu->AgentAddress.byAgentAddress, &size);
  if (!cursor->at || tag != WNXSNMP_TAG_IPADDRESS) return false;
  if (!take_number(cursor, &pdu->nTrapType)) return false;
  if (!take_number(cursor, &pdu->nSpecificType)) return false;
  cursor->at =
      asn_parse_unsigned_int(cursor->at, &cursor->left, &tag, &pdu->ulTime, WNXSNMP_INTEGER_SIZE);
  return cursor->at != nullptr;
}

// The value types: each takes one item, item[0, left), into a buffer of the binding's own.

template <typename number>
using number_parser = const std::uint8_t* (*)(const std::uint8_t*, std::int32_t*, std::uint8_t*,
                                              number*, std::int32_t);

template <typename number>
bool take_number_value(number_parser<number> parse, const std::uint8_t* item, std::int32_t left,
                       snmp_val_list* binding) {
  number value = 0;
  std::uint8_t tag = 0;
  if (!parse(item, &left, &tag, &value, WNXSNMP_INTEGER_SIZE)) return false;
  binding->nValSize = WNXSNMP_INTEGER_SIZE;
  binding->uniVal.pbyData = static_cast<std::uint8_t*>(wnx_copy(&value, WNXSNMP_INTEGER_SIZE));
  return binding->uniVal.pbyData != nullptr;
}

bool take_string_value(const std::uint8_t* item, std::int32_t left, snmp_val_list* binding) {
  std::uint8_t tag = 0;
  const std::uint8_t* const contents = asn_parse_header(item, &left, &tag);
  if (!contents) return false;
  binding->nValSize = left;
  binding->uniVal.pbyData = static_cast<std::uint8_t*>(wnx_copy(contents, left));
  return binding->uniVal.pbyData != nullptr;
}

bool take_oid_value(const std::uint8_t* item, std::int32_t left, snmp_val_list* binding) {
  parse_cursor cursor{item, left};
  std::int32_t count = 0;
  if (!take_oid(&cursor, &binding->uniVal.pdwOid, &count)) return false;
  binding->nValSize = static_cast<std::int32_t>(sizeof(std::uint32_t)) * count;
  return true;
}

bool take_null_value(const std::uint8_t* item, std::int32_t left) {
  std::uint8_t tag = 0;
  return asn_parse_null(item, &left, &tag) != nullptr;
}

bool take_value(const std::uint8_t* item, std::int32_t left, snmp_val_list* binding) {
  switch (binding->byDataType) {
    case WNXSNMP_TAG_NULL:
      return take_null_value(item, left);
    case WNXSNMP_TAG_INTEGER:
      return take_number_value(&asn_parse_int, item, left, binding);
    case WNXSNMP_TAG_COUNTER32:
    case WNXSNMP_TAG_GAUGE32:
    case WNXSNMP_TAG_TIMETICKS:
      return take_number_value(&asn_parse_unsigned_int, item, left, binding);
    case WNXSNMP_TAG_OCTETS:
    case WNXSNMP_TAG_IPADDRESS:
      return take_string_value(item, left, binding);
    case WNXSNMP_TAG_OID:
      return take_oid_value(item, left, binding);
    default:
      return true;  // kept as its tag and encoded length
  }
}

bool take_binding(parse_cursor* cursor, snmp_val_list* binding) {
  std::uint32_t arcs[WNXSNMP_ARCS_MAX];
  std::int32_t count = WNXSNMP_ARCS_MAX;
  const std::uint8_t* item = nullptr;
  cursor->at = snmp_parse_var_op(cursor->at, &cursor->left, arcs, &count, &binding->byDataType,
                                 &binding->nValSize, &item);
  if (!cursor->at || !copy_arcs(arcs, count, &binding->pdwOid)) return false;
  binding->nOidLen = count;
  return take_value(item, static_cast<std::int32_t>(cursor->at - item), binding);
}

bool take_bindings(parse_cursor* cursor, snmp_pdu* pdu) {
  std::uint8_t tag = 0;
  if (!take_header(cursor, &tag) || tag != WNXSNMP_TAG_SEQUENCE) return false;
  for (snmp_val_list** tail = &pdu->lpSnmpValList; cursor->left > 0;
       tail = &(*tail)->lpNextSnmpValList) {
    *tail = static_cast<snmp_val_list*>(std::calloc(1, sizeof(snmp_val_list)));
    if (!*tail || !take_binding(cursor, *tail)) return false;
  }
  return true;
}

}  // namespace

snmp_pdu* snmp_parse(const std::uint8_t* message, std::int32_t length, std::uint32_t sender) {
  if (!message || length > WNXSNMP_MESSAGE_SIZE) return nullptr;
  pdu_owner pdu(get_pdu_memory(), &free_snmp_pdu);
  if (!pdu) return nullptr;
  std::memset(pdu.get(), 0, sizeof(snmp_pdu));
  pdu->IPAddress.ulAddress = sender;
  parse_cursor cursor{message, length};
  if (!take_auth(&cursor, pdu.get())) return nullptr;
  if (!take_header(&cursor, &pdu->byCommand)) return nullptr;
  const bool taken = pdu->byCommand == WNXSNMP_PDU_TRAP ? take_trap_fields(&cursor, pdu.get())
                                                        : take_request_fields(&cursor, pdu.get());
  if (!taken || !take_bindings(&cursor, pdu.get())) return nullptr;
  return pdu.release();
}

}  // namespace vox
