#include "vox/Environment.h"

#include "vox/platform/Folders.h"

namespace vox {

template <>
Singleton<Environment>::Slot& Singleton<Environment>::slot() {
  static Slot& slot = *new Slot;  // never destroyed: threads may outlive main
  return slot;
}

std::string Environment::userTemporaryFolder() {
  const std::string folder = UserTemporaryFolder();
  return folder.empty() ? "/tmp/" : folder;
}

}  // namespace vox
