#include "sim/Events.h"

#include <algorithm>
#include <array>
#include <utility>

namespace vox::sim {
namespace {

constexpr std::array<const char*, 27> kEventNames = {
    "snmp-request", "scan-command",      "page-request",  "cancel-command",
    "standby",      "register",          "unregister",    "bad-datagram",
    "reply",        "job-started",       "job-ended",     "job-cancelled",
    "job-lost",     "data-channel",      "page-accepted", "scan-info-sent",
    "page-sent",    "data-channel-lost", "end-channel",   "end-notice",
    "end-answered", "end-channel-lost",  "information",   "halt-cleared",
    "plugged",      "unplugged",         "fault"};
static_assert(kEventNames.size() == static_cast<std::size_t>(EventKind::kFault) + 1);

}  // namespace

const char* EventName(EventKind kind) {
  return kEventNames.at(static_cast<std::size_t>(kind));
}

void EventLog::Add(Event event) {
  event.time = std::chrono::steady_clock::now();
  std::function<void(const Event&)> listener;
  {
    MutexLock lock(mutex_);
    listener = listener_;
    ++counts_.at(static_cast<std::size_t>(event.kind));
    events_.push_back(event);
    if (events_.size() > kKept) events_.pop_front();
    added_.NotifyAll();
  }
  if (listener) listener(event);
}

std::vector<Event> EventLog::All() const {
  MutexLock lock(mutex_);
  return {events_.begin(), events_.end()};
}

std::size_t EventLog::Count(EventKind kind) const {
  MutexLock lock(mutex_);
  return counts_.at(static_cast<std::size_t>(kind));
}

Event EventLog::Last(EventKind kind) const {
  MutexLock lock(mutex_);
  const auto found = std::find_if(events_.rbegin(), events_.rend(),
                                  [&](const Event& e) { return e.kind == kind; });
  if (found == events_.rend()) return Event(kind);
  return *found;
}

bool EventLog::WaitFor(EventKind kind, std::size_t count, std::chrono::milliseconds timeout) const {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  MutexLock lock(mutex_);
  const std::size_t& seen = counts_.at(static_cast<std::size_t>(kind));
  while (seen < count) {
    if (!added_.WaitUntil(lock, deadline)) return seen >= count;
  }
  return true;
}

void EventLog::SetListener(std::function<void(const Event&)> listener) {
  MutexLock lock(mutex_);
  listener_ = std::move(listener);
}

}  // namespace vox::sim
