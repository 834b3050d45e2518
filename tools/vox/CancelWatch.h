// CancelWatch turns Ctrl-C, SIGTERM and SIGHUP into an orderly end. A thread of its own waits for
// the signals, so that nothing has to happen inside a handler:
//
//   before the job    tidy up (Prepare), say so and leave the program with status 2 at once
//   a job attached    Requested() becomes true, Fd() readable, and the job's abort runs on the
//                     watch's thread, again and again until the job is detached, since one that
//                     comes between two pages hits nothing; the program ends on its own road
//   a job detached    Requested() becomes true; the program ends on its own road, for the job's
//                     files have still to be removed, or to be finished
//   finished          nothing: what was asked for is done
//
// Create it before any other thread, since those inherit the blocked signals. They stay blocked
// when the object goes, as the program is about to end. A signal that the program was started with
// as ignored (nohup) stays ignored.
//
// Thread rule: Requested and Fd from any thread, the rest from the main thread.
#pragma once

#include <atomic>
#include <csignal>
#include <functional>
#include <thread>

#include "vox/platform/FileDescriptor.h"
#include "vox/platform/Mutex.h"

namespace vox::cli {

class CancelWatch {
 public:
  using Action = std::function<void()>;

  CancelWatch();  // Throws Failure 10: too few file descriptors.
  CancelWatch(const CancelWatch&) = delete;
  CancelWatch& operator=(const CancelWatch&) = delete;
  ~CancelWatch();

  bool Requested() const { return requested_.load(); }
  int Fd() const { return wake_.Get(); }

  // Prepare runs `make`, which no cancel interrupts, and keeps what it returns: how to undo it,
  // for a cancel that leaves the program at once, on the watch's thread and while the others go on;
  // it may itself end the program, with kCancelled. What `make` throws passes.
  void Prepare(const std::function<Action()>& make) VOX_EXCLUDES(mutex_);

  // Finish says that the work is done: no cancel counts any more.
  void Finish() VOX_EXCLUDES(mutex_);

  // Attachment names, as long as it lives, what stops the running job. Its constructor throws
  // CancelledFailure when a cancel came before; Detach waits for an abort that is under way.
  class Attachment {
   public:
    Attachment(CancelWatch& watch, Action abort) : watch_(watch) {
      watch_.Attach(std::move(abort));
    }
    ~Attachment() { Detach(); }
    Attachment(const Attachment&) = delete;
    Attachment& operator=(const Attachment&) = delete;
    void Detach() { watch_.Detach(); }

   private:
    CancelWatch& watch_;
  };

 private:
  void Attach(Action abort) VOX_EXCLUDES(mutex_);
  void Detach() VOX_EXCLUDES(mutex_);
  void Run();
  void Cancel() VOX_EXCLUDES(mutex_);
  [[noreturn]] void LeaveAtOnce() VOX_REQUIRES(mutex_);

  FileDescriptor signals_;
  EventFd wake_, end_;
  std::atomic<bool> requested_{false};
  Mutex mutex_;
  Condition detached_;
  bool finished_ VOX_GUARDED_BY(mutex_) = false;
  bool begun_ VOX_GUARDED_BY(mutex_) = false;  // a job was attached
  Action undo_ VOX_GUARDED_BY(mutex_);
  Action abort_ VOX_GUARDED_BY(mutex_);
  std::thread thread_;
};

}  // namespace vox::cli
