// Reception receives the connections of both doors, keeps those that wait for their other half, and
// brings the halves together: the oldest waiting registration with a notice's device address, job
// id and sequence id gets the device's connection.
//
// Four lists, each in the order of arrival, which is the order of deadlines too:
//
//   client: registering (10 s for 15 bytes) ──► registered (until it goes) ──┐
//   device: announcing  (10 s for 28 bytes) ──► announced (10 s) ────────────┴─► OnMeeting
//
// Thread rule: the poller's thread.
#pragma once

#include <functional>
#include <list>
#include <optional>
#include <span>

#include "tools/voxjobd/CloseLog.h"
#include "tools/voxjobd/JobServer.h"
#include "tools/voxjobd/Poller.h"
#include "tools/voxjobd/Visitor.h"

namespace vox {

class Reception final : private Visitor::Owner {
 public:
  struct Meeting {
    FileDescriptor client, device;
    std::span<const std::uint8_t> notice;  // valid during the call
  };
  using OnMeeting = std::function<void(Meeting meeting)>;
  using MayMeet = std::function<bool()>;  // false: there is no room for another relay

  Reception(Poller& poller, const JobServerOptions& options, CloseLog& log, MayMeet may_meet,
            OnMeeting on_meeting);

  void Receive(Visitor::Kind kind, FileDescriptor socket, std::uint32_t address);

  // MeetAgain brings together whoever could not meet for want of room.
  void MeetAgain();

  void SendAllAway();
  bool IsEmpty() const;
  std::optional<Poller::Clock::time_point> Deadline() const;
  void Tick(Poller::Clock::time_point now);

 private:
  using List = std::list<Visitor>;

  void OnMessage(Visitor& visitor) override;
  void OnGone(Visitor& visitor) override { Remove(visitor); }
  void Register(Visitor& client);
  void Announce(Visitor& device);
  bool Meet(Visitor& device);  // true: the visitor is no more
  void Refuse(Visitor& client, CloseLog::Reason reason);
  void CloseAs(CloseLog::Reason reason, Visitor& visitor);
  void ExpireFrom(List& list, CloseLog::Reason reason, Poller::Clock::time_point now);
  void Move(Visitor& visitor, List& from, List& to);
  void Remove(Visitor& visitor);
  bool HasRoomFor(Visitor::Kind kind) const;

  Poller& poller_;
  const JobServerOptions options_;
  CloseLog& log_;
  const MayMeet may_meet_;
  const OnMeeting on_meeting_;
  List registering_, registered_, announcing_, announced_;
};

}  // namespace vox
