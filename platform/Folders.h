// The folders of the machine and of the user that the library keeps files in.
//
// The environment variable VOX_ROOT names a folder that is put in front of every machine-wide path,
// so that tests and trials leave the machine alone. Programs that run with raised privileges do not
// listen to the environment.
//
// Thread rule: any thread, as long as none changes the environment at the same time.
#pragma once

#include <string>

#include "vox/platform/Export.h"

namespace vox {

// MachinePath gives the place of a machine-wide path: the folder that VOX_ROOT names with
// `absolute`, which begins with a slash, behind it; `absolute` itself when VOX_ROOT is unset or
// empty. Nothing is created.
VOX_EXPORT std::string MachinePath(const std::string& absolute);

// UserTemporaryFolder gives a folder for short-lived files of this user alone, without a slash at
// its end, and creates it when it is missing: owned by the user, mode 0700, not a symbolic link.
// It lies in the folder that TMPDIR names, else in /var/tmp (a machine-wide path). A folder that
// bears the name and is somebody else's, a link or no folder is not used.
// Returns: the path; empty when neither place can give such a folder.
VOX_EXPORT std::string UserTemporaryFolder();

}  // namespace vox
