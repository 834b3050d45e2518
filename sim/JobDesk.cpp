#include "sim/JobDesk.h"

#include <algorithm>
#include <utility>

#include "sim/Sockets.h"
#include "vox/platform/Bytes.h"

namespace vox::sim {
namespace {

constexpr std::size_t kEndedKept = 16;

}  // namespace

JobDesk::JobDesk(const DeviceOptions& options, EventLog& events)
    : options_(options),
      events_(events),
      sheets_(options.sheets.begin(), options.sheets.end()),
      loaded_(options.sheets) {}

// The device's own address and a number that is never 0.
JobId JobDesk::NewJobId() {
  JobId id{};
  std::uint32_t address = 0;
  ParseAddress(options_.address, address);
  StoreBe32(id.data(), address);
  StoreBe32(id.data() + 4, ++jobs_);
  return id;
}

JobDesk::StartResult JobDesk::StartJob(std::uint32_t host, const ScanInfo& request) {
  MutexLock lock(mutex_);
  if (job_ && !job_->sending && Clock::now() - job_->touched > options_.limits.idle_job) {
    EndJob(EventKind::kJobLost, "no page was asked for in time");
  }
  if (job_ && job_->last_notice_left) EndJob(EventKind::kJobEnded, {});
  if (job_) return {Start::kBusy};
  if (!IsSane(options_, request)) return {Start::kRefused};
  Job job;
  job.pages = PlanJob(options_, {sheets_.begin(), sheets_.end()}, request);
  if (job.pages.empty()) return {Start::kNoDocument};
  job.id = NewJobId();
  job.host = host;
  job.request = request;
  job.touched = Clock::now();
  job_ = std::move(job);
  events_.Add(Event(EventKind::kJobStarted, {job_->id.begin(), job_->id.end()}));
  return {Start::kAccepted, job_->id};
}

bool JobDesk::RequestPage(const JobId& job, std::uint32_t host, std::uint16_t sequence_id) {
  MutexLock lock(mutex_);
  if (!job_ || job_->id != job) return false;
  if (job_->sending == sequence_id) return true;
  const std::size_t index = std::min(job_->next, job_->pages.size() - 1);
  const PlannedPage& page = job_->pages[index];
  job_->next = index + 1;
  job_->sending = sequence_id;
  job_->last_notice_left = false;
  TakeSheet(page);
  order_ = PageOrder{job,
                     host,
                     sequence_id,
                     ++pages_,
                     page,
                     CompleteScanInfo(options_, job_->request, page),
                     RenderOptionsOf(options_, page),
                     job_->next < job_->pages.size()};
  interrupt_.Raise();
  ordered_.NotifyAll();
  return true;
}

// A sheet leaves the feeder when its front is taken.
void JobDesk::TakeSheet(const PlannedPage& page) {
  if (!page.from_feeder || page.is_back || sheets_.empty()) return;
  if (sheets_.front().front == page.source) sheets_.pop_front();
}

bool JobDesk::Cancel(const JobId& job) {
  MutexLock lock(mutex_);
  if (job_ && job_->id == job) {
    EndJob(EventKind::kJobCancelled, {});
    interrupt_.Raise();
    return true;
  }
  return std::find(ended_.begin(), ended_.end(), job) != ended_.end();
}

void JobDesk::Lose(const std::string& why) {
  MutexLock lock(mutex_);
  if (!job_) return;
  EndJob(EventKind::kJobLost, why);
  interrupt_.Raise();
}

bool JobDesk::IsOpen(const JobId& job) const {
  MutexLock lock(mutex_);
  return job_ && job_->id == job && !job_->last_notice_left;
}

void JobDesk::Touch() {
  MutexLock lock(mutex_);
  if (job_) job_->touched = Clock::now();
}

void JobDesk::EndJob(EventKind how, const std::string& why) {
  const JobId id = job_->id;
  ended_.push_back(id);
  if (ended_.size() > kEndedKept) ended_.pop_front();
  job_.reset();
  order_.reset();
  if (options_.reload_feeder) sheets_.assign(loaded_.begin(), loaded_.end());
  events_.Add(Event(how, {id.begin(), id.end()}, why));
}

std::optional<PageOrder> JobDesk::Next() {
  MutexLock lock(mutex_);
  while (!order_ && !stopped_) ordered_.Wait(lock);
  if (stopped_) return std::nullopt;
  interrupt_.Clear();
  return std::exchange(order_, std::nullopt);
}

// False: superseded, cancelled or replaced meanwhile; nothing of the job is this page's any more.
bool JobDesk::IsCurrent(const PageOrder& order) const {
  return job_ && job_->id == order.job && job_->sending == order.sequence_id;
}

void JobDesk::NoticeLeaves(const PageOrder& order) {
  MutexLock lock(mutex_);
  if (IsCurrent(order)) job_->last_notice_left = !order.more_follow;
}

void JobDesk::Finish(const PageOrder& order, PageOutcome outcome, const std::string& why) {
  MutexLock lock(mutex_);
  if (!IsCurrent(order)) return;
  job_->sending.reset();
  job_->touched = Clock::now();
  if (outcome == PageOutcome::kLost) return EndJob(EventKind::kJobLost, why);
  if (!order.more_follow) EndJob(EventKind::kJobEnded, {});
}

void JobDesk::DropPage() {
  MutexLock lock(mutex_);
  interrupt_.Raise();
}

void JobDesk::Stop() {
  MutexLock lock(mutex_);
  stopped_ = true;
  interrupt_.Raise();
  ordered_.NotifyAll();
}

void JobDesk::LoadFeeder(std::vector<Sheet> sheets) {
  MutexLock lock(mutex_);
  sheets_.assign(sheets.begin(), sheets.end());
  loaded_ = std::move(sheets);
}

std::size_t JobDesk::SheetsLeft() const {
  MutexLock lock(mutex_);
  return sheets_.size();
}

std::vector<Sheet> JobDesk::LoadedSheets() const {
  MutexLock lock(mutex_);
  return loaded_;
}

}  // namespace vox::sim
