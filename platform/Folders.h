// The folders of the machine and of the user that the library keeps files in.
//
// The environment variable VOX_ROOT names a folder that is put in front of every machine-wide path,
// so that tests and trials leave the machine alone. Programs that run with raised privileges do not
// listen to the environment.
//
// Thread rule: any thread, as long as none changes the environment at the same time.
#pragma once

#include <optional>
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

// UserHome gives the user's home folder: HOME if it is an absolute path, else what the user
// database says; empty when neither knows one.
VOX_EXPORT std::string UserHome();

// UserConfigFolder gives the user's folder for settings: XDG_CONFIG_HOME if it is an absolute path,
// else .config of the home. Nothing is created; empty without a home.
VOX_EXPORT std::string UserConfigFolder();

// UserDataFolder gives the user's folder for what programs bring along: XDG_DATA_HOME if it is an
// absolute path, else .local/share of the home. Nothing is created; empty without a home.
VOX_EXPORT std::string UserDataFolder();

// A kind of standard folder, in the four characters that the desktop names it with.
struct FolderType {
  char name[5];
};
inline constexpr FolderType kPreferencesFolder{"pref"};
inline constexpr FolderType kDocumentsFolder{"pdoc"};
inline constexpr FolderType kTemporaryFolder{"utmp"};
inline constexpr FolderType kApplicationSupportFolder{"asup"};

// On whose behalf a folder is asked for.
enum class FolderDomain { SystemDisk, LocalDomain, UserDomain };

// StandardFolder gives the place of a standard folder, whether it exists or not:
//   pref, LocalDomain   /var/lib     (a machine-wide path)
//   asup, SystemDisk    /usr/share   (a machine-wide path)
//   pdoc, UserDomain    the documents folder of the user's user-dirs.dirs in the XDG configuration
//                       folder; without an entry there, Documents in the home
//   utmp, UserDomain    the folder that UserTemporaryFolder gives, once that has made it
// Returns: the path, without a slash at its end; nothing for other combinations, and for folders of
//          a user who has no home.
VOX_EXPORT std::optional<std::string> StandardFolder(FolderType type, FolderDomain domain);

// FindFolder is StandardFolder for folders that exist; it creates nothing.
VOX_EXPORT std::optional<std::string> FindFolder(FolderType type, FolderDomain domain);

}  // namespace vox
