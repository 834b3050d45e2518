// What a property list may do to the one who reads it is judged here, before libplist, whose
// readers recurse and unfold without limit, sees the bytes. The judgement may only err towards
// refusing: a list that is let through nests and unfolds no further than the limits of
// PropertyList.h; that it is well-formed is libplist's to say.
//
// Thread rule: pure functions.
#pragma once

#include <cstdint>
#include <span>

namespace vox {

bool IsBinaryPropertyList(std::span<const std::uint8_t> bytes);

// XmlListIsWithinLimits counts tags and the arrays and dictionaries that are open at once. What
// stands in comments and CDATA sections opens, but never closes; tags whose end is a matter of
// opinion, and document types with definitions of their own, are refused.
bool XmlListIsWithinLimits(std::span<const std::uint8_t> bytes);

// BinaryListIsWithinLimits follows the references from the root object, each object once. Keys must
// be texts without a zero in them.
bool BinaryListIsWithinLimits(std::span<const std::uint8_t> bytes);

}  // namespace vox
