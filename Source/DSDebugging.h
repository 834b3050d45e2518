// The TWAIN trace family: a readable trace, on standard error, of the TWAIN operations that a data
// source receives and of what it answers. Numbers are followed by their names where the resource
// DSDebug.plist has one:
//
//         message :  [0x0301] - MSG_OPENDSM
//
// The resource is a dictionary of the categories "Result", "Condition", "Messages", "DataGroup",
// "Attribute" and "Capabilities"; each maps a number, as the trace prints it, to its name.
//
// DS_LogText is the library's own trace hook: everything that the library would trace passes
// through it, and it discards all of it.
//
// Thread rule: any thread; every line is written whole, but lines of several threads interleave.
#pragma once

#include <cstdint>
#include <string>

#include "vox/platform/Export.h"

namespace vox {

// The file that a client may redirect standard error to; nothing here opens it.
VOX_EXPORT extern const char* const DEBUG_LOG_FILENAME;

// DS_DebugInitialize writes a banner with the time of day and then reads the names, anew each time;
// without the resource there are none. DS_DebugTerminate writes a closing rule.
VOX_EXPORT void DS_DebugInitialize();
VOX_EXPORT void DS_DebugTerminate();

// DS_LogTriplet writes an operation, a line for each part, and an empty line; nothing for message
// 0x0601, which comes with every event of the user interface. data is read only when dat is 1 and
// begins with the 16-bit number of the capability then; null leaves that line out.
VOX_EXPORT void DS_LogTriplet(std::uint32_t group, std::uint16_t dat, std::uint16_t msg,
                              const void* data);

// DS_LogResult writes a return code, a condition code other than 0, and an empty line; nothing for
// the return codes 0, 4 and 5.
VOX_EXPORT void DS_LogResult(std::uint16_t rc, std::uint16_t cc);

VOX_EXPORT void DS_LogMessage(std::uint16_t msg);

// DS_LogValue writes one line: the label, the value as `format` prints it, and the name that the
// category `key` has for that text. format is a literal with one conversion of an int; text beyond
// 65,535 bytes is cut.
VOX_EXPORT void DS_LogValue(const char* label, const char* key, const char* format, int value)
    __attribute__((format(printf, 3, 0)));

// DS_LogText accepts a printf format and its arguments and discards them; nothing is formatted.
VOX_EXPORT void DS_LogText(const char* format, ...) __attribute__((format(printf, 1, 2)));

// debug_banner gives what DS_DebugInitialize writes at that time of day. Half a millisecond is
// added to the seconds, which carry into nothing: 59.9996 are written as 60.000.
std::string debug_banner(int hour, int minute, double seconds);

}  // namespace vox
