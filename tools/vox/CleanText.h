// Text from a device, a file, another process or the command line, made safe to print. A terminal
// obeys control characters, those of C1 (U+0080 to U+009F) too, and turns its lines about at marks
// for writing from right to left, so that a name could show as something else than it is.
//
// Thread rule: pure functions.
#pragma once

#include <string>
#include <string_view>

namespace vox::cli {

// CleanText gives one line: each control character, line or paragraph separator and mark of
// direction, and each sequence of bytes that is no UTF-8, becomes a '?'. All else passes.
std::string CleanText(std::string_view text);

// CleanLines is the same for a text of several lines: newlines pass.
std::string CleanLines(std::string_view text);

// EscapeForTerminal writes the characters that CleanText replaces as JSON does, "\u009b", so that
// they are kept. The text is JSON, in which they stand in strings alone, and UTF-8.
std::string EscapeForTerminal(std::string_view json);

}  // namespace vox::cli
