#include "vox/platform/PreferencesStore.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <system_error>
#include <thread>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "vox/platform/FileDescriptor.h"
#include "vox/platform/FileReplacement.h"
#include "vox/platform/Folders.h"
#include "vox/platform/PropertyListFile.h"
#include "vox/platform/SystemLog.h"

namespace vox {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr mode_t kFileMode = 0600;    // settings are the user's own business
constexpr mode_t kFolderMode = 0700;  // as the XDG base directory specification asks
constexpr std::chrono::milliseconds kLockInterval{5};

int MakeFolders(const fs::path& folder) {
  if (folder.empty() || ::mkdir(folder.c_str(), kFolderMode) == 0 || errno == EEXIST) return 0;
  if (errno != ENOENT || !folder.has_relative_path()) return errno;
  if (const int error = MakeFolders(folder.parent_path())) return error;
  return ::mkdir(folder.c_str(), kFolderMode) == 0 || errno == EEXIST ? 0 : errno;
}

// Where files cannot be locked at all, settings are stored without.
bool CannotLock(int error) {
  return error == ENOLCK || error == ENOSYS || error == EOPNOTSUPP;
}

// WaitForLock locks the file `name` until *lock is closed. The lock belongs to the open file, so it
// holds between threads as between processes.
int WaitForLock(const std::string& name, std::chrono::milliseconds wait, FileDescriptor* lock) {
  lock->Reset(::open(name.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, kFileMode));
  if (!*lock) return errno;
  const auto deadline = Clock::now() + wait;
  for (;;) {
    struct flock whole {};
    whole.l_type = F_WRLCK;
    if (::fcntl(lock->Get(), F_OFD_SETLK, &whole) == 0 || CannotLock(errno)) return 0;
    if (errno != EAGAIN && errno != EACCES && errno != EINTR) return errno;
    if (Clock::now() >= deadline) return ETIMEDOUT;
    std::this_thread::sleep_for(kLockInterval);
  }
}

int KeepAside(const std::string& path) {
  const KeptFile kept = KeepDamagedFile(path);
  if (kept.error == 0 && kept.first) {
    LogToSystem("%s is damaged and was kept as %s", path.c_str(), kept.path.c_str());
  }
  return kept.error == ENOENT ? 0 : kept.error;
}

}  // namespace

std::string UserPreferencesPath(const std::string& domain) {
  const std::string folder = UserConfigFolder();
  return folder.empty() ? folder : (fs::path(folder) / (domain + ".plist")).string();
}

PreferencesStore::PreferencesStore(std::string path, std::chrono::milliseconds lock_wait)
    : path_(std::move(path)), lock_wait_(lock_wait) {}

std::optional<PropertyValue> PreferencesStore::Value(std::string_view key) const {
  MutexLock lock(mutex_);
  const auto change = pending_.find(key);
  if (change != pending_.end()) return change->second;
  ReadFirst();
  return stored_.Value(key);
}

Dictionary PreferencesStore::Values() const {
  MutexLock lock(mutex_);
  ReadFirst();
  return Changed(stored_);
}

void PreferencesStore::Set(std::string_view key, PropertyValue value) {
  MutexLock lock(mutex_);
  pending_.insert_or_assign(std::string(key), std::move(value));
}

void PreferencesStore::Remove(std::string_view key) {
  MutexLock lock(mutex_);
  pending_.insert_or_assign(std::string(key), std::nullopt);
}

int PreferencesStore::Synchronise() {
  MutexLock lock(mutex_);
  if (path_.empty()) return ENOENT;
  return pending_.empty() ? Load() : Store();
}

void PreferencesStore::ReadFirst() const {
  if (!read_) Load();
}

Dictionary PreferencesStore::Changed(Dictionary values) const {
  for (const auto& [key, value] : pending_) {
    if (value) {
      values.Set(key, *value);
    } else {
      values.Remove(key);
    }
  }
  return values;
}

int PreferencesStore::Load() const {
  DictionaryFile file = ReadDictionaryFile(path_);
  if (file.state == FileState::Unreadable) return file.error;
  stored_ = std::move(file.content);
  read_ = true;  // not before: a file that could not be read is no empty one
  return file.state == FileState::Damaged ? KeepAside(path_) : 0;
}

int PreferencesStore::Store() {
  if (const int error = MakeFolders(fs::path(path_).parent_path())) return error;
  std::string target;
  if (const int error = TargetOfLinks(path_, &target)) return error;
  FileDescriptor lock;
  if (const int error = WaitForLock(target + ".lock", lock_wait_, &lock)) return error;
  if (const int error = Load()) return error;
  Dictionary changed = Changed(stored_);
  if (changed != stored_) {
    if (const int error = WriteDictionaryFile(path_, changed, kFileMode)) return error;
  }
  stored_ = std::move(changed);
  pending_.clear();
  return 0;
}

}  // namespace vox
