// The library's own tables (SupportedDevices.plist and the like) among the files of the machine.
//
// Thread rule: any thread, as long as none changes the environment at the same time.
#pragma once

#include <string>

#include "vox/platform/Export.h"

namespace vox {

// ResourcePath gives the place of the resource `name`.`type`: in the folder that the environment
// variable VOX_RESOURCES names (programs with raised privileges do not listen to it); else in
// share/vox of the nearest folder above the library's own file that has one, which holds for an
// installed library, moved or not, and for the build tree; else in the folder that the library was
// configured to be installed to. The file itself may be missing.
VOX_EXPORT std::string ResourcePath(const std::string& name, const std::string& type);

}  // namespace vox
