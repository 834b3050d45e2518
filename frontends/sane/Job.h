// Job carries pages from a scanner to a frontend. The frontend's thread never waits for the device
// itself, so that a cancel reaches it at once: a reading thread works the scan interface, a
// watching thread aborts it.
//
//   client              reading thread                      watching thread
//   Start  --order-->   PrepareScan, StartScan              sleeps until a cancel
//          <--started-- or why not
//   Read   <--bytes---  ReadLine, once a line               Cancel: Abort, again and again
//          <--final---  EndScan; one status a page          until the reading thread is idle
//
// States, of the client:
//
//   idle --Start--> page --EOF--> between pages --Start--> page ...      a feeder's job
//     ^               |                |       '--Start, feeder empty--> NO_DOCS, idle
//     |             Cancel, error      '--Cancel, and no Start in time---------------.
//     '---------------'------------------------- the device's job is over -----------'
//
// Between pages a cancel waits, because some frontends cancel after every page and then start the
// next one, and may show the page in between. A job that is over takes a page with it: a back is
// lost, and a device on the network moves the sheet on that comes next. So the wait is long; the
// device is kept from others meanwhile. The destructor ends it.
//
// A process that was forked from the one that the threads are in shares their descriptors: there
// the object does nothing at all, and says IO_ERROR. One that was forked before there were threads
// works with descriptors and threads of its own.
//
// Thread rule: one thread at a time, but for Cancel, which may also come from another one and from
// a signal handler. The threads are started by the first Start and joined by the destructor.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <span>
#include <thread>
#include <vector>

#include <sane/sane.h>
#include <sys/types.h>

#include "frontends/sane/LineBuffer.h"
#include "frontends/sane/Options.h"
#include "frontends/sane/Scanner.h"
#include "vox/platform/FileDescriptor.h"
#include "vox/platform/Mutex.h"

