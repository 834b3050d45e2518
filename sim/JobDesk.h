// JobDesk keeps the device's one job and its paper, between the thread that answers commands and
// the thread that sends pages.
//
//            Start                 RequestPage                 end notice answered, more
//   no job ---------> waiting job ------------> sending page ----------------------------> waiting
//     ^                  |  idle too long           |  last page, loss, Cancel
//     +------------------+--------------------------+
//
// A page request that comes while a page is being sent ends that page and asks for the next one (or
// for the same again, when it was the last); a request with the sequence id of the page that is
// being sent is a repeated datagram and changes nothing. Once the last end notice has left the
// scanner is free: a new job may start then, and ends the old one, whose host has not answered yet.
//
// Thread rule: any thread; Next, NoticeLeaves and Finish from the sending thread alone.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "sim/CommandPacket.h"
#include "sim/Events.h"
#include "sim/JobPlan.h"
#include "vox/platform/FileDescriptor.h"
#include "vox/platform/Mutex.h"

namespace vox::sim {

// One page to be sent.
struct PageOrder {
  JobId job{};
  std::uint32_t host = 0;  // IPv4, big-endian number
  std::uint16_t sequence_id = 0;
  std::uint32_t ordinal = 0;  // 1 for the first page that the device is asked for
  PlannedPage page;
  ScanInfo info;
  RenderOptions render;
  bool more_follow = false;
};

enum class PageOutcome : std::uint8_t { kDone, kLost };

class JobDesk {
 public:
  using Clock = std::chrono::steady_clock;
  JobDesk(const DeviceOptions& options, EventLog& events);

  enum class Start : std::uint8_t { kAccepted, kBusy, kNoDocument, kRefused };
  struct StartResult {
    Start result;
    JobId job{};
  };
  StartResult StartJob(std::uint32_t host, const ScanInfo& request) VOX_EXCLUDES(mutex_);
  // RequestPage: false for an unknown job.
  bool RequestPage(const JobId& job, std::uint32_t host, std::uint16_t sequence_id)
      VOX_EXCLUDES(mutex_);
  // Cancel: true when the job is known, also when it has ended already.
  bool Cancel(const JobId& job) VOX_EXCLUDES(mutex_);
  // Lose ends the job, if there is one.
  void Lose(const std::string& why) VOX_EXCLUDES(mutex_);
  // IsOpen: the job is the current one, and its last end notice has not left.
  bool IsOpen(const JobId& job) const VOX_EXCLUDES(mutex_);
  void Touch() VOX_EXCLUDES(mutex_);  // a sign of life for a waiting job

  // Next waits for an order; nothing: stopped.
  std::optional<PageOrder> Next() VOX_EXCLUDES(mutex_);
  void Finish(const PageOrder& order, PageOutcome outcome, const std::string& why)
      VOX_EXCLUDES(mutex_);
  // NoticeLeaves: the true end notice of the page is about to be sent.
  void NoticeLeaves(const PageOrder& order) VOX_EXCLUDES(mutex_);
  // Interrupt is raised while the page being sent is to be given up.
  EventFd& Interrupt() { return interrupt_; }
  // DropPage gives the page being sent up.
  void DropPage() VOX_EXCLUDES(mutex_);
  void Stop() VOX_EXCLUDES(mutex_);

  void LoadFeeder(std::vector<Sheet> sheets) VOX_EXCLUDES(mutex_);
  std::size_t SheetsLeft() const VOX_EXCLUDES(mutex_);
  std::vector<Sheet> LoadedSheets() const VOX_EXCLUDES(mutex_);

 private:
  struct Job {
    JobId id{};
    std::uint32_t host = 0;
    ScanInfo request;
    std::vector<PlannedPage> pages;
    std::size_t next = 0;
    std::optional<std::uint16_t> sending;  // sequence id of the page that is being sent
    bool last_notice_left = false;
    Clock::time_point touched;
  };
  bool IsCurrent(const PageOrder& order) const VOX_REQUIRES(mutex_);
  JobId NewJobId() VOX_REQUIRES(mutex_);
  void EndJob(EventKind how, const std::string& why) VOX_REQUIRES(mutex_);
  void TakeSheet(const PlannedPage& page) VOX_REQUIRES(mutex_);

  const DeviceOptions& options_;
  EventLog& events_;
  EventFd interrupt_;

  mutable Mutex mutex_;
  Condition ordered_;
  bool stopped_ VOX_GUARDED_BY(mutex_) = false;
  std::optional<Job> job_ VOX_GUARDED_BY(mutex_);
  std::optional<PageOrder> order_ VOX_GUARDED_BY(mutex_);
  std::deque<JobId> ended_ VOX_GUARDED_BY(mutex_);  // the last few
  std::uint32_t jobs_ VOX_GUARDED_BY(mutex_) = 0;
  std::uint32_t pages_ VOX_GUARDED_BY(mutex_) = 0;
  std::deque<Sheet> sheets_ VOX_GUARDED_BY(mutex_);
  std::vector<Sheet> loaded_ VOX_GUARDED_BY(mutex_);  // as they were put in last
};

}  // namespace vox::sim
