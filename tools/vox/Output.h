// What vox writes for people and scripts. Whatever the text holds, its lines are safe for a
// terminal (see CleanText.h); what comes from outside is cleaned before it is put into a text of
// several lines all the same, as it may hold newlines.
//
// Thread rule: the main thread.
#pragma once

#include <string>

namespace vox::cli {

// PrintOut writes a text to standard output and flushes it. Throws Failure.
void PrintOut(const std::string& text);

// PrintError writes one line to standard error, with the program's name before it.
void PrintError(const std::string& line);

}  // namespace vox::cli
