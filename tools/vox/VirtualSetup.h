// VirtualSetup is what --virtual stands for: a virtual device and a job server in threads of this
// process, on free ports of loopback, and a private folder for settings and temporary files
// (VOX_ROOT, XDG_CONFIG_HOME, TMPDIR). Any number run at once beside a real job server, as any
// user.
//
// Thread rule: constructed before other threads use the library; destroyed after them.
#pragma once

#include <string>

#include "sim/VirtualDevice.h"
#include "tools/vox/Options.h"
#include "tools/vox/PrivateFolder.h"
#include "tools/voxjobd/JobServer.h"

namespace vox::cli {

class VirtualSetup {
 public:
  // Sets these variables and the library's two ports. `both_sides` makes the pages fronts and
  // backs of sheets in turn. Throws Failure: 9 (11 without permission) for a page file that cannot
  // be read, 9 for a device that cannot start, 64 for a fault that is none.
  VirtualSetup(const VirtualOptions& options, bool both_sides);

  const std::string& Address() const { return device_.Address(); }
  // Root is the private folder, for a cancel that ends the program without the destructor.
  const std::string& Root() const { return root_.Path(); }

 private:
  PrivateFolder root_;
  JobServer job_server_;
  sim::VirtualDevice device_;  // stops before the job server, and both before the folder goes
};

}  // namespace vox::cli
