#include "vox/drivers/net/NetworkComm/wnxsnmp.h"

#include <cstring>

namespace vox {
namespace {

// The bytes that a contents of `length` is moved up by behind a binding's four-byte header.
std::int32_t binding_shift(std::int32_t length) {
  return length <= 127 ? 0 : length <= 255 ? 1 : 2;
}

template <typename number>
number load_number(const std::uint8_t* value) {
  number loaded;
  std::memcpy(&loaded, value, sizeof loaded);
  return loaded;
}

std::uint8_t* build_oid_value(std::uint8_t* data, std::int32_t* left, const std::uint8_t* value,
                              std::int32_t size) {
  constexpr auto arc_size = static_cast<std::int32_t>(sizeof(std::uint32_t));
  // An OID of more arcs than octets of the stage cannot be built anyway.
  std::uint32_t arcs[WNXSNMP_OID_STAGE_SIZE + 1];
  const std::int32_t count = size / arc_size;
  if (count > WNXSNMP_OID_STAGE_SIZE + 1) return nullptr;
  if (count > 0) std::memcpy(arcs, value, static_cast<std::size_t>(count) * sizeof arcs[0]);
  return asn_build_oid(data, left, WNXSNMP_TAG_OID, arcs, count);
}

// build_value writes a binding's value; value bytes of any alignment.
std::uint8_t* build_value(std::uint8_t* data, std::int32_t* left, std::uint8_t tag,
                          const std::uint8_t* value, std::int32_t size) {
  if (tag == WNXSNMP_TAG_NULL) return asn_build_null(data, left, tag);
  if (size < 0 || (size > 0 && !value)) return nullptr;
  switch (tag) {
    case WNXSNMP_TAG_INTEGER: {
      if (size != WNXSNMP_INTEGER_SIZE) return nullptr;
      const auto number = load_number<std::int32_t>(value);
      return asn_build_int(data, left, tag, &number, size);
    }
    case WNXSNMP_TAG_COUNTER32:
    case WNXSNMP_TAG_GAUGE32:
    case WNXSNMP_TAG_TIMETICKS: {
      if (size != WNXSNMP_INTEGER_SIZE) return nullptr;
      const auto number = load_number<std::uint32_t>(value);
      return asn_build_unsigned_int(data, left, tag, &number, size);
    }
    case WNXSNMP_TAG_OCTETS:
    case WNXSNMP_TAG_IPADDRESS:
      return asn_build_string(data, left, tag, value, size);
    case WNXSNMP_TAG_OID:
      return build_oid_value(data, left, value, size);
    default:
      return nullptr;
  }
}

}  // namespace

const std::uint8_t* snmp_auth_parse(const std::uint8_t* data, std::int32_t* left,
                                    std::uint8_t* community, std::int32_t* count,
                                    std::int32_t* version) {
  std::int32_t inside = *left;
  std::uint8_t tag = 0;
  const std::uint8_t* at = asn_parse_header(data, &inside, &tag);
  if (!at || tag != WNXSNMP_TAG_SEQUENCE) return nullptr;
  at = asn_parse_int(at, &inside, &tag, version, WNXSNMP_INTEGER_SIZE);
  if (!at || tag != WNXSNMP_TAG_INTEGER) return nullptr;
  const std::int32_t capacity = *count;
  at = asn_parse_string(at, &inside, &tag, community, count);
  if (!at || tag != WNXSNMP_TAG_OCTETS) return nullptr;
  if (*count < capacity) community[*count] = 0;
  *left = inside;
  return at;
}

std::uint8_t* snmp_auth_build(std::uint8_t* data, std::int32_t* left, const std::uint8_t* community,
                              std::int32_t count, std::int32_t version, std::int32_t pdu_length) {
  constexpr std::int32_t fixed = 5;  // the version's three octets, the community's header
  if (pdu_length < 0 || pdu_length > WNXSNMP_LENGTH_MAX || count < 0) return nullptr;
  std::int32_t room = *left;
  std::uint8_t* at =
      asn_build_sequence(data, &room, WNXSNMP_TAG_SEQUENCE, pdu_length + count + fixed);
  const std::int32_t before = room;
  if (at) at = asn_build_int(at, &room, WNXSNMP_TAG_INTEGER, &version, WNXSNMP_INTEGER_SIZE);
  if (at) at = asn_build_string(at, &room, WNXSNMP_TAG_OCTETS, community, count);
  if (!at || before - room != count + fixed) return nullptr;
  *left = room;
  return at;
}

const std::uint8_t* snmp_parse_var_op(const std::uint8_t* data, std::int32_t* left,
                                      std::uint32_t* arcs, std::int32_t* count, std::uint8_t* tag,
                                      std::int32_t* value_size, const std::uint8_t** value) {
  std::int32_t inside = *left;
  std::uint8_t met = 0;
  const std::uint8_t* at = asn_parse_header(data, &inside, &met);
  if (!at || met != WNXSNMP_TAG_SEQUENCE) return nullptr;
  const std::uint8_t* const end = at + inside;
  at = asn_parse_oid(at, &inside, &met, arcs, count);
  if (!at || met != WNXSNMP_TAG_OID) return nullptr;
  if (!asn_parse_header(at, &inside, tag)) return nullptr;
  *value = at;
  *value_size = inside;
  *left -= static_cast<std::int32_t>(end - data);
  return end;
}

std::uint8_t* snmp_build_var_op(std::uint8_t* data, std::int32_t* left, const std::uint32_t* arcs,
                                std::int32_t count, std::uint8_t tag, const std::uint8_t* value,
                                std::int32_t value_size) {
  if (*left < WNXSNMP_SEQUENCE_HEADER) return nullptr;
  std::uint8_t* const contents = data + WNXSNMP_SEQUENCE_HEADER;
  std::int32_t room = *left - WNXSNMP_SEQUENCE_HEADER;
  std::uint8_t* end = asn_build_oid(contents, &room, WNXSNMP_TAG_OID, arcs, count);
  if (end) end = build_value(end, &room, tag, value, value_size);
  if (!end) return nullptr;
  const auto length = static_cast<std::int32_t>(end - contents);
  const std::int32_t shift = binding_shift(length);
  if (shift > room) return nullptr;
  // The header is four bytes whatever the length, and its length leaves the shift out: both are
  // what this system has always sent.
  shift_array(contents, length, shift);
  std::int32_t header = WNXSNMP_SEQUENCE_HEADER;
  if (!asn_build_sequence(data, &header, WNXSNMP_TAG_SEQUENCE, length)) return nullptr;
  *left = room - shift;
  return end + shift;
}

void shift_array(std::uint8_t* bytes, std::int32_t length, std::int32_t shift) {
  if (length > 0) std::memmove(bytes + shift, bytes, static_cast<std::size_t>(length));
}

}  // namespace vox
