// Environment answers questions about the user's desktop; one object in a process.
//
// Thread rule: any thread.
#pragma once

#include <string>

#include "vox/Singleton.h"
#include "vox/platform/Export.h"

namespace vox {

class VOX_EXPORT Environment : public Singleton<Environment> {
 public:
  // userTemporaryFolder gives a folder for short-lived files that only this user may enter; "/tmp/"
  // when none can be had, so whoever creates a file there must expect links and files of others.
  std::string userTemporaryFolder();

 private:
  friend class Singleton<Environment>;
  Environment() = default;
  ~Environment() = default;
};

template <>
VOX_EXPORT Singleton<Environment>::Slot& Singleton<Environment>::slot();

}  // namespace vox
