// The registry of devices as commands use it: what the library keeps quiet about the settings' file
// is told to a person.
//
// Thread rule: the main thread.
#pragma once

#include <string>

#include "tools/vox/Failure.h"
#include "vox/DevicesManager.h"
#include "vox/drivers/net/searchping.h"

namespace vox::cli {

inline constexpr char kUserDomain[] = "com.veltronix.vox";  // of the user's own settings

// OpenRegistry gives the registry. A damaged file of settings, the shared or the user's own, is
// kept aside and reported, a line on standard error, once; it counts as empty.
DevicesManager& OpenRegistry();

// BeforeSharedChange makes sure that a change of the shared settings loses nothing. Throws Failure
// for a file that may not be read, and for a damaged one that cannot be kept.
void BeforeSharedChange();

// AfterChange throws Failure when the change of a store that this thread made last was not written.
void AfterChange();

// SortedDevices gives the known devices by name, then by id.
DeviceInfoArray SortedDevices(const DevicesManager& registry);

// Note writes a line for the user on standard error.
void Note(const std::string& line);

// NoteNoPings says why pings cannot be sent, and what that means; of permitted ones nothing.
void NoteNoPings(PING_ACCESS access);

// kTooFewDescriptors goes behind what could not be done for want of them.
inline constexpr char kTooFewDescriptors[] =
    "too few file descriptors; raise their limit (see ulimit -n) and try again";

}  // namespace vox::cli
