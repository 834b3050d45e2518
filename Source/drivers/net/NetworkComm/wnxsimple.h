// Conversions between the flat records that callers fill and read and the standard records that the
// codec builds and parses.
//
// Thread rule: reentrant but for szDefaultComName and rand().
#pragma once

#include <cstdint>

#include "vox/drivers/net/NetworkComm/wnxsnmpmem.h"
#include "vox/platform/Export.h"

namespace vox {

// The default community, "public" until somebody points it elsewhere (NUL-terminated; 127
// characters of it are used). Set it before other threads make requests.
VOX_EXPORT extern const char* szDefaultComName;

// snmp_simple2standard makes a message from a flat record, with a request-id from rand(). An empty
// szComName is filled with the default community first, in the caller's record.
// Returns: a new record, which the caller releases with free_snmp_pdu; null when a text has no
// NUL, an OID cannot be read, a value size is not 0 to 1,535, or memory is short.
VOX_EXPORT snmp_pdu* snmp_simple2standard(snmp_simple_pdu* simple);

// snmp_standard2simple fills a flat record from a message: as many values as both have; nValNum and
// the values beyond stay as they are.
// Returns: 0; -1 when a value has more than 1,535 bytes or an OID's text more than 255 characters.
// Owner:   on -1, and only then, `pdu` has been released.
VOX_EXPORT std::int32_t snmp_standard2simple(snmp_pdu* pdu, snmp_simple_pdu* simple);

}  // namespace vox
