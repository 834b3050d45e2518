// What network discovery reads from a device over SNMP.
//
// Thread rule: any thread; each look-up blocks for 3 s at most.
#pragma once

#include <cstdint>

#include "vox/platform/Export.h"

namespace vox {

// get_name reads the device's name (sysName) into name[0, size), NUL-terminated and trimmed as
// snmp2c_str does; empty on failure.
// Returns: 0; -1 no answer, or a name of more than size - 1 bytes.
VOX_EXPORT std::int32_t get_name(const char* address, char* name, std::int32_t size);

// snmp2c_str makes a C string of a received text: it puts a NUL at text[length], so text has room
// for length + 1 bytes, and clears the characters at the end that are no graphic ASCII (blanks,
// control characters, bytes of 0x80 and above). Those inside stay.
// Returns: the length of what is left; 0 for a negative length.
VOX_EXPORT std::int32_t snmp2c_str(char* text, std::int32_t length);

}  // namespace vox
