// SNMP version 1 messages (RFC 1157 4), built and parsed: pure functions over buffers, no input or
// output. docs/wire/snmp.md has the grammar and a worked example.
//
// Failures: null or -1, nothing logged; whatever had been built is released. Running out of memory
// counts as a malformed message.
// Thread rule: reentrant.
#pragma once

#include <cstdint>

#include "vox/drivers/net/NetworkComm/wnxber.h"
#include "vox/drivers/net/NetworkComm/wnxoid.h"
#include "vox/drivers/net/NetworkComm/wnxsimple.h"
#include "vox/drivers/net/NetworkComm/wnxsnmpmem.h"

namespace vox {

// snmp_auth_parse reads the message header: SEQUENCE, version, community. *left becomes the bytes
// from the PDU to the message's end.
// Shapes:  community[0, *count) out, *count its length; a NUL follows where the capacity has room.
// Returns: the cursor at the PDU, or null.
VOX_EXPORT const std::uint8_t* snmp_auth_parse(const std::uint8_t* data, std::int32_t* left,
                                               std::uint8_t* community, std::int32_t* count,
                                               std::int32_t* version);

// snmp_auth_build writes the message header (asn_build_sequence) for a PDU of pdu_length bytes,
// then version and community. The header's length counts the version as three octets and the
// community's header as two, so a community of 128 bytes or more, or another version than one of a
// single octet, fails.
// Returns: the cursor where the PDU goes, or null.
VOX_EXPORT std::uint8_t* snmp_auth_build(std::uint8_t* data, std::int32_t* left,
                                         const std::uint8_t* community, std::int32_t count,
                                         std::int32_t version, std::int32_t pdu_length);

// snmp_parse_var_op reads one binding: SEQUENCE, OID, and the header of the value.
// Shapes:  arcs[0, *count) out; *tag and *value_size the value's tag and contents length; *value
//          the cursor at the value's item (its tag octet), which ends before the returned cursor.
// Returns: the cursor past the binding, or null.
VOX_EXPORT const std::uint8_t* snmp_parse_var_op(const std::uint8_t* data, std::int32_t* left,
                                                 std::uint32_t* arcs, std::int32_t* count,
                                                 std::uint8_t* tag, std::int32_t* value_size,
                                                 const std::uint8_t** value);

// snmp_build_var_op writes one binding: a four-byte SEQUENCE header, the OID and the value, which
// is held as snmp_val_list holds it. Contents of more than 127 bytes are moved up by one byte (two
// above 255) behind the header, whose length does not count that; peers of old expect it so.
// Returns: the cursor past the binding, or null (no room, or a tag that cannot be built).
VOX_EXPORT std::uint8_t* snmp_build_var_op(std::uint8_t* data, std::int32_t* left,
                                           const std::uint32_t* arcs, std::int32_t count,
                                           std::uint8_t tag, const std::uint8_t* value,
                                           std::int32_t value_size);

// snmp_build encodes a message. *length: the buffer's capacity in (no more than 1,536 bytes are
// used), the message's length out.
// Returns: 0; -1 when something is missing, the version is not 0 or there is no room.
VOX_EXPORT std::int32_t snmp_build(const snmp_pdu* pdu, std::uint8_t* message,
                                   std::int32_t* length);

// snmp_parse decodes a datagram of up to 1,536 bytes from `sender` (network byte order).
// Returns: a new record, which the caller releases with free_snmp_pdu; null when the message is
// malformed or of another version.
VOX_EXPORT snmp_pdu* snmp_parse(const std::uint8_t* message, std::int32_t length,
                                std::uint32_t sender);

// shift_array moves bytes[0, length) by `shift` bytes, up or down; the ranges may overlap.
VOX_EXPORT void shift_array(std::uint8_t* bytes, std::int32_t length, std::int32_t shift);

}  // namespace vox
