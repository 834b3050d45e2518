#include "tools/vox/CancelWatch.h"

#include <cerrno>
#include <cstdio>

#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include "tools/vox/Failure.h"

namespace vox::cli {

namespace {

sigset_t SignalsToWatch() {
  sigset_t set;
  sigemptyset(&set);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    struct sigaction action {};
    if (::sigaction(signal, nullptr, &action) == 0 && action.sa_handler != SIG_IGN)
      sigaddset(&set, signal);
  }
  return set;
}

}  // namespace

CancelWatch::CancelWatch() {
  const sigset_t set = SignalsToWatch();
  ::pthread_sigmask(SIG_BLOCK, &set, &old_mask_);
  signals_.Reset(::signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK));
  thread_ = std::thread([this] { Run(); });
}

CancelWatch::~CancelWatch() {
  end_.Raise();
  thread_.join();
  // A second Ctrl-C that nobody has looked at must not end the program once it is let through.
  signalfd_siginfo signal{};
  while (::read(signals_.Get(), &signal, sizeof signal) == sizeof signal) {
  }
  ::pthread_sigmask(SIG_SETMASK, &old_mask_, nullptr);
}

void CancelWatch::Run() {
  pollfd entries[2] = {{signals_.Get(), POLLIN, 0}, {end_.Get(), POLLIN, 0}};
  for (;;) {
    if (::poll(entries, 2, -1) < 0 && errno != EINTR) return;
    if (entries[1].revents != 0) return;
    signalfd_siginfo signal{};
    if (::read(signals_.Get(), &signal, sizeof signal) == sizeof signal && !Requested()) Cancel();
  }
}

void CancelWatch::Cancel() {
  const MutexLock lock(mutex_);
  requested_ = true;
  wake_.Raise();
  if (abort_) {
    abort_();
    return;
  }
  if (undo_) undo_();
  std::fputs("vox: cancelled\n", stderr);
  ::_exit(static_cast<int>(ExitStatus::kCancelled));
}

void CancelWatch::Undoable(const std::function<Action()>& make) {
  const MutexLock lock(mutex_);
  undo_ = make();
}

void CancelWatch::Forget() {
  const MutexLock lock(mutex_);
  undo_ = nullptr;
}

void CancelWatch::Attach(Action abort) {
  const MutexLock lock(mutex_);
  if (Requested()) throw CancelledFailure();
  abort_ = std::move(abort);
}

// The thread may hold the lock for as long as an abort takes: bounded by the device's time-outs.
void CancelWatch::Detach() {
  const MutexLock lock(mutex_);
  abort_ = nullptr;
}

}  // namespace vox::cli
