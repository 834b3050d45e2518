// CloseLog counts the connections that the job server sends away, by reason, and writes the counts
// to the system log: at once when it was quiet, at most one line a second otherwise, so that a
// noisy neighbour cannot flood the log.
//
// Thread rule: the poller's thread.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <optional>

#include "tools/voxjobd/Poller.h"

namespace vox {

class CloseLog {
 public:
  enum Reason {
    kMalformed,  // a device whose first bytes are no notice
    kLate,       // a device or client that did not send its message in time
    kUnmatched,  // a notice for which no registration came
    kRefused,    // a client with a registration of a type that is not served
    kCrowded,    // either, when the waiting places are taken
    kReasons,
  };

  void Count(Reason reason, std::uint32_t address);  // IPv4 of the other side, host order
  std::optional<Poller::Clock::time_point> Deadline() const;
  void Tick(Poller::Clock::time_point now);
  void Flush();  // what has not been written yet

 private:
  void Write(Poller::Clock::time_point now);

  std::array<std::uint64_t, kReasons> counts_{};  // since the start
  std::uint32_t last_address_ = 0;
  bool unwritten_ = false;
  Poller::Clock::time_point next_line_{};  // not before
};

}  // namespace vox
