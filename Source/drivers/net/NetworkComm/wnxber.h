// BER (X.690) as SNMP uses it: one item at a time, definite lengths, one-octet tags.
//
// Every operation takes a cursor into a buffer and `left`, the bytes from the cursor to the
// buffer's end. It returns the cursor just past what it built or parsed and takes those bytes off
// `left`; on failure it returns null and leaves `left` as it was. Parse operations store the tag
// that they met, whatever it is; the caller decides whether it is the one to be had.
// The size argument of the number operations is that of a number in memory and must be 4.
//
// Some of what is built is a habit of this system rather than the shortest form of X.690; see
// asn_build_sequence, asn_build_unsigned_int and docs/wire/snmp.md.
//
// Thread rule: pure functions.
#pragma once

#include <cstdint>

#include "vox/platform/Export.h"

namespace vox {

// asn_parse_length reads length octets (X.690 8.1.3). It has no bound: the first octet and, when it
// is above 0x80, as many octets as its low seven bits say (4 at most) must be readable.
// Returns null for the indefinite form (0x80) and for more than four octets.
VOX_EXPORT const std::uint8_t* asn_parse_length(const std::uint8_t* data, std::uint32_t* length);

// asn_build_length writes the shortest form: one octet up to 127, 81 nn up to 255, 82 nn nn up to
// 65535. Anything else fails.
VOX_EXPORT std::uint8_t* asn_build_length(std::uint8_t* data, std::int32_t* left,
                                          std::int32_t length);

// asn_parse_header reads tag and length and returns the cursor at the contents. Unlike the others
// it sets `left` to the contents' length, which bounds what follows. Fails on a tag of more than
// one octet and on contents that pass the buffer.
VOX_EXPORT const std::uint8_t* asn_parse_header(const std::uint8_t* data, std::int32_t* left,
                                                std::uint8_t* tag);

// asn_build_header writes tag and length (shortest form) and returns the cursor at the contents;
// room for the contents is not asked for.
VOX_EXPORT std::uint8_t* asn_build_header(std::uint8_t* data, std::int32_t* left, std::uint8_t tag,
                                          std::int32_t length);

// asn_build_sequence writes tag, 82 and the length as two octets, four bytes whatever the length,
// so that the header can be written after its contents are known.
VOX_EXPORT std::uint8_t* asn_build_sequence(std::uint8_t* data, std::int32_t* left,
                                            std::uint8_t tag, std::int32_t length);

// asn_parse_int reads a signed number of 1 to 4 octets.
VOX_EXPORT const std::uint8_t* asn_parse_int(const std::uint8_t* data, std::int32_t* left,
                                             std::uint8_t* tag, std::int32_t* value,
                                             std::int32_t size);
VOX_EXPORT std::uint8_t* asn_build_int(std::uint8_t* data, std::int32_t* left, std::uint8_t tag,
                                       const std::int32_t* value, std::int32_t size);

// asn_parse_unsigned_int reads 1 to 5 octets, of which a fifth is a zero in front. Fewer than four
// octets are extended with the sign of the first one, so 42 01 FF reads as 0xFFFFFFFF.
VOX_EXPORT const std::uint8_t* asn_parse_unsigned_int(const std::uint8_t* data, std::int32_t* left,
                                                      std::uint8_t* tag, std::uint32_t* value,
                                                      std::int32_t size);
// asn_build_unsigned_int drops leading octets by the rule of signed numbers even behind the zero
// octet of a large value, so values from 0xFF800000 up come out short (0xFFFFFFFF as 02 00 FF).
VOX_EXPORT std::uint8_t* asn_build_unsigned_int(std::uint8_t* data, std::int32_t* left,
                                                std::uint8_t tag, const std::uint32_t* value,
                                                std::int32_t size);

// asn_parse_string copies the contents to bytes[0, *count) and sets *count to their length; fails
// when they are longer than *count.
VOX_EXPORT const std::uint8_t* asn_parse_string(const std::uint8_t* data, std::int32_t* left,
                                                std::uint8_t* tag, std::uint8_t* bytes,
                                                std::int32_t* count);
VOX_EXPORT std::uint8_t* asn_build_string(std::uint8_t* data, std::int32_t* left, std::uint8_t tag,
                                          const std::uint8_t* bytes, std::int32_t count);

// asn_parse_oid stores the arcs at arcs[0, *count) and sets *count to the arcs stored; arcs beyond
// the capacity are read and dropped. The first sub-identifier v becomes the arcs v / 40 and v % 40.
// Fails on empty contents and on a sub-identifier that is cut off or passes 32 bits.
VOX_EXPORT const std::uint8_t* asn_parse_oid(const std::uint8_t* data, std::int32_t* left,
                                             std::uint8_t* tag, std::uint32_t* arcs,
                                             std::int32_t* count);
// asn_build_oid writes `count` arcs; fewer than two give one zero octet. Contents of more than 512
// octets fail.
VOX_EXPORT std::uint8_t* asn_build_oid(std::uint8_t* data, std::int32_t* left, std::uint8_t tag,
                                       const std::uint32_t* arcs, std::int32_t count);

// asn_parse_null fails unless the contents are empty.
VOX_EXPORT const std::uint8_t* asn_parse_null(const std::uint8_t* data, std::int32_t* left,
                                              std::uint8_t* tag);
VOX_EXPORT std::uint8_t* asn_build_null(std::uint8_t* data, std::int32_t* left, std::uint8_t tag);

}  // namespace vox
