// RelayPool keeps the relays running: it waits for their sockets, gives each its turn, and destroys
// those that are done.
//
// Thread rule: the poller's thread.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <list>
#include <optional>

#include "tools/voxjobd/Poller.h"
#include "tools/voxjobd/Reception.h"
#include "tools/voxjobd/Relay.h"

namespace vox {

class RelayPool {
 public:
  // A relay that one side has left and in which nothing moved for `half_closed` is cut; the other
  // side is then long gone without a word.
  RelayPool(Poller& poller, std::size_t limit, std::chrono::milliseconds half_closed);
  ~RelayPool();

  bool HasRoom() const { return members_.size() < limit_; }
  bool IsEmpty() const { return members_.empty(); }
  void Add(Reception::Meeting meeting);

  // Turn pumps the relays that still had work; true when some did, or have been destroyed.
  bool Turn();
  void CutAll();  // what is left; half a page must not look whole, nor a whole one half

  std::optional<Poller::Clock::time_point> Deadline() const;
  void Tick(Poller::Clock::time_point now);

 private:
  class Member;

  Poller& poller_;
  const std::size_t limit_;
  const std::chrono::milliseconds half_closed_;
  std::list<Member> members_;
  Poller::Clock::time_point next_look_{};  // for relays that are left half
};

}  // namespace vox
