// Which of the remembered devices answer now.
//
// Thread rule: the main thread.
#pragma once

#include <set>
#include <string>

#include "vox/DevicesManager.h"

namespace vox::cli {

// OnlineIds gives the ids of those that do. Where pings are permitted, only a device that answers
// one is asked over SNMP; elsewhere all of them are, at the same time, and a line on standard error
// says so.
std::set<std::string> OnlineIds(const DevicesManager& registry, const DeviceInfoArray& devices);

}  // namespace vox::cli
