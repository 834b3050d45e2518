// Environment answers questions about the user's desktop; one object in a process.
//
// Thread rule: any thread, as long as none changes the environment variables at the same time.
#pragma once

#include <optional>
#include <string>

#include "vox/Singleton.h"
#include "vox/platform/Export.h"
#include "vox/platform/Folders.h"

namespace vox {

class VOX_EXPORT Environment : public Singleton<Environment> {
 public:
  // findFolderInDomain gives the path of a standard folder without creating it (FindFolder):
  //   kPreferencesFolder, LocalDomain        settings that all users of the machine share
  //   kDocumentsFolder, UserDomain           the user's documents
  //   kTemporaryFolder, UserDomain           the user's short-lived files
  //   kApplicationSupportFolder, SystemDisk  what programs bring along, help books included
  // Returns: the path without a slash at its end; nil when the folder does not exist, and for other
  //          types and domains.
  std::optional<std::string> findFolderInDomain(FolderType type, FolderDomain domain);

  // userTemporaryFolder gives a folder for short-lived files that only this user may enter, and
  // makes it when it is missing; "/tmp/" when none can be had, so whoever creates a file there must
  // expect links and files of others.
  std::string userTemporaryFolder();

  // registerHelpBook registers the product's help book, "Veltronix Vox/Veltronix_Vox_Help.bundle"
  // in the folder 'asup' of the system disk, with the system's help viewer. How that went goes to
  // the system log.
  // Returns: true, always.
  bool registerHelpBook();

  // seizeFileLock opens the file for writing, creates it when missing (mode 0666 less the umask),
  // and takes an exclusive record lock on its first byte (F_SETLK: advisory, of this process), or
  // gives up at once. A second call in the same process succeeds; and closing any descriptor of the
  // file in this process gives the lock up.
  // Returns: a descriptor, the caller's to close, that holds the lock until then or until the
  //          process ends; -1 when the file cannot be opened or the lock is refused. A descriptor
  //          whose lock was refused stays open, since closing it would give up a lock that the
  //          process may hold through another one.
  int seizeFileLock(const std::string& path);

 private:
  friend class Singleton<Environment>;
  Environment() = default;
  ~Environment() = default;
};

template <>
VOX_EXPORT Singleton<Environment>::Slot& Singleton<Environment>::slot();

}  // namespace vox
