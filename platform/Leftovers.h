// What writers that were killed have left in a folder: the files that they were writing aside.
//
// Thread rule: any thread and any process at once.
#pragma once

#include <ctime>
#include <string_view>

#include "vox/platform/Export.h"

namespace vox {

inline constexpr std::time_t kLeftoverAge = 3600;  // seconds; no writer takes that long

// RemoveLeftovers removes the files of the folder that is open as `folder` whose names are `prefix`
// and six characters more, as mkstemp(3) makes them, if they are plain files of this user's that
// nobody has changed for kLeftoverAge. What cannot be looked at or removed stays.
VOX_EXPORT void RemoveLeftovers(int folder, std::string_view prefix);

}  // namespace vox
