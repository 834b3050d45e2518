// Dotted OID text to arcs and back.
//
// Thread rule: pure functions.
#pragma once

#include <cstdint>

#include "vox/platform/Export.h"

namespace vox {

// oid_string2array reads runs of decimal digits from text as arcs; any other character only
// separates them, so "1..3" gives 1 and 3. It stops at the NUL or after *length characters.
// Shapes:  arcs[0, *count) out; *count becomes the arcs read, *length the characters left unread.
// Returns: 0; -1 when the text does not begin with a digit or holds more arcs than the capacity;
//          *count and *length are then as they were. An arc above 32 bits wraps.
VOX_EXPORT std::int32_t oid_string2array(const char* text, std::int32_t* length,
                                         std::uint32_t* arcs, std::int32_t* count);

// oid_array2string appends the arcs, with full stops between them, to the NUL-terminated text that
// is there (the caller clears it).
// Shapes:  text[0, capacity) in and out, always NUL-terminated.
// Returns: 0; -1 when capacity - 1 characters are not enough; the text then ends with the last arc
//          that fitted.
VOX_EXPORT std::int32_t oid_array2string(char* text, std::int32_t capacity,
                                         const std::uint32_t* arcs, std::int32_t count);

}  // namespace vox
