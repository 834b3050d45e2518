// The in-memory records of SNMP messages, and their memory. snmp_pdu and its chain of
// snmp_val_list is the standard form that the codec builds and parses; snmp_simple_pdu is the flat
// form that callers fill and read. Numbers in value buffers are in the host's byte order.
//
// Values, in both forms (tag, bytes held, nValSize):
//   0x02                one signed 32-bit number                4
//   0x04, 0x40          the octets and a NUL behind them        octets, the NUL not counted
//   0x05                none                                    0
//   0x06                the arcs, unsigned 32-bit               4 x arcs
//   0x41, 0x42, 0x43    one unsigned 32-bit number              4
//   any other           none                                    the encoded length
//
// Owner: a record owns every buffer that its pointers name. Everything comes from malloc.
// Thread rule: plain values.
#pragma once

#include <cstdint>

#include "vox/drivers/net/NetworkComm/wnxsnmpconst.h"
#include "vox/platform/Export.h"

namespace vox {

// An IPv4 address in network byte order, as it lies in a sockaddr_in.
union snmp_ip_address {
  std::uint32_t ulAddress;
  std::uint8_t byAddress[4];
};

union snmp_agent_address {
  std::uint32_t ulAgentAddress;
  std::uint8_t byAgentAddress[4];
};

struct counter64 {
  std::uint32_t ulHigh, ulLow;
};

union snmp_value {
  std::int32_t* pnInt;
  std::uint32_t* pdwOid;
  std::uint8_t* pbyData;
  std::uint8_t* pbyBitString;
  struct counter64* counter64;
};

// snmp_val_list is one variable binding.
struct snmp_val_list {
  snmp_val_list* lpNextSnmpValList;  // null at the end
  char strNama[64];                  // reserved
  std::uint8_t byAttribute;          // reserved
  std::uint32_t* pdwOid;             // owned, nOidLen arcs
  std::int32_t nOidLen;
  std::uint8_t byDataType;  // BER tag of the value
  snmp_value uniVal;        // owned
  std::int32_t nValSize;    // bytes
};

// snmp_pdu is one message in standard form.
struct snmp_pdu {
  std::int32_t nVersion;      // 0 (SNMPv1) only
  snmp_ip_address IPAddress;  // sender of a parsed message; 0 in built ones
  std::uint32_t* pdwOidSrc;   // reserved; released if set
  std::int32_t nOidSrcLen;
  std::uint32_t* pdwOidDst;  // reserved; released if set
  std::int32_t nOidDstLen;
  std::uint32_t* pdwOidContext;  // reserved; released if set
  std::int32_t nOidContextLen;
  char* pcComName;           // owned community, NUL-terminated
  std::int32_t nComnameLen;  // bytes, without the NUL
  std::uint8_t byCommand;    // PDU tag
  std::int32_t nReqID;
  std::int32_t nErrStat;
  std::int32_t nErrIndex;
  snmp_agent_address AgentAddress;  // trap
  std::uint32_t* pdwEntOid;         // trap: owned, nEntOidLen arcs
  std::int32_t nEntOidLen;
  std::int32_t nTrapType;        // trap: generic-trap
  std::int32_t nSpecificType;    // trap: specific-trap
  std::uint32_t ulTime;          // trap: 1/100 s
  snmp_val_list* lpSnmpValList;  // owned, in message order
};

// snmp_simple_val is one value of the flat form.
struct snmp_simple_val {
  char szOid[WNXSNMP_OIDTEXT_SIZE];             // dotted text
  std::uint8_t byDataType;                      // BER tag; 0 in a request: none given, NULL is sent
  std::uint8_t SnmpValBuf[WNXSNMP_VALUE_SIZE];  // the last byte is kept for a NUL
  std::int32_t nValSize;                        // bytes used in SnmpValBuf
};

// snmp_simple_pdu is one message in flat form.
struct snmp_simple_pdu {
  snmp_ip_address IPAddress;
  std::uint8_t byCommand;                // PDU tag
  char szComName[WNXSNMP_COMNAME_SIZE];  // NUL-terminated; empty: the default community
  std::int32_t nErrStat;
  std::int32_t nErrIndex;
  std::int32_t nValNum;              // capacity of lpSnmpSimpleVal, never a count of answers
  snmp_simple_val* lpSnmpSimpleVal;  // owned
};

// get_pdu_memory gives storage for one snmp_pdu, uninitialised; null when there is none.
VOX_EXPORT snmp_pdu* get_pdu_memory();

// free_snmp_pdu releases a message with its bindings and every buffer that they own; null is
// accepted.
VOX_EXPORT void free_snmp_pdu(snmp_pdu* pdu);

// wnx_copy gives a copy of bytes[0, size) with a NUL behind it, from malloc; null when size is
// negative or memory is short.
void* wnx_copy(const void* bytes, std::int32_t size);

// WNXSNMP_MallocSnmpSimplePdu gives an array of `count` zeroed records, each with `values` zeroed
// values and nValNum set to `values`. Null when a number is negative or memory is short; nothing
// stays allocated then.
VOX_EXPORT snmp_simple_pdu* WNXSNMP_MallocSnmpSimplePdu(std::int32_t count, std::int32_t values);

// WNXSNMP_FreeSnmpSimplePdu releases an array of `count` records and their values; null is
// accepted. Returns 0.
VOX_EXPORT std::int32_t WNXSNMP_FreeSnmpSimplePdu(std::int32_t count, snmp_simple_pdu* pdus);

}  // namespace vox
