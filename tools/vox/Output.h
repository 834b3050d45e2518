// What vox writes for people and scripts. Whatever the text holds, its lines are safe for a
// terminal (see CleanText.h); what comes from outside is cleaned before it is put into a text of
// several lines all the same, as it may hold newlines.
//
// Thread rule: the main thread.
#pragma once

#include <string>

namespace vox::cli {

// KeepStandardOutput leaves standard output to vox: what the library prints there from now on for
// whoever debugs it is dropped, so that pages and JSON in a pipe stay whole. The descriptor itself
// is untouched. Once, at the program's start.
void KeepStandardOutput();

// PrintOut writes a text to standard output and flushes it. Throws Failure.
void PrintOut(const std::string& text);

// PrintError writes one line to standard error, with the program's name before it.
void PrintError(const std::string& line);

}  // namespace vox::cli
