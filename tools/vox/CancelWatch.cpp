#include "tools/vox/CancelWatch.h"

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <string>

#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include "tools/vox/Failure.h"
#include "tools/vox/KnownDevices.h"

namespace vox::cli {

namespace {

constexpr std::chrono::milliseconds kBetweenAborts{100};

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
  ::pthread_sigmask(SIG_BLOCK, &set, nullptr);
  signals_.Reset(::signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK));
  // Without them the thread would hear neither a signal nor the end.
  if (!signals_ || wake_.Get() < 0 || end_.Get() < 0)
    throw Failure(ExitStatus::kNoMemory, std::string("cannot begin: ") + kTooFewDescriptors);
  thread_ = std::thread([this] { Run(); });
}

CancelWatch::~CancelWatch() {
  end_.Raise();
  thread_.join();
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
  MutexLock lock(mutex_);
  if (finished_) return;
  requested_ = true;
  wake_.Raise();
  if (!begun_) LeaveAtOnce();
  while (abort_) {
    abort_();
    if (abort_) detached_.WaitFor(lock, kBetweenAborts);
  }
}

// The main thread may be waiting for a device for seconds; nothing of it needs to be brought home.
void CancelWatch::LeaveAtOnce() {
  std::fputs("vox: cancelled\n", stderr);
  if (undo_) undo_();
  ::_exit(static_cast<int>(ExitStatus::kCancelled));
}

void CancelWatch::Prepare(const std::function<Action()>& make) {
  const MutexLock lock(mutex_);
  undo_ = make();
}

void CancelWatch::Finish() {
  const MutexLock lock(mutex_);
  finished_ = true;
}

void CancelWatch::Attach(Action abort) {
  const MutexLock lock(mutex_);
  if (Requested()) throw CancelledFailure();
  begun_ = true;
  abort_ = std::move(abort);
}

// The thread may hold the lock for as long as an abort takes: bounded by the device's time-outs.
void CancelWatch::Detach() {
  const MutexLock lock(mutex_);
  abort_ = nullptr;
  detached_.NotifyAll();
}

}  // namespace vox::cli
