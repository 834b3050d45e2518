#include "tests/support/Footprint.h"

#include <filesystem>
#include <set>
#include <thread>

#include <sys/ipc.h>
#include <sys/sem.h>

#include "tests/support/Moment.h"
#include "vox/platform/Mutex.h"

namespace vox::test {
namespace {

Mutex mutex;
std::set<int>& Made() VOX_REQUIRES(mutex) {
  static std::set<int> made;
  return made;
}

int MakeNotedSet(key_t key, int semaphores, int flags) {
  const int semid = ::semget(key, semaphores, flags);
  MutexLock lock(mutex);
  if (semid >= 0) Made().insert(semid);
  return semid;
}

std::size_t Entries(const char* folder) {
  const auto files = std::filesystem::directory_iterator(folder);
  return static_cast<std::size_t>(std::distance(begin(files), end(files)));
}

// A sanitizer's own thread starts with the first thread of the process.
std::size_t ThreadsOnceOneRan() {
  std::thread([] {}).join();
  return Entries("/proc/self/task");
}

}  // namespace

bool Exists(int semid) {
  semid_ds about{};
  return ::semctl(semid, 0, IPC_STAT, &about) == 0;
}

Footprint::Footprint()
    : before_(CurrentSessionSystem()),
      threads_(ThreadsOnceOneRan()),
      descriptors_(Entries("/proc/self/fd")) {
  MutexLock lock(mutex);
  Made().clear();
  SessionSystem system = before_;
  system.make_set = &MakeNotedSet;
  SetSessionSystem(system);
}

Footprint::~Footprint() {
  SetSessionSystem(before_);
}

bool Footprint::IsBack() const {
  return Eventually([this] {
    return SetsLeft() == 0 && Entries("/proc/self/task") <= threads_ &&
           Entries("/proc/self/fd") <= descriptors_;
  });
}

std::string Footprint::Describe() const {
  return "sets left " + std::to_string(SetsLeft()) + " of " + std::to_string(SetsMade()) +
         ", threads " + std::to_string(Entries("/proc/self/task")) + " from " +
         std::to_string(threads_) + ", descriptors " + std::to_string(Entries("/proc/self/fd")) +
         " from " + std::to_string(descriptors_);
}

std::size_t Footprint::SetsMade() const {
  MutexLock lock(mutex);
  return Made().size();
}

std::size_t Footprint::SetsLeft() const {
  MutexLock lock(mutex);
  std::size_t left = 0;
  for (const int semid : Made()) left += Exists(semid) ? 1 : 0;
  return left;
}

}  // namespace vox::test
