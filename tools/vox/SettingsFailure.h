// Trouble with the files in which vox keeps settings. Nobody has named these files, so the advice
// is what can be done about them where they are.
//
// Thread rule: any thread.
#pragma once

#include <string>

#include "tools/vox/Failure.h"

namespace vox::cli {

enum class Store {
  kShared,  // of the machine: the group "scanner" may change it
  kUser,    // the user's own
};

// SettingsFailure describes a failed access: `what` is the verb ("write"), `path` the file, `error`
// an errno. Returns: a Failure with status 11 where permission is missing, 10 without memory,
// else 9.
Failure SettingsFailure(Store store, const std::string& what, const std::string& path, int error);

}  // namespace vox::cli
