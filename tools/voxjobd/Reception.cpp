#include "tools/voxjobd/Reception.h"

#include <algorithm>
#include <utility>

#include <sys/socket.h>

#include "tools/voxjobd/Messages.h"

namespace vox {
namespace {

auto Is(const Visitor& visitor) {
  return [&visitor](const Visitor& other) { return &other == &visitor; };
}

bool Answer(const Visitor& client, std::uint8_t answer) {
  return ::send(client.Socket(), &answer, 1, MSG_NOSIGNAL) == 1;
}

void Earlier(std::optional<Poller::Clock::time_point>& soonest, const std::list<Visitor>& list) {
  if (list.empty()) return;
  if (!soonest || list.front().deadline < *soonest) soonest = list.front().deadline;
}

}  // namespace

Reception::Reception(Poller& poller, const JobServerOptions& options, CloseLog& log,
                     MayMeet may_meet, OnMeeting on_meeting)
    : poller_(poller),
      options_(options),
      log_(log),
      may_meet_(std::move(may_meet)),
      on_meeting_(std::move(on_meeting)) {}

void Reception::Receive(Visitor::Kind kind, FileDescriptor socket, std::uint32_t address) {
  if (!HasRoomFor(kind)) return log_.Count(CloseLog::kCrowded, address);
  const bool is_client = kind == Visitor::Kind::kClient;
  List& list = is_client ? registering_ : announcing_;
  Visitor::Owner& self = *this;
  Visitor& visitor = list.emplace_back(kind, std::move(socket), address, poller_, self);
  visitor.deadline =
      Poller::Clock::now() + (is_client ? options_.times.registration : options_.times.notice);
  if (!visitor.Listen()) CloseAs(CloseLog::kCrowded, visitor);
}

bool Reception::HasRoomFor(Visitor::Kind kind) const {
  if (kind == Visitor::Kind::kClient) {
    return registering_.size() < options_.limits.unregistered_clients;
  }
  return announcing_.size() + announced_.size() < options_.limits.waiting_devices;
}

void Reception::OnMessage(Visitor& visitor) {
  if (visitor.GetKind() == Visitor::Kind::kClient) {
    Register(visitor);
  } else {
    Announce(visitor);
  }
}

void Reception::Register(Visitor& client) {
  const Registration registration = ParseRegistration(client.Message().first<kRegistrationSize>());
  if (registration.type != kScanRegistration) return Refuse(client, CloseLog::kRefused);
  if (registered_.size() >= options_.limits.waiting_registrations) {
    return Refuse(client, CloseLog::kCrowded);
  }
  client.key = registration.key;
  if (!Answer(client, kRegistrationAccepted) || !client.Wait()) return Remove(client);
  Move(client, registering_, registered_);
  const auto device = std::find_if(announced_.begin(), announced_.end(),
                                   [&](const Visitor& it) { return it.key == registration.key; });
  if (device != announced_.end()) Meet(*device);
}

void Reception::Announce(Visitor& device) {
  const auto notice = ParseNotice(device.Message().first<kNoticeSize>());
  if (!notice) return CloseAs(CloseLog::kMalformed, device);
  device.key = {device.Address(), notice->job_id, notice->sequence_id};
  device.deadline = Poller::Clock::now() + options_.times.meeting;
  Move(device, announcing_, announced_);
  if (Meet(device)) return;
  if (!device.Wait()) CloseAs(CloseLog::kCrowded, device);
}

bool Reception::Meet(Visitor& device) {
  const auto client = std::find_if(registered_.begin(), registered_.end(),
                                   [&](const Visitor& it) { return it.key == device.key; });
  if (client == registered_.end() || !may_meet_()) return false;
  on_meeting_({client->Release(), device.Release(), device.Message()});
  Remove(*client);
  Remove(device);
  return true;
}

void Reception::MeetAgain() {
  for (auto device = announced_.begin(); device != announced_.end();) Meet(*device++);
}

void Reception::Refuse(Visitor& client, CloseLog::Reason reason) {
  Answer(client, kRegistrationRefused);
  CloseAs(reason, client);
}

void Reception::CloseAs(CloseLog::Reason reason, Visitor& visitor) {
  log_.Count(reason, visitor.Address());
  Remove(visitor);
}

void Reception::Move(Visitor& visitor, List& from, List& to) {
  to.splice(to.end(), from, std::find_if(from.begin(), from.end(), Is(visitor)));
}

void Reception::Remove(Visitor& visitor) {
  for (List* list : {&registering_, &registered_, &announcing_, &announced_}) {
    const auto it = std::find_if(list->begin(), list->end(), Is(visitor));
    if (it == list->end()) continue;
    list->erase(it);
    return;
  }
}

void Reception::SendAllAway() {
  for (List* list : {&registering_, &registered_, &announcing_, &announced_}) list->clear();
}

bool Reception::IsEmpty() const {
  return registering_.empty() && registered_.empty() && announcing_.empty() && announced_.empty();
}

std::optional<Poller::Clock::time_point> Reception::Deadline() const {
  std::optional<Poller::Clock::time_point> soonest;
  Earlier(soonest, registering_);
  Earlier(soonest, announcing_);
  Earlier(soonest, announced_);
  return soonest;
}

void Reception::Tick(Poller::Clock::time_point now) {
  ExpireFrom(registering_, CloseLog::kLate, now);
  ExpireFrom(announcing_, CloseLog::kLate, now);
  ExpireFrom(announced_, CloseLog::kUnmatched, now);
}

void Reception::ExpireFrom(List& list, CloseLog::Reason reason, Poller::Clock::time_point now) {
  while (!list.empty() && list.front().deadline <= now) CloseAs(reason, list.front());
}

}  // namespace vox
