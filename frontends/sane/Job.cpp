#include "frontends/sane/Job.h"

#include <cerrno>
#include <filesystem>
#include <new>
#include <system_error>
#include <utility>

#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include "frontends/sane/Log.h"
#include "frontends/sane/Status.h"
#include "tools/vox/Failure.h"
#include "tools/vox/LineReducer.h"
#include "tools/vox/writers/InvertBits.h"
#include "tools/voxjobd/Starter.h"
#include "vox/platform/Threads.h"

namespace vox::sane {

namespace {

constexpr std::size_t kBuffer = std::size_t{1} << 20;  // bytes
constexpr std::chrono::milliseconds kBetweenAborts{100};

// ScanStatus ends a page on the reading thread.
struct ScanStatus {
  SANE_Status status;
};

void WaitReadable(int a, int b) {
  pollfd entries[2] = {{a, POLLIN, 0}, {b, POLLIN, 0}};
  ::poll(entries, 2, -1);  // who waits looks again, also after a signal
}

// In a build tree the job server lies in a folder beside that of the frontends.
std::string JobServerOfBuildTree() {
  Dl_info info{};
  if (::dladdr(reinterpret_cast<const void*>(&JobServerOfBuildTree), &info) == 0) return {};
  std::error_code failed;
  const auto file = std::filesystem::canonical(info.dli_fname, failed);
  if (failed || file.parent_path().parent_path().filename() != "frontends") return {};
  const auto server =
      file.parent_path().parent_path().parent_path() / "tools" / "voxjobd" / "voxjobd";
  return std::filesystem::exists(server, failed) ? server.string() : std::string();
}

}  // namespace

// ---- the client

Job::Job(Scanner& scanner, JobTimes times)
    : scanner_(scanner), times_(times), flags_process_(::getpid()) {
  for (const EventFd* flag : {&ready_, &started_, &watched_}) {
    if (flag->Get() < 0) throw std::system_error(EMFILE, std::generic_category());
  }
}

Job::~Job() {
  ++cancels_;
  {
    const MutexLock lock(mutex_);
    quit_ = true;
    changed_.NotifyAll();
  }
  watched_.Raise();
  for (std::thread& thread : watcher_) thread.join();
  for (std::thread& thread : reader_) thread.join();
}

bool Job::IsForeign() const noexcept {
  const pid_t process = process_;
  return process != 0 && process != ::getpid();
}

void Job::Cancel() noexcept {
  if (IsForeign()) return;
  const int error = errno;  // of what a signal handler interrupted
  ++cancels_;
  ready_.Raise();
  started_.Raise();
  watched_.Raise();
  errno = error;
}

// Flags that were inherited are the parent's too. They are exchanged in one step each, as a signal
// handler may raise them meanwhile.
bool Job::OwnFlags() {
  if (flags_process_ == ::getpid()) return true;
  for (const EventFd* flag : {&ready_, &started_, &watched_}) {
    const EventFd own;
    if (own.Get() < 0 || ::dup3(own.Get(), flag->Get(), O_CLOEXEC) < 0) return false;
  }
  flags_process_ = ::getpid();
  return true;
}

bool Job::StartThreads() {
  if (!OwnFlags()) return false;
  process_ = ::getpid();
  if (watcher_.empty() && !StartThread(&watcher_, [this] { Watch(); })) return false;
  return !reader_.empty() || StartThread(&reader_, [this] { ReadPages(); });
}

SANE_Status Job::Start(const Settings& settings, const cli::ScanPlan& plan) {
  if (IsForeign()) return SANE_STATUS_IO_ERROR;
  const unsigned cancels = cancels_;
  if (open_ && cancels == seen_cancels_) return SANE_STATUS_INVAL;
  open_ = false;
  closed_ = SANE_STATUS_INVAL;
  if (!StartThreads()) return SANE_STATUS_NO_MEM;
  const SANE_Status status = GiveOrder(settings, plan, cancels);
  return status == SANE_STATUS_GOOD ? AwaitStart() : status;
}

// `cancels` are those that came before the call: they are over once the page before is.
SANE_Status Job::GiveOrder(const Settings& settings, const cli::ScanPlan& plan, unsigned cancels) {
  MutexLock lock(mutex_);
  const auto deadline = Clock::now() + times_.old_page;
  while (phase_ != Phase::kIdle || aborting_ || (job_open_ && !more_)) {
    if (Clock::now() >= deadline) return SANE_STATUS_DEVICE_BUSY;
    changed_.WaitUntil(lock, deadline);
  }
  const bool cancelled = cancels != seen_cancels_.exchange(cancels);
  if (IsCancelled()) return GiveUp();
  if (IsFeederEmpty(settings, cancelled)) return SANE_STATUS_NO_DOCS;
  order_ = {settings, plan, more_};
  buffer_.Reset(kBuffer);
  told_ = final_ = given_ = false;
  started_.Clear();
  ready_.Clear();
  if (IsCancelled()) return GiveUp();  // the flags may have been its own
  phase_ = Phase::kOrdered;
  changed_.NotifyAll();
  return SANE_STATUS_GOOD;
}

// A page that is cancelled before it is ordered: the watching thread waits no longer for it.
SANE_Status Job::GiveUp() {
  given_ = false;
  changed_.NotifyAll();
  return SANE_STATUS_CANCELLED;
}

// Behind the last page of a feeder stands a NO_DOCS, once. A cancel in between is the end of a job,
// whose next start asks the device; one at USB does not tell, and would turn to its glass for a
// frontend that cancels after every page: so whoever starts again at once gets it too.
bool Job::IsFeederEmpty(const Settings& settings, bool cancelled) {
  const bool emptied = std::exchange(emptied_, false);
  if (!emptied || settings.source == Source::kFlatbed) return false;
  return !cancelled || (scanner_.AtUsb() && Clock::now() - emptied_at_ < times_.next_sheet);
}

SANE_Status Job::AwaitStart() {
  for (;;) {
    if (IsCancelled()) return closed_ = SANE_STATUS_CANCELLED;
    {
      const MutexLock lock(mutex_);
      if (told_) {
        open_ = start_status_ == SANE_STATUS_GOOD;
        return start_status_;
      }
    }
    WaitReadable(started_.Get(), started_.Get());
  }
}

SANE_Status Job::Read(std::span<std::uint8_t> into, bool wait, std::size_t* got) {
  *got = 0;
  if (IsForeign()) return SANE_STATUS_IO_ERROR;
  for (;;) {
    if (!open_) return closed_;
    if (IsCancelled()) {
      open_ = false;
      return closed_ = SANE_STATUS_CANCELLED;
    }
    {
      const MutexLock lock(mutex_);
      *got = buffer_.Take(into);
      if (*got > 0) changed_.NotifyAll();
      if (*got == 0 && final_) {
        open_ = false;
        given_ = true;
        ready_.Clear();
        emptied_at_ = Clock::now();
        closed_ = final_status_ == SANE_STATUS_EOF ? SANE_STATUS_INVAL : final_status_;
        return final_status_;
      }
      if (buffer_.Held() == 0 && !final_) ready_.Clear();
    }
    if (IsCancelled()) ready_.Raise();  // which may have been cleared just now
    if (*got > 0 || !wait || into.empty()) return SANE_STATUS_GOOD;
    WaitReadable(ready_.Get(), ready_.Get());
  }
}

// ---- the reading thread

void Job::ReadPages() {
  MutexLock lock(mutex_);
  for (;;) {
    while (phase_ != Phase::kOrdered && !quit_) changed_.Wait(lock);
    if (quit_) return;
    phase_ = Phase::kStarting;
    job_open_ = true;
    lock.Unlock();
    const SANE_Status status = ScanPage();
    lock.Lock();
    if (!told_) {
      told_ = true;
      start_status_ = status;
      started_.Raise();
    }
    final_ = true;
    final_status_ = status;
    emptied_ = status == SANE_STATUS_EOF && Feeds() && !more_;
    phase_ = Phase::kIdle;
    ready_.Raise();
    changed_.NotifyAll();
  }
}

SANE_Status Job::ScanPage() {
  SANE_Status status = SANE_STATUS_IO_ERROR;
  try {
    BeginPage();
    TellStarted(SANE_STATUS_GOOD);
    ReadLines();
    EndPage();
    return SANE_STATUS_EOF;
  } catch (const ScanStatus& end) {
    status = end.status;
  } catch (const cli::Failure& failure) {
    Log(1, "%s", failure.what());
    status = StatusOf(failure);
  } catch (const std::bad_alloc&) {
    status = SANE_STATUS_NO_MEM;
  } catch (const std::exception& exception) {
    Log(1, "%s", exception.what());
  }
  const bool cancelled = IsCancelled();  // then the watching thread aborts
  if (!cancelled) scanner_.Interface().Abort();
  const MutexLock lock(mutex_);
  more_ = false;
  if (!cancelled) job_open_ = false;
  return cancelled ? SANE_STATUS_CANCELLED : status;
}

void Job::FailPage() {
  if (IsCancelled()) throw ScanStatus{SANE_STATUS_CANCELLED};
  const std::uint32_t status = scanner_.Interface().GetIfErrorStatus();
  Log(1, "the page ended:%s", IfErrorText(status < 9 ? status : 0).c_str());
  throw ScanStatus{StatusOfScan(status, Feeds())};
}

void Job::BeginPage() {
  if (order_.goes_on && order_.settings != job_settings_) {
    scanner_.Interface().Abort();
    order_.goes_on = false;
  }
  if (!order_.goes_on) {
    page_ = 0;
    if (Feeds() && !scanner_.PaperInFeeder()) throw ScanStatus{SANE_STATUS_NO_DOCS};
    scanner_.CheckUsb();
  }
  job_settings_ = order_.settings;
  ++page_;
  StartScan();
}

void Job::StartScan() {
  const auto deadline = Clock::now() + times_.busy;
  while (!TryStart()) {
    Log(2, "the device is busy");
    if (Clock::now() + times_.between_tries >= deadline) throw ScanStatus{SANE_STATUS_DEVICE_BUSY};
    Pause(times_.between_tries);
  }
}

// Says whether the page has begun; the device is busy if not.
bool Job::TryStart() {
  CTwainImageIF& interface = scanner_.Interface();
  if (IsCancelled()) FailPage();
  // A back side that is to be turned is not turned in a preview.
  const bool preview =
      order_.settings.preview != SANE_FALSE && order_.settings.source != Source::kFeederDuplex;
  order_.plan.request.dwPageNumber = page_;
  if (!interface.PrepareScan(order_.plan.request, page_ == 1, preview)) FailPage();
  interface.GetScanParam();
  EnsureServer();
  if (interface.StartScan(preview)) return true;
  if (!IsCancelled() && interface.GetIfErrorStatus() == IF_ERR_STS_DEVICE_BUSY) return false;
  if (!IsCancelled()) scanner_.CheckUsb();
  FailPage();
}

void Job::EnsureServer() {
  if (scanner_.AtUsb()) return;
  JobServerStarterOptions options;
  options.program = JobServerOfBuildTree();
  const JobServerPresence server = EnsureJobServer(options);
  if (server.running) return;
  throw cli::Failure(server.forbidden ? cli::ExitStatus::kNoPermission : cli::ExitStatus::kIoError,
                     "cannot start the job server: " + server.error);
}

void Job::ReadLines() {
  CTwainImageIF& interface = scanner_.Interface();
  const cli::ScanPlan& plan = order_.plan;
  cli::LineReducer reducer(plan.reduction, plan.threshold, plan.page.width);
  std::vector<std::uint8_t> line(plan.request.dwLineSize), inverted;
  for (std::uint32_t y = 0; y < plan.page.height; ++y) {
    // A status beside a line means that the line was made up: the device is lost.
    if (interface.ReadLine(line.data()) != 0 || interface.GetIfErrorStatus() != IF_ERR_STS_NONE)
      FailPage();
    const auto reduced = reducer.Reduce(line);
    if (plan.page.bits != 1) {
      Deliver(reduced);
    } else {
      cli::InvertBits(reduced, plan.page.width, inverted);
      Deliver(inverted);
    }
  }
}

void Job::EndPage() {
  CTwainImageIF& interface = scanner_.Interface();
  interface.EndScan();
  bool more = interface.IsNextPageExist();  // asked before the cancel is: an abort forgets it
  if (IsCancelled() || interface.GetIfErrorStatus() != IF_ERR_STS_NONE) FailPage();
  Log(3, "page %u is over, another one %s", page_, more ? "follows" : "does not follow");
  if (more && !Feeds()) {
    interface.Abort();
    more = false;
  }
  const MutexLock lock(mutex_);
  more_ = job_open_ = more;
}

void Job::Deliver(std::span<const std::uint8_t> line) {
  MutexLock lock(mutex_);
  while (!line.empty()) {
    const bool was_empty = buffer_.Held() == 0;
    const std::size_t put = buffer_.Put(line);
    line = line.subspan(put);
    if (was_empty && put > 0) ready_.Raise();
    if (aborting_ || quit_) throw ScanStatus{SANE_STATUS_CANCELLED};
    if (!line.empty()) changed_.Wait(lock);
  }
}

void Job::TellStarted(SANE_Status status) {
  const MutexLock lock(mutex_);
  phase_ = Phase::kPage;
  late_ = aborting_;
  told_ = true;
  start_status_ = status;
  started_.Raise();
}

void Job::Pause(std::chrono::milliseconds time) {
  MutexLock lock(mutex_);
  const auto until = Clock::now() + time;
  while (!aborting_ && !quit_ && Clock::now() < until) changed_.WaitUntil(lock, until);
}

// ---- the watching thread

void Job::Watch() {
  for (bool quit = false; !quit;) {
    WaitReadable(watched_.Get(), watched_.Get());
    watched_.Clear();
    {
      MutexLock lock(mutex_);
      quit = quit_;
      AwaitNextPage(lock);
    }
    EndJob();
  }
}

// Once a next page is ordered, another cancel is that page's.
void Job::AwaitNextPage(MutexLock& lock) {
  const auto until = Clock::now() + times_.next_page;
  while (given_ && IsCancelled() && !quit_ && Clock::now() < until) changed_.WaitUntil(lock, until);
}

// An abort that comes before the reading thread has started its page does nothing, so it comes
// again until that thread is idle.
void Job::EndJob() {
  {
    const MutexLock lock(mutex_);
    const bool wanted = quit_ || IsCancelled();
    if (!wanted || (!job_open_ && phase_ == Phase::kIdle)) return;
    aborting_ = true;
    changed_.NotifyAll();
  }
  while (!AbortOnce()) {
  }
}

// Says whether the job is over. A page that began behind an abort, and was left for it at once, is
// one that the device has not been told of.
bool Job::AbortOnce() {
  scanner_.Interface().Abort();
  MutexLock lock(mutex_);
  const bool orphan = phase_ == Phase::kOrdered && quit_;  // nobody will take that order
  if (phase_ != Phase::kIdle && !orphan) changed_.WaitFor(lock, kBetweenAborts);
  if ((phase_ != Phase::kIdle && !orphan) || std::exchange(late_, false)) return false;
  job_open_ = more_ = emptied_ = aborting_ = false;
  changed_.NotifyAll();
  return true;
}

}  // namespace vox::sane
