#include "tools/vox/NetworkSearch.h"

#include <new>
#include <utility>

#include "tools/vox/Failure.h"
#include "vox/platform/Threads.h"

namespace vox::cli {

NetworkSearch::NetworkSearch(std::string address) : address_(std::move(address)) {
  if (!StartThread(&thread_, [this] { Run(); }))
    throw Failure(ExitStatus::kNoMemory,
                  "no thread can be had for the search; close other programs and try again");
}

NetworkSearch::~NetworkSearch() {
  Stop();
  for (std::thread& thread : thread_) thread.join();
}

DeviceInfoArray NetworkSearch::Next() {
  MutexLock lock(mutex_);
  while (found_.empty() && !over_) changed_.Wait(lock);
  return std::exchange(found_, {});
}

DeviceInfoArray NetworkSearch::NextUntil(std::chrono::steady_clock::time_point deadline) {
  MutexLock lock(mutex_);
  while (found_.empty() && !over_) {
    if (!changed_.WaitUntil(lock, deadline)) break;
  }
  return std::exchange(found_, {});
}

bool NetworkSearch::Over() const {
  const MutexLock lock(mutex_);
  return over_;
}

void NetworkSearch::Run() {
  try {
    tagNETSEARCH how;
    how.pszAddress = address_.c_str();
    how.nStopFd = stop_.Get();
    how.pbNoMemory = &out_of_memory_;
    how.pbNoDescriptors = &out_of_descriptors_;
    how.found = [this](const DeviceInfo& device) { Take(device); };
    result_ = searchNetworkDevices(nullptr, &answered_, how);
  } catch (const std::bad_alloc&) {
    out_of_memory_ = true;
  }
  const MutexLock lock(mutex_);
  over_ = true;
  changed_.NotifyOne();
}

void NetworkSearch::Take(const DeviceInfo& device) try {
  const MutexLock lock(mutex_);
  found_.push_back(device);
  changed_.NotifyOne();
} catch (const std::bad_alloc&) {  // it comes with the result
}

}  // namespace vox::cli
