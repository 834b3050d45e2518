// The backend as a whole, from sane_init to sane_exit: its settings, the devices, the open handles.
//
// Nothing is kept for the whole life of the process but a pointer and the table of handles, so that
// nothing happens when the process ends without a sane_exit. A process that was forked from a host
// leaves what it has got from its parent alone, whose threads it has not, and begins anew.
//
// Thread rule: one thread at a time, but for Find, which signal handlers call too.
#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include <sane/sane.h>

#include "frontends/sane/Handle.h"

namespace vox::sane {

inline constexpr std::size_t kMostHandles = 64;

class Backend {
 public:
  // Begin makes the backend unless it is there; End closes all handles and forgets it; Current
  // gives it, or null.
  static void Begin();
  static void End();
  static Backend* Current();

  // Find gives an open handle; null for anything else. It does nothing but what a signal handler
  // may.
  static Handle* Find(SANE_Handle handle) noexcept;

  const SANE_Device** List(bool local_only) { return devices_->List(local_only); }

  // Open gives a handle; "" means the first device of the list that is there, as the standard has
  // it; after 15 s no other is tried. Throws cli::Failure, std::bad_alloc.
  SANE_Handle Open(const std::string& name);
  // Close does nothing for what is no open handle.
  static void Close(SANE_Handle handle);

 private:
  Backend();

  SANE_Handle OpenNamed(const std::string& name);
  SANE_Handle OpenFirst();

  const int process_;
  Backend* before_ = nullptr;  // what its parent had inherited, of one that was inherited
  std::unique_ptr<Devices> devices_;
};

}  // namespace vox::sane