namespace vox::sane {

// JobTimes are a job's waits.
struct JobTimes {
  std::chrono::milliseconds busy{3'000};         // for a device that is busy, in all
  std::chrono::milliseconds between_tries{300};  // while it is
  std::chrono::milliseconds next_page{10'000};   // from a cancel between pages to the next Start
  std::chrono::milliseconds old_page{10'000};    // for a cancelled page to be over
  std::chrono::milliseconds next_sheet{2'000};   // see IsFeederEmpty
};

class Job {
 public:
  // Throws std::system_error without descriptors: a wait without its flag would have no end.
  explicit Job(Scanner& scanner, JobTimes times = {});
  // The destructor cancels what runs.
  ~Job();
  Job(const Job&) = delete;
  Job& operator=(const Job&) = delete;

  // Start begins a page and returns when its data come. Returns: a status other than GOOD when none
  // begins; INVAL while a page is open.
  SANE_Status Start(const Settings& settings, const cli::ScanPlan& plan) VOX_EXCLUDES(mutex_);

  // Read gives bytes of the page as they come; with `wait` at least one, or a status other than
  // GOOD. Returns: EOF once behind the last byte; INVAL when no page is open.
  SANE_Status Read(std::span<std::uint8_t> into, bool wait, std::size_t* got) VOX_EXCLUDES(mutex_);

  // Cancel ends the page; whoever waits in Start or Read comes back with CANCELLED. It does nothing
  // but what a signal handler may.
  void Cancel() noexcept;

  // IsOpen tells whether a page was started and its last status has not been given yet.
  bool IsOpen() const { return open_ && !IsCancelled() && !IsForeign(); }

  // IsForeign tells whether this process was forked from the one that the threads are in: Start and
  // Read give IO_ERROR then, Cancel does nothing, and the object, with its scanner, must be left
  // alone.
  bool IsForeign() const noexcept;

  // ReadyFd is readable whenever Read has bytes or a final status.
  int ReadyFd() const { return ready_.Get(); }

 private:
  using Clock = std::chrono::steady_clock;
  enum class Phase { kIdle, kOrdered, kStarting, kPage };
  struct Order {
    Settings settings;
    cli::ScanPlan plan;
    bool goes_on = false;  // the next page of the job that is open on the device
  };

  // the client's
  bool StartThreads();
  bool OwnFlags();
  bool IsCancelled() const { return cancels_ != seen_cancels_; }
  SANE_Status GiveOrder(const Settings& settings, const cli::ScanPlan& plan, unsigned cancels)
      VOX_EXCLUDES(mutex_);
  SANE_Status GiveUp() VOX_REQUIRES(mutex_);
  bool IsFeederEmpty(const Settings& settings, bool cancelled) VOX_REQUIRES(mutex_);
  SANE_Status AwaitStart() VOX_EXCLUDES(mutex_);

  // the reading thread's
  void ReadPages() VOX_EXCLUDES(mutex_);
  SANE_Status ScanPage() VOX_EXCLUDES(mutex_);
  void BeginPage();
  void AwaitFeeder();
  void StartScan();
  bool TryStart();
  void EnsureServer();
  void ReadLines();
  void EndPage();
  void Deliver(std::span<const std::uint8_t> line) VOX_EXCLUDES(mutex_);
  void TellStarted(SANE_Status status) VOX_EXCLUDES(mutex_);
  void Pause(std::chrono::milliseconds time) VOX_EXCLUDES(mutex_);
  bool Feeds() const { return order_.settings.source != Source::kFlatbed; }
  [[noreturn]] void FailPage();

  // the watching thread's
  void Watch() VOX_EXCLUDES(mutex_);
  void EndJob() VOX_EXCLUDES(mutex_);
  bool AbortOnce() VOX_EXCLUDES(mutex_);
  void AwaitNextPage(MutexLock& lock) VOX_REQUIRES(mutex_);

  Scanner& scanner_;
  const JobTimes times_;

  std::atomic<unsigned> cancels_{0};       // how often Cancel was called
  std::atomic<unsigned> seen_cancels_{0};  // of these, those that came before the last Start
  EventFd ready_;                          // what Read would give
  EventFd started_;                        // what Start waits for
  EventFd watched_;                        // wakes the watching thread

  bool open_ = false;                          // the client's
  SANE_Status closed_ = SANE_STATUS_INVAL;     // what Read gives when no page is open; likewise
  std::atomic<pid_t> process_{0};              // that started threads, 0 none
  pid_t flags_process_;                        // that opened the flags; the client's
  std::vector<std::thread> reader_, watcher_;  // one each

  Order order_;            // the reading thread's from kOrdered to kIdle
  Settings job_settings_;  // the reading thread's: of the job that is open on the device
  unsigned page_ = 0;      // the reading thread's: of the job, 1 is the first

  Mutex mutex_;
  Condition changed_;
  Phase phase_ VOX_GUARDED_BY(mutex_) = Phase::kIdle;
  bool quit_ VOX_GUARDED_BY(mutex_) = false;
  bool aborting_ VOX_GUARDED_BY(mutex_) = false;  // the watching thread is inside Abort
  bool late_ VOX_GUARDED_BY(mutex_) = false;      // a page began meanwhile
  // A job that may be open on the device. Of a cancelled page it stays so until the watching thread
  // has told the device.
  bool job_open_ VOX_GUARDED_BY(mutex_) = false;
  bool more_ VOX_GUARDED_BY(mutex_) = false;     // it has another page
  bool emptied_ VOX_GUARDED_BY(mutex_) = false;  // the last page of a feeder was read
  Clock::time_point emptied_at_ VOX_GUARDED_BY(mutex_){};
  bool given_ VOX_GUARDED_BY(mutex_) = false;  // final_status_ was given to the client
  bool told_ VOX_GUARDED_BY(mutex_) = false;   // start_status_ is there
  SANE_Status start_status_ VOX_GUARDED_BY(mutex_) = SANE_STATUS_GOOD;
  bool final_ VOX_GUARDED_BY(mutex_) = false;  // final_status_ is there
  SANE_Status final_status_ VOX_GUARDED_BY(mutex_) = SANE_STATUS_GOOD;
  LineBuffer buffer_ VOX_GUARDED_BY(mutex_);
};

}  // namespace vox::sane
