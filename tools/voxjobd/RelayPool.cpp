#include "tools/voxjobd/RelayPool.h"

#include <utility>

namespace vox {
namespace {

// Edge-triggered: a relay remembers what is ready, so a side that nobody wants to read from at the
// moment raises no events.
constexpr std::uint32_t kEverything = EPOLLIN | EPOLLOUT | EPOLLRDHUP | EPOLLET;
constexpr std::uint32_t kReading = EPOLLIN | EPOLLRDHUP | EPOLLHUP | EPOLLERR;
constexpr std::uint32_t kWriting = EPOLLOUT | EPOLLHUP | EPOLLERR;
constexpr int kLooksPerHalfClosed = 4;

}  // namespace

class RelayPool::Member {
 public:
  Member(Poller& poller, Reception::Meeting meeting)
      : poller_(poller),
        relay_(std::move(meeting.client), std::move(meeting.device), meeting.notice),
        client_(*this, Relay::kClient),
        device_(*this, Relay::kDevice) {}
  ~Member() {
    poller_.Remove(relay_.Socket(Relay::kClient), &client_);
    poller_.Remove(relay_.Socket(Relay::kDevice), &device_);
  }
  Member(const Member&) = delete;
  Member& operator=(const Member&) = delete;

  bool Watch() {
    return poller_.Add(relay_.Socket(Relay::kClient), kEverything, &client_) &&
           poller_.Add(relay_.Socket(Relay::kDevice), kEverything, &device_);
  }
  bool IsReady() const { return ready_; }
  bool IsDone() const { return done_; }
  void Turn() {
    const Relay::Progress progress = relay_.Pump();
    ready_ = progress == Relay::Progress::kMore;
    done_ = progress == Relay::Progress::kDone;
  }
  void Cut() { relay_.Cut(); }

  // LookAt is true when one side has left and nothing has moved for so long. A client may take its
  // time over what is there for it.
  bool LookAt(Poller::Clock::time_point now, std::chrono::milliseconds half_closed) {
    const bool moves = relay_.Moved() != moved_before_ || relay_.IsBeingRead();
    if (!relay_.HasLeftHalf() || moves) quiet_since_ = now;
    moved_before_ = relay_.Moved();
    return now - quiet_since_ >= half_closed;
  }

 private:
  class End final : public Watched {
   public:
    End(Member& member, Relay::Side side) : member_(member), side_(side) {}
    void OnReady(std::uint32_t events) override {
      member_.relay_.MarkReady(side_, (events & kReading) != 0, (events & kWriting) != 0);
      member_.ready_ = true;
    }

   private:
    Member& member_;
    const Relay::Side side_;
  };

  Poller& poller_;
  Relay relay_;
  End client_, device_;
  bool ready_ = true;
  bool done_ = false;
  std::uint64_t moved_before_ = 0;
  Poller::Clock::time_point quiet_since_ = Poller::Clock::now();
};

RelayPool::RelayPool(Poller& poller, std::size_t limit, std::chrono::milliseconds half_closed)
    : poller_(poller), limit_(limit), half_closed_(half_closed) {}

RelayPool::~RelayPool() = default;

void RelayPool::Add(Reception::Meeting meeting) {
  if (IsEmpty()) next_look_ = Poller::Clock::now() + half_closed_ / kLooksPerHalfClosed;
  Member& member = members_.emplace_back(poller_, std::move(meeting));
  if (!member.Watch()) members_.pop_back();
}

bool RelayPool::Turn() {
  bool happened = false;
  for (auto member = members_.begin(); member != members_.end();) {
    const auto current = member++;
    if (!current->IsReady()) continue;
    current->Turn();
    happened |= current->IsReady() || current->IsDone();
    if (current->IsDone()) members_.erase(current);
  }
  return happened;
}

void RelayPool::CutAll() {
  for (Member& member : members_) member.Cut();
  members_.clear();
}

std::optional<Poller::Clock::time_point> RelayPool::Deadline() const {
  if (IsEmpty()) return std::nullopt;
  return next_look_;
}

void RelayPool::Tick(Poller::Clock::time_point now) {
  if (IsEmpty() || now < next_look_) return;
  next_look_ = now + half_closed_ / kLooksPerHalfClosed;
  for (auto member = members_.begin(); member != members_.end();) {
    const auto current = member++;
    if (!current->LookAt(now, half_closed_)) continue;
    current->Cut();
    members_.erase(current);
  }
}

}  // namespace vox
