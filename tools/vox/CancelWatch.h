// CancelWatch turns Ctrl-C, SIGTERM and SIGHUP into an orderly end. A thread of its own waits for
// the signals, so that nothing has to happen inside a handler:
//
//   no job attached   say so and leave the program with status 2 at once; where there is something
//                     to tidy up (StayToTheEnd), Requested() becomes true and no job can begin
//   a job attached    Requested() becomes true, Fd() readable, and the job's abort runs on the
//                     watch's thread, again and again until the job is detached, since one that
//                     comes between two pages hits nothing; the program ends on its own road
//
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

  CancelWatch();
  CancelWatch(const CancelWatch&) = delete;
  CancelWatch& operator=(const CancelWatch&) = delete;
  ~CancelWatch();

  bool Requested() const { return requested_.load(); }
  int Fd() const { return wake_.Get(); }

  // StayToTheEnd: from now on the program has something to tidy up at its end, and must reach it.
  void StayToTheEnd() VOX_EXCLUDES(mutex_);

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

  FileDescriptor signals_;
  EventFd wake_, end_;
  std::atomic<bool> requested_{false};
  Mutex mutex_;
  Condition detached_;
  bool finished_ VOX_GUARDED_BY(mutex_) = false;
  bool stay_ VOX_GUARDED_BY(mutex_) = false;
  Action abort_ VOX_GUARDED_BY(mutex_);
  std::thread thread_;
};

}  // namespace vox::cli
