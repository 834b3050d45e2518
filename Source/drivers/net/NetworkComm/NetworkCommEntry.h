// The network calls that the library and its clients use: SNMP get, get-next and set on dotted OID
// text, and the device's UDP commands. All of them block; each has a socket of its own.
//
// Hosts are dotted IPv4 text or names. Communities are texts of up to 127 characters; null or empty
// is the default community. Texts in fixed fields must have their NUL.
// Units:       each wait is 3 s.
// Failures:    codes, nothing logged.
// Thread rule: any thread.
#pragma once

#include <cstdint>

#include "vox/drivers/net/NetworkComm/tvr302udp.h"
#include "vox/drivers/net/NetworkComm/tvr302udpcmd.h"
#include "vox/platform/Export.h"

namespace vox {

// _tagMIBREQ asks for, or sets, one object.
struct _tagMIBREQ {
  char oid[WNXSNMP_OIDTEXT_SIZE];  // dotted text
  std::uint8_t dataType;           // BER tag of the value to set
  std::int32_t dataSize;           // in: bytes of data; out: bytes of the value read
  std::uint8_t* data;              // caller's
};

// _tagMIBNEXTREQ asks for the object after an OID.
struct _tagMIBNEXTREQ {
  char oid[WNXSNMP_OIDTEXT_SIZE];   // asked from
  char noid[WNXSNMP_OIDTEXT_SIZE];  // out: the OID that answered
  std::uint32_t dataSize;           // out: bytes
  std::uint8_t* data;               // out: SnmpMemoryFree releases it
};

// SnmpGet reads one object. The value lies in data as wnxsnmpmem.h says; its tag is not told.
// Shapes:  data[0, dataSize) out; dataSize becomes the value's size.
// Returns: 0; -1 unreachable, malformed or refused; -2 out of memory; -3 the value is larger than
//          dataSize, and data is untouched; -101 an answer without a value.
VOX_EXPORT std::int32_t SnmpGet(const char* host, const char* community, _tagMIBREQ* req);

// SnmpGetNext reads the object after oid into a buffer of its own: data, with a NUL behind its
// dataSize bytes. On failure data is null and dataSize 0.
// Returns: 0; -1 unreachable, malformed or refused; -2 out of memory; -101 an answer without a
//          value.
VOX_EXPORT std::int32_t SnmpGetNext(const char* host, const char* community, _tagMIBNEXTREQ* req);

// SnmpMemoryFree releases what SnmpGetNext stored in data, which becomes null.
// Returns: 0; -3 when the record is missing.
VOX_EXPORT std::int32_t SnmpMemoryFree(_tagMIBNEXTREQ* req);

// SnmpSet sets one object to data[0, dataSize) of type dataType; dataSize is at most 1,535.
// Returns: 0; -1 unreachable, malformed or refused (error-status or error-index not 0); -2 out of
//          memory.
VOX_EXPORT std::int32_t SnmpSet(const char* host, const char* community, const _tagMIBREQ* req);

// random_sequence gives a sequence id that cannot be guessed from outside; never 0, which stands
// for "none" where a caller names one. Inside the library only.
std::uint16_t random_sequence();

// UdpCommandSend sends one command to a device and awaits nothing.
// Shapes:  request->param[0, paramSize) in; all of it is sent, though the packet's size byte holds
//          only the low byte of paramSize.
// seqID:   0 stands for a fresh random one.
// Returns: 0; -1 refused or unreachable; -2 out of memory.
VOX_EXPORT std::int32_t UdpCommandSend(const char* host, std::uint16_t seqID,
                                       const _tagUDPCMD* request);

// UdpCommandSendResponse sends one command to a device and waits for the answer that carries the
// same sequence id, trying up to three times. An answer with another id costs an attempt, and from
// then on no answer longer than that one is taken.
// Shapes:  request->param[0, paramSize) in; response->param[0, 255) out: whatever the device says,
//          so give it 255 bytes. Parameters that did not arrive are zero.
// Returns: 0; -1 refused, unreachable or malformed; -2 out of memory; -3 response has no param;
//          -101 no answer.
VOX_EXPORT std::int32_t UdpCommandSendResponse(const char* host, const _tagUDPCMD* request,
                                               _tagUDPCMD* response);

// SetUdpCommandPort sets the port of all later commands; 0 stands for 3892. Returns 0.
VOX_EXPORT std::int32_t SetUdpCommandPort(std::uint16_t port);

}  // namespace vox
