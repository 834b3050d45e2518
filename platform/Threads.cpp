#include "vox/platform/Threads.h"

#include <algorithm>
#include <atomic>
#include <csignal>
#include <exception>
#include <functional>
#include <new>
#include <system_error>

#include <pthread.h>

namespace vox {
namespace {

// A thread inherits the mask of the one that starts it.
class SignalsBlocked {
 public:
  SignalsBlocked() {
    sigset_t all;
    sigfillset(&all);
    ::pthread_sigmask(SIG_SETMASK, &all, &before_);
  }
  ~SignalsBlocked() { ::pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  SignalsBlocked(const SignalsBlocked&) = delete;
  SignalsBlocked& operator=(const SignalsBlocked&) = delete;

 private:
  sigset_t before_{};
};

// Works are taken in their order by every thread that calls this.
class Works {
 public:
  Works(std::size_t count, const std::function<void(std::size_t)>& work)
      : count_(count), work_(work) {}

  void operator()() try {
    while (!failed_) {
      const std::size_t i = next_++;
      if (i >= count_) return;
      work_(i);
    }
  } catch (const std::exception&) {
    if (!failed_.exchange(true)) failure_ = std::current_exception();
  }

  // Once no thread is in there any more.
  void Rethrow() const {
    if (failure_) std::rethrow_exception(failure_);
  }

 private:
  const std::size_t count_;
  const std::function<void(std::size_t)>& work_;
  std::atomic<std::size_t> next_{0};
  std::atomic<bool> failed_{false};
  std::exception_ptr failure_;  // of the thread that set failed_
};

}  // namespace

bool StartThread(std::vector<std::thread>* threads, const std::function<void()>& body) try {
  const SignalsBlocked blocked;
  threads->emplace_back(body);
  return true;
} catch (const std::system_error&) {
  return false;
} catch (const std::bad_alloc&) {
  return false;
}

void RunTogether(std::size_t count, std::size_t limit,
                 const std::function<void(std::size_t)>& work) {
  Works works(count, work);
  // Given by reference, which takes no memory: nothing may throw beside threads that run.
  std::vector<std::thread> helpers;
  while (helpers.size() + 1 < std::min(count, limit) && StartThread(&helpers, std::ref(works))) {
  }
  works();
  for (std::thread& helper : helpers) helper.join();
  works.Rethrow();
}

}  // namespace vox
