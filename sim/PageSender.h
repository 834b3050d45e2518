// PageSender sends one page to a host: the data channel, then the end channel, both connections to
// the host's job server.
//
//   data channel   -> notice 0x80 (28 bytes)      end channel   -> notice 0x90, 0xF0 or another
//                  <- 0x01                                      <- 0x00
//                  -> scan information (128)
//                  -> the page's data, close
//
// After a notice 0xF0 the end channel is opened again for the true one.
// Thread rule: one thread; the desk's interrupt ends every wait.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "sim/Events.h"
#include "sim/FaultBox.h"
#include "sim/JobDesk.h"
#include "sim/PageStream.h"
#include "sim/Sockets.h"

namespace vox::sim {

class PageSender {
 public:
  PageSender(const DeviceOptions& options, std::uint32_t local_address, JobDesk& desk,
             FaultBox& faults, PageCache& cache, EventLog& events);
  // Run sends what is ordered until the desk stops.
  void Run();
  void SetJobServerPort(std::uint16_t port) { port_ = port; }
  // IsHolding: a fault has stopped the page that is on its way.
  bool IsHolding() const { return holding_; }

 private:
  // Page is one page on its way; it has the functions that follow the drawing above.
  class Page;

  const DeviceOptions& options_;
  const std::uint32_t local_address_;
  JobDesk& desk_;
  FaultBox& faults_;
  PageCache& cache_;
  EventLog& events_;
  std::atomic<std::uint16_t> port_;
  std::atomic<bool> holding_ = false;
};

}  // namespace vox::sim
