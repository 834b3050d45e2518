// The starter brings a job server up where none runs, for programs that are about to scan over the
// network. A server that it starts lives in a session of its own, so that Ctrl-C at a terminal does
// not reach it, and ends by itself when nobody has needed it for ten seconds.
//
// Call it right before StartScan: an idle server outlasts the scan command's retries, but not a
// user who thinks.
//
// Thread rule: any thread. Two callers at once, in any processes, are safe: one server wins and
// both find it.
#pragma once

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

namespace vox {

struct JobServerStarterOptions {
  std::string program;                 // path of voxjobd; empty: looked for as FindJobServer does
  std::vector<std::string> arguments;  // besides --exit-when-idle
  std::chrono::milliseconds patience{5'000};  // until the server must be found
};

struct JobServerPresence {
  bool running = false;
  bool started = false;    // by this call
  std::string error;       // one line for a person when not running
  bool forbidden = false;  // the server could not start, and this user may not open its lock file
};

// EnsureJobServer returns at once when a server holds the lock file, and puts its idle time back to
// ten seconds. Otherwise it starts voxjobd and waits until the server can be found.
JobServerPresence EnsureJobServer(const JobServerStarterOptions& options = {});

// FindJobServer gives the path of voxjobd, as it is found from the running program: beside it; in
// the folder voxjobd/ beside its own, as in a build tree, where every program has a folder; where
// it was installed; in the absolute folders of PATH. Empty: nowhere.
std::string FindJobServer();

// FindJobServerFrom does the same for the program at `program`, an absolute path.
std::string FindJobServerFrom(const std::filesystem::path& program);

}  // namespace vox
