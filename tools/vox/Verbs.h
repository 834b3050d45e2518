// The verbs about devices and settings. Each carries a command out, says on standard output
// what came of it, and throws Failure.
//
// Thread rule: the main thread, once in a process.
#pragma once

#include "tools/vox/Options.h"

namespace vox::cli {

void RunDiscover(const DiscoverOptions& options);
void RunList(const ListOptions& options);
void RunAdd(const AddOptions& options);
void RunRemove(const RemoveOptions& options);
// Devices that fail get a line each on standard error; the failure of the first of them is the
// command's.
void RunRegister(const RegisterOptions& options);
void RunSettings(const SettingsOptions& options);

}  // namespace vox::cli
