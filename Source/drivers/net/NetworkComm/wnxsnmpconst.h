// The numbers of SNMP version 1 (RFC 1157, RFC 1155) and of its encoding (X.690), and the fixed
// capacities of this profile. Tags are the whole identifier octet.
#pragma once

#include <cstdint>

namespace vox {

// Tags of values (X.690 8.1.2; RFC 1155 3.2.3 for 0x40 to 0x43).
constexpr std::uint8_t WNXSNMP_TAG_INTEGER = 0x02;
constexpr std::uint8_t WNXSNMP_TAG_OCTETS = 0x04;
constexpr std::uint8_t WNXSNMP_TAG_NULL = 0x05;
constexpr std::uint8_t WNXSNMP_TAG_OID = 0x06;
constexpr std::uint8_t WNXSNMP_TAG_SEQUENCE = 0x30;
constexpr std::uint8_t WNXSNMP_TAG_IPADDRESS = 0x40;
constexpr std::uint8_t WNXSNMP_TAG_COUNTER32 = 0x41;
constexpr std::uint8_t WNXSNMP_TAG_GAUGE32 = 0x42;
constexpr std::uint8_t WNXSNMP_TAG_TIMETICKS = 0x43;

// Tags of PDUs (RFC 1157 4.1); only the trap has a layout of its own.
constexpr std::uint8_t WNXSNMP_PDU_GET = 0xA0;
constexpr std::uint8_t WNXSNMP_PDU_GETNEXT = 0xA1;
constexpr std::uint8_t WNXSNMP_PDU_RESPONSE = 0xA2;
constexpr std::uint8_t WNXSNMP_PDU_SET = 0xA3;
constexpr std::uint8_t WNXSNMP_PDU_TRAP = 0xA4;

constexpr std::int32_t WNXSNMP_VERSION_1 = 0;
constexpr std::uint16_t WNXSNMP_PORT = 161;

// Capacities.
constexpr std::int32_t WNXSNMP_MESSAGE_SIZE = 1536;    // bytes of a message, built or received
constexpr std::int32_t WNXSNMP_COMNAME_SIZE = 128;     // bytes of szComName, its NUL included
constexpr std::int32_t WNXSNMP_COMMUNITY_MAX = 128;    // bytes of a received community
constexpr std::int32_t WNXSNMP_ARCS_MAX = 128;         // arcs of an OID
constexpr std::int32_t WNXSNMP_OIDTEXT_SIZE = 256;     // bytes of szOid, its NUL included
constexpr std::int32_t WNXSNMP_VALUE_SIZE = 1536;      // bytes of SnmpValBuf, its NUL included
constexpr std::int32_t WNXSNMP_INTEGER_SIZE = 4;       // bytes of a number in memory
constexpr std::int32_t WNXSNMP_OID_STAGE_SIZE = 512;   // bytes of an encoded OID's contents
constexpr std::int32_t WNXSNMP_SEQUENCE_HEADER = 4;    // bytes that asn_build_sequence writes
constexpr std::int32_t WNXSNMP_LENGTH_MAX = 0xFFFF;    // largest length that is built
constexpr std::int32_t WNXSNMP_LENGTH_OCTETS_MAX = 4;  // length octets read behind the first

}  // namespace vox
