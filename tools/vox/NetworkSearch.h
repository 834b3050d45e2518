// NetworkSearch searches the network on a thread of its own, so that devices are taken while others
// still answer.
//
// Thread rule: the main thread; Stop from any.
#pragma once

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "vox/drivers/net/search.h"
#include "vox/platform/FileDescriptor.h"
#include "vox/platform/Mutex.h"

namespace vox::cli {

class NetworkSearch {
 public:
  // The search begins at once; `address`, dotted, is whom the question goes to. Throws Failure when
  // no thread can be had.
  explicit NetworkSearch(std::string address);
  ~NetworkSearch();
  NetworkSearch(const NetworkSearch&) = delete;
  NetworkSearch& operator=(const NetworkSearch&) = delete;

  void Stop() { stop_.Raise(); }

  // Next waits for devices and gives those that were found meanwhile; none when the search is over.
  DeviceInfoArray Next() VOX_EXCLUDES(mutex_);

  // NextUntil is Next that waits until then at most; none does not mean then that the search is
  // over: Over tells.
  DeviceInfoArray NextUntil(std::chrono::steady_clock::time_point deadline) VOX_EXCLUDES(mutex_);
  bool Over() const VOX_EXCLUDES(mutex_);

  // The others count once Next gave none.

  bool Answered() const { return answered_; }
  // OutOfMemory tells whether devices may be missing for want of memory.
  bool OutOfMemory() const { return out_of_memory_; }
  // OutOfDescriptors tells whether devices may be missing for want of file descriptors.
  bool OutOfDescriptors() const { return out_of_descriptors_; }
  // Result holds every device that was found, as it answered last.
  const DeviceInfoDictionary& Result() const { return result_; }

 private:
  void Run() VOX_EXCLUDES(mutex_);
  void Take(const DeviceInfo& device) VOX_EXCLUDES(mutex_);

  const std::string address_;
  EventFd stop_;
  bool answered_ = false;  // these four are the searching thread's until over_
  bool out_of_memory_ = false;
  bool out_of_descriptors_ = false;
  DeviceInfoDictionary result_;
  mutable Mutex mutex_;
  Condition changed_;
  DeviceInfoArray found_ VOX_GUARDED_BY(mutex_);
  bool over_ VOX_GUARDED_BY(mutex_) = false;
  std::vector<std::thread> thread_;  // the one
};

}  // namespace vox::cli
