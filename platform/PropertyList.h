// Property lists as bytes: XML and binary in, XML out, through libplist.
//
// What comes in may be hostile. Before libplist sees it, its size, the depth of its nesting and
// the size that it unfolds to (binary lists may name one object many times) are held to the limits
// below. Text is made fit for XML: what is no UTF-8, and characters that XML cannot hold (NUL and
// most control characters), become U+FFFD, in keys too; in binary lists text ends at a NUL. So what
// was read, written and read again is equal.
//
// Thread rule: pure functions; any thread, any locale.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "vox/platform/Export.h"
#include "vox/platform/PropertyValue.h"

namespace vox {

inline constexpr std::size_t kPropertyListBytes = 16u
                                                  << 20;     // of a file, and of what it unfolds to
inline constexpr std::size_t kPropertyListNodes = 1u << 15;  // values of a list, keys not counted
inline constexpr int kPropertyListDepth = 64;                // arrays and dictionaries in another

// ParsePropertyList reads a list in either form.
// Returns: the value; nothing for bytes that are no property list or pass a limit.
VOX_EXPORT std::optional<PropertyValue> ParsePropertyList(std::span<const std::uint8_t> bytes);
VOX_EXPORT std::optional<PropertyValue> ParsePropertyList(std::string_view bytes);

// PropertyListXml writes a value as an XML property list. Dates outside of what files can hold take
// the nearest that they can.
// Returns: the text; nothing when the value passes a limit, since it could not be read back.
VOX_EXPORT std::optional<std::string> PropertyListXml(const PropertyValue& value);

// FitForXml gives the text as it can be written: each byte that is part of no valid UTF-8
// character, and each character that XML cannot hold, is U+FFFD.
VOX_EXPORT std::string FitForXml(std::string_view text);

}  // namespace vox
