#include "tools/voxjobd/CloseLog.h"

#include "vox/platform/SystemLog.h"

namespace vox {
namespace {

constexpr std::chrono::seconds kBetweenLines{1};

}  // namespace

void CloseLog::Count(Reason reason, std::uint32_t address) {
  ++counts_[reason];
  last_address_ = address;
  unwritten_ = true;
  Tick(Poller::Clock::now());
}

std::optional<Poller::Clock::time_point> CloseLog::Deadline() const {
  if (!unwritten_) return std::nullopt;
  return next_line_;
}

void CloseLog::Tick(Poller::Clock::time_point now) {
  if (unwritten_ && now >= next_line_) Write(now);
}

void CloseLog::Flush() {
  if (unwritten_) Write(Poller::Clock::now());
}

void CloseLog::Write(Poller::Clock::time_point now) {
  LogToSystem(
      "voxjobd: connections closed so far: %llu malformed, %llu late, %llu unmatched, %llu "
      "refused, "
      "%llu for want of room; the last from %u.%u.%u.%u",
      static_cast<unsigned long long>(counts_[kMalformed]),
      static_cast<unsigned long long>(counts_[kLate]),
      static_cast<unsigned long long>(counts_[kUnmatched]),
      static_cast<unsigned long long>(counts_[kRefused]),
      static_cast<unsigned long long>(counts_[kCrowded]), last_address_ >> 24,
      (last_address_ >> 16) & 0xFF, (last_address_ >> 8) & 0xFF, last_address_ & 0xFF);
  unwritten_ = false;
  next_line_ = now + kBetweenLines;
}

}  // namespace vox
