// How the emulated bus's events survive programs that stop listening while they are sent.
//
// Source: umockdev 0.17 (uevent_sender); unix(7). Thread rule: free functions, any thread.
#pragma once

namespace vox::sim {

// SendsToMonitorsThatAreGone says whether this process's events do so; asking for it links in what
// does it.
bool SendsToMonitorsThatAreGone();

}  // namespace vox::sim
