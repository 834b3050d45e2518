// From what went wrong to the status that a frontend is told.
//
// Thread rule: pure functions.
#pragma once

#include <cstdint>

#include <sane/sane.h>

#include "tools/vox/Failure.h"

namespace vox::sane {

// StatusOf gives the status of a failure of code that is shared with the programs, whose exit
// statuses are SANE's numbers; a mistake in a name is SANE_STATUS_INVAL.
SANE_Status StatusOf(const cli::Failure& failure);

// StatusOfScan gives the status of a page that ended with an interface error status 0 to 8. A
// device tells a fault within a page without its kind; where sheets move (`feeder`) it is a jam.
SANE_Status StatusOfScan(std::uint32_t status, bool feeder);

// StatusText gives libsane's own words for the number of a status, which may be none.
const char* StatusText(SANE_Word status);

}  // namespace vox::sane
