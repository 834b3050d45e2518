// PreferencesStore holds the settings of one user, in a property-list file that any number of
// processes share.
//
//   Set, Remove --> pending --Synchronise--> lock, read the file, apply what is pending, replace it
//
// Values that are set can be read back at once, but other processes see them after Synchronise,
// which also brings in what others have written. So two processes that write different keys lose
// nothing; of the same key the last one to synchronise wins.
//
// The lock is advisory, on the file PATH.lock beside the (real) file, and waited for at most
// kPreferencesLockWait; a file system that knows no locks goes without. A damaged file is kept
// aside (KeepDamagedFile) and reported to the system log before it is replaced; one that cannot be
// read is never written over.
//
// Thread rule: any thread; while one synchronises, the others wait.
#pragma once

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "vox/platform/Export.h"
#include "vox/platform/Mutex.h"
#include "vox/platform/PropertyValue.h"

namespace vox {

inline constexpr std::chrono::milliseconds kPreferencesLockWait{2000};

// UserPreferencesPath gives the file of a domain ("com.veltronix.vox"): DOMAIN.plist in the folder
// that XDG_CONFIG_HOME names, else in .config of the user's home. Nothing is created.
// Returns: the path; empty when the user has no home.
VOX_EXPORT std::string UserPreferencesPath(const std::string& domain);

class VOX_EXPORT PreferencesStore {
 public:
  // The file is read on the first question, and on each until that succeeds. An empty path makes a
  // store without a file: everything stays pending and Synchronise fails with ENOENT.
  explicit PreferencesStore(std::string path,
                            std::chrono::milliseconds lock_wait = kPreferencesLockWait);
  PreferencesStore(const PreferencesStore&) = delete;
  PreferencesStore& operator=(const PreferencesStore&) = delete;

  const std::string& Path() const { return path_; }

  // Value gives what was set last, else what the file held at the last synchronisation.
  std::optional<PropertyValue> Value(std::string_view key) const;
  Dictionary Values() const;
  void Set(std::string_view key, PropertyValue value);
  void Remove(std::string_view key);

  // Synchronise reads the file and, if something is pending, writes it (mode 0600 when new; its
  // folder is made when missing). With nothing pending it takes no lock.
  // Returns: 0; ETIMEDOUT when the lock was not free in time, or the errno of what failed. After a
  //          failure what was pending still is, and the next call tries again.
  int Synchronise();

 private:
  using Changes =
      std::map<std::string, std::optional<PropertyValue>, std::less<>>;  // none: removed

  Dictionary Changed(Dictionary values) const VOX_REQUIRES(mutex_);
  void ReadFirst() const VOX_REQUIRES(mutex_);
  int Load() const VOX_REQUIRES(mutex_);
  int Store() VOX_REQUIRES(mutex_);

  const std::string path_;
  const std::chrono::milliseconds lock_wait_;
  mutable Mutex mutex_;
  mutable bool read_ VOX_GUARDED_BY(mutex_) = false;
  mutable Dictionary stored_ VOX_GUARDED_BY(mutex_);  // the file as last read or written
  Changes pending_ VOX_GUARDED_BY(mutex_);
};

}  // namespace vox
