// JSON as vox prints it: one object a line, keys in the order that docs/vox.md has.
//
// Thread rule: pure functions.
#pragma once

#include <string>

#include <nlohmann/json.hpp>

#include "vox/platform/PropertyValue.h"

namespace vox::cli {

using Json = nlohmann::ordered_json;

// JsonLine gives the text with a newline behind, which is UTF-8 and safe for a terminal: bytes of a
// text that are no UTF-8 are replaced by U+FFFD, control characters are escaped (see CleanText.h).
std::string JsonLine(const Json& json);

// ValueJson gives a stored value: data as hexadecimal text, dates in seconds since 1970.
Json ValueJson(const PropertyValue& value);

}  // namespace vox::cli
