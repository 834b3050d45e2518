#include "vox/drivers/net/NetworkComm/wnxber.h"

#include <cstring>

#include "vox/drivers/net/NetworkComm/wnxsnmpconst.h"

namespace vox {
namespace {

constexpr std::uint8_t LONG_FORM = 0x80;          // first length octet: the low bits count octets
constexpr std::uint8_t LOW_SEVEN = 0x7F;          // of a length octet or a base 128 group
constexpr std::uint8_t HIGH_TAG = 0x1F;           // low tag bits of an identifier that goes on
constexpr std::uint32_t TOP_NINE = 0x1FFu << 23;  // bits that decide whether an octet is redundant
constexpr std::uint32_t TOP_BIT = 1u << 31;
constexpr std::uint32_t ARCS_OF_ROOT = 40;  // X.690 8.19.4: first arc x 40 + second arc

// open_item writes a header, keeps room for the contents behind it and returns the cursor at them.
std::uint8_t* open_item(std::uint8_t* data, std::int32_t* left, std::uint8_t tag,
                        std::int32_t length) {
  std::int32_t room = *left;
  std::uint8_t* contents = asn_build_header(data, &room, tag, length);
  if (!contents || length > room) return nullptr;
  *left = room - length;
  return contents;
}

// close_item takes an item that was read off the bytes left.
const std::uint8_t* close_item(const std::uint8_t* data, std::int32_t* left,
                               const std::uint8_t* contents, std::int32_t length) {
  const std::uint8_t* next = contents + length;
  *left -= static_cast<std::int32_t>(next - data);
  return next;
}

bool is_redundant(std::uint32_t value) {
  return (value & TOP_NINE) == 0 || (value & TOP_NINE) == TOP_NINE;
}

// read_number shifts the octets into the sign of the first one.
std::uint32_t read_number(const std::uint8_t* contents, std::int32_t length) {
  std::uint32_t value = contents[0] & 0x80 ? 0xFFFFFFFFu : 0;
  for (std::int32_t i = 0; i < length; ++i) value = (value << 8) | contents[i];
  return value;
}

// build_number writes the four octets of value, or five with a zero in front, less the redundant
// ones of the value; the zero is written whatever was dropped behind it.
std::uint8_t* build_number(std::uint8_t* data, std::int32_t* left, std::uint8_t tag,
                           std::uint32_t value, bool zero_in_front) {
  std::int32_t length = WNXSNMP_INTEGER_SIZE + (zero_in_front ? 1 : 0);
  for (; length > 1 && is_redundant(value); --length) value <<= 8;
  std::uint8_t* at = open_item(data, left, tag, length);
  if (!at) return nullptr;
  std::uint8_t* const end = at + length;
  if (zero_in_front) *at++ = 0;
  for (; at < end; value <<= 8) *at++ = static_cast<std::uint8_t>(value >> 24);
  return end;
}

// parse_subid reads one base 128 number; null when it is cut off or passes 32 bits.
const std::uint8_t* parse_subid(const std::uint8_t* at, const std::uint8_t* end,
                                std::uint32_t* value) {
  std::uint64_t sum = 0;
  for (; at < end; ++at) {
    sum = (sum << 7) | (*at & LOW_SEVEN);
    if (sum > UINT32_MAX) return nullptr;
    if (*at & 0x80) continue;
    *value = static_cast<std::uint32_t>(sum);
    return at + 1;
  }
  return nullptr;
}

// build_subid writes one base 128 number, high group first; null when it does not fit.
std::uint8_t* build_subid(std::uint8_t* at, const std::uint8_t* end, std::uint64_t value) {
  int groups = 1;
  while (value >> (7 * groups)) ++groups;
  if (groups > end - at) return nullptr;
  while (--groups > 0) *at++ = static_cast<std::uint8_t>((value >> (7 * groups)) | 0x80);
  *at++ = static_cast<std::uint8_t>(value & LOW_SEVEN);
  return at;
}

// arc_list is a caller's array: what does not fit is dropped.
struct arc_list {
  std::uint32_t* arcs;
  std::int32_t capacity, stored;
  void add(std::uint32_t arc) {
    if (stored < capacity) arcs[stored++] = arc;
  }
};

// stage_oid writes the contents of an OID to stage[0, WNXSNMP_OID_STAGE_SIZE) and returns their
// end. The first two arcs share a sub-identifier: one octet while it is below 128.
std::uint8_t* stage_oid(std::uint8_t* stage, const std::uint32_t* arcs, std::int32_t count) {
  if (count < 2) {
    *stage = 0;
    return stage + 1;
  }
  const std::uint8_t* const end = stage + WNXSNMP_OID_STAGE_SIZE;
  const std::uint64_t first = std::uint64_t{ARCS_OF_ROOT} * arcs[0] + arcs[1];
  if (first > UINT32_MAX) return nullptr;
  std::uint8_t* at = build_subid(stage, end, first);
  for (std::int32_t i = 2; at && i < count; ++i) at = build_subid(at, end, arcs[i]);
  return at;
}

}  // namespace

const std::uint8_t* asn_parse_length(const std::uint8_t* data, std::uint32_t* length) {
  const std::uint8_t first = *data++;
  if (first < LONG_FORM) {
    *length = first;
    return data;
  }
  const int octets = first & LOW_SEVEN;
  // X.690 8.1.3.6: 0x80 is the indefinite form, which SNMP does not use (RFC 1157 3.2.2).
  if (octets < 1 || octets > WNXSNMP_LENGTH_OCTETS_MAX) return nullptr;
  std::uint32_t value = 0;
  for (int i = 0; i < octets; ++i) value = (value << 8) | *data++;
  *length = value;
  return data;
}

std::uint8_t* asn_build_length(std::uint8_t* data, std::int32_t* left, std::int32_t length) {
  if (length < 0 || length > WNXSNMP_LENGTH_MAX) return nullptr;
  const std::int32_t octets = length < LONG_FORM ? 1 : length <= 0xFF ? 2 : 3;
  if (*left < octets) return nullptr;
  *left -= octets;
  if (octets > 1) *data++ = static_cast<std::uint8_t>(LONG_FORM | (octets - 1));
  if (octets > 2) *data++ = static_cast<std::uint8_t>(length >> 8);
  *data++ = static_cast<std::uint8_t>(length);
  return data;
}

const std::uint8_t* asn_parse_header(const std::uint8_t* data, std::int32_t* left,
                                     std::uint8_t* tag) {
  if (*left < 2) return nullptr;
  const std::int32_t octets = data[1] < LONG_FORM ? 0 : data[1] & LOW_SEVEN;
  if ((data[0] & HIGH_TAG) == HIGH_TAG || octets > *left - 2) return nullptr;
  std::uint32_t length = 0;
  const std::uint8_t* contents = asn_parse_length(data + 1, &length);
  // The comparison is unsigned: a length of 2^31 and more must not turn negative.
  if (!contents || length > static_cast<std::uint32_t>(*left - (contents - data))) return nullptr;
  *tag = data[0];
  *left = static_cast<std::int32_t>(length);
  return contents;
}

std::uint8_t* asn_build_header(std::uint8_t* data, std::int32_t* left, std::uint8_t tag,
                               std::int32_t length) {
  if (*left < 1) return nullptr;
  std::int32_t room = *left - 1;
  std::uint8_t* contents = asn_build_length(data + 1, &room, length);
  if (!contents) return nullptr;
  data[0] = tag;
  *left = room;
  return contents;
}

std::uint8_t* asn_build_sequence(std::uint8_t* data, std::int32_t* left, std::uint8_t tag,
                                 std::int32_t length) {
  if (*left < WNXSNMP_SEQUENCE_HEADER || length < 0 || length > WNXSNMP_LENGTH_MAX) return nullptr;
  *left -= WNXSNMP_SEQUENCE_HEADER;
  *data++ = tag;
  *data++ = LONG_FORM | 2;
  *data++ = static_cast<std::uint8_t>(length >> 8);
  *data++ = static_cast<std::uint8_t>(length);
  return data;
}

const std::uint8_t* asn_parse_int(const std::uint8_t* data, std::int32_t* left, std::uint8_t* tag,
                                  std::int32_t* value, std::int32_t size) {
  std::int32_t length = *left;
  const std::uint8_t* contents = asn_parse_header(data, &length, tag);
  if (!contents || size != WNXSNMP_INTEGER_SIZE) return nullptr;
  // X.690 8.3.1: at least one octet; without one there is no sign to start from.
  if (length < 1 || length > WNXSNMP_INTEGER_SIZE) return nullptr;
  *value = static_cast<std::int32_t>(read_number(contents, length));
  return close_item(data, left, contents, length);
}

std::uint8_t* asn_build_int(std::uint8_t* data, std::int32_t* left, std::uint8_t tag,
                            const std::int32_t* value, std::int32_t size) {
  if (size != WNXSNMP_INTEGER_SIZE) return nullptr;
  return build_number(data, left, tag, static_cast<std::uint32_t>(*value), false);
}

const std::uint8_t* asn_parse_unsigned_int(const std::uint8_t* data, std::int32_t* left,
                                           std::uint8_t* tag, std::uint32_t* value,
                                           std::int32_t size) {
  std::int32_t length = *left;
  const std::uint8_t* contents = asn_parse_header(data, &length, tag);
  if (!contents || size != WNXSNMP_INTEGER_SIZE) return nullptr;
  if (length < 1 || length > WNXSNMP_INTEGER_SIZE + 1) return nullptr;
  if (length > WNXSNMP_INTEGER_SIZE && contents[0] != 0) return nullptr;
  *value = read_number(contents, length);
  return close_item(data, left, contents, length);
}

std::uint8_t* asn_build_unsigned_int(std::uint8_t* data, std::int32_t* left, std::uint8_t tag,
                                     const std::uint32_t* value, std::int32_t size) {
  if (size != WNXSNMP_INTEGER_SIZE) return nullptr;
  return build_number(data, left, tag, *value, (*value & TOP_BIT) != 0);
}

const std::uint8_t* asn_parse_string(const std::uint8_t* data, std::int32_t* left,
                                     std::uint8_t* tag, std::uint8_t* bytes, std::int32_t* count) {
  std::int32_t length = *left;
  const std::uint8_t* contents = asn_parse_header(data, &length, tag);
  if (!contents || length > *count) return nullptr;
  if (length > 0) std::memcpy(bytes, contents, static_cast<std::size_t>(length));
  *count = length;
  return close_item(data, left, contents, length);
}

std::uint8_t* asn_build_string(std::uint8_t* data, std::int32_t* left, std::uint8_t tag,
                               const std::uint8_t* bytes, std::int32_t count) {
  if (count > 0 && !bytes) return nullptr;
  std::uint8_t* contents = open_item(data, left, tag, count);
  if (!contents) return nullptr;
  if (count > 0) std::memcpy(contents, bytes, static_cast<std::size_t>(count));
  return contents + count;
}

const std::uint8_t* asn_parse_oid(const std::uint8_t* data, std::int32_t* left, std::uint8_t* tag,
                                  std::uint32_t* arcs, std::int32_t* count) {
  std::int32_t length = *left;
  const std::uint8_t* contents = asn_parse_header(data, &length, tag);
  if (!contents || *count < 0) return nullptr;
  const std::uint8_t* const end = contents + length;
  std::uint32_t subid = 0;
  const std::uint8_t* at = parse_subid(contents, end, &subid);
  arc_list list{arcs, *count, 0};
  list.add(subid / ARCS_OF_ROOT);
  list.add(subid % ARCS_OF_ROOT);
  while (at && at < end) {
    at = parse_subid(at, end, &subid);
    list.add(subid);
  }
  if (!at) return nullptr;
  *count = list.stored;
  return close_item(data, left, contents, length);
}

std::uint8_t* asn_build_oid(std::uint8_t* data, std::int32_t* left, std::uint8_t tag,
                            const std::uint32_t* arcs, std::int32_t count) {
  if (count < 0 || (count > 0 && !arcs)) return nullptr;
  std::uint8_t stage[WNXSNMP_OID_STAGE_SIZE];
  const std::uint8_t* const end = stage_oid(stage, arcs, count);
  if (!end) return nullptr;
  return asn_build_string(data, left, tag, stage, static_cast<std::int32_t>(end - stage));
}

const std::uint8_t* asn_parse_null(const std::uint8_t* data, std::int32_t* left,
                                   std::uint8_t* tag) {
  std::int32_t length = *left;
  const std::uint8_t* contents = asn_parse_header(data, &length, tag);
  if (!contents || length != 0) return nullptr;
  return close_item(data, left, contents, length);
}

std::uint8_t* asn_build_null(std::uint8_t* data, std::int32_t* left, std::uint8_t tag) {
  return open_item(data, left, tag, 0);
}

}  // namespace vox
