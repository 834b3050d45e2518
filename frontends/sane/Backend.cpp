#include "frontends/sane/Backend.h"

#include <array>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <new>
#include <utility>
#include <vector>

#include <unistd.h>

#include "frontends/sane/Config.h"
#include "frontends/sane/Log.h"
#include "tools/vox/Failure.h"

namespace vox::sane {

namespace {

using Slot = std::atomic<Handle*>;
static_assert(Slot::is_always_lock_free);

Backend* current = nullptr;
Backend* inherited = nullptr;  // what the parent of this process had begun last
constinit std::array<Slot, kMostHandles> handles{};

constexpr std::chrono::seconds kFirstPatience{15};

}  // namespace

Backend::Backend()
    : process_(::getpid()),
      devices_(std::make_unique<Devices>(
          LoadConfig(ConfigFolders(::secure_getenv("SANE_CONFIG_DIR"))))) {}

void Backend::Begin() {
  OpenLog();
  if (Current() == nullptr) current = new Backend;
}

void Backend::End() {
  for (Slot& slot : handles) Close(slot.load());
  if (current != nullptr && current->process_ == ::getpid()) delete current;
  current = nullptr;
}

// What a parent had begun is begun anew, and the parent's is never deleted: its search's thread is
// not here.
Backend* Backend::Current() {
  if (current != nullptr && current->process_ != ::getpid()) {
    Backend* const own = new Backend;
    current->before_ = std::exchange(inherited, current);
    current = own;
  }
  return current;
}

Handle* Backend::Find(SANE_Handle handle) noexcept {
  if (handle == nullptr) return nullptr;
  for (const Slot& slot : handles) {
    Handle* const open = slot.load();
    if (open == handle) return open;
  }
  return nullptr;
}

SANE_Handle Backend::Open(const std::string& name) {
  return name.empty() ? OpenFirst() : OpenNamed(name);
}

// The list is made anew after each device that is not there: the search for it has shown who is.
SANE_Handle Backend::OpenFirst() {
  const auto until = std::chrono::steady_clock::now() + kFirstPatience;
  std::vector<std::string> gone;
  while (std::chrono::steady_clock::now() < until) {
    const std::string first = devices_->First(gone);
    if (first.empty()) break;
    try {
      return OpenNamed(first);
    } catch (const cli::Failure& failure) {
      if (failure.Status() != cli::ExitStatus::kCannot) throw;
      Log(2, "%s; the next device is tried", failure.what());
      gone.push_back(first);
    }
  }
  throw cli::Failure(cli::ExitStatus::kCannot, "there is no device");
}

SANE_Handle Backend::OpenNamed(const std::string& name) {
  auto handle = std::make_unique<Handle>(name, *devices_);
  for (Slot& slot : handles) {
    if (slot.load() != nullptr) continue;
    slot = handle.get();
    Log(2, "%s is open", name.c_str());
    return handle.release();
  }
  throw std::bad_alloc();
}

void Backend::Close(SANE_Handle handle) {
  for (Slot& slot : handles) {
    Handle* const open = slot.load();
    if (open == nullptr || open != handle) continue;
    slot = nullptr;
    if (!open->IsForeign()) delete open;
  }
}

}  // namespace vox::sane
