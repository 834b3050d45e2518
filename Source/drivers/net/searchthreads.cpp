#include "vox/drivers/net/searchthreads.h"

#include <algorithm>
#include <atomic>
#include <csignal>
#include <functional>
#include <new>
#include <system_error>

#include <pthread.h>

namespace vox {
namespace {

// A thread inherits the mask of the one that starts it.
class signals_blocked {
 public:
  signals_blocked() {
    sigset_t all;
    sigfillset(&all);
    ::pthread_sigmask(SIG_SETMASK, &all, &before);
  }
  ~signals_blocked() { ::pthread_sigmask(SIG_SETMASK, &before, nullptr); }
  signals_blocked(const signals_blocked&) = delete;
  signals_blocked& operator=(const signals_blocked&) = delete;

 private:
  sigset_t before{};
};

}  // namespace

bool start_thread(std::vector<std::thread>* threads, const std::function<void()>& body) try {
  const signals_blocked blocked;
  threads->emplace_back(body);
  return true;
} catch (const std::system_error&) {
  return false;
} catch (const std::bad_alloc&) {
  return false;
}

void run_all(int count, int limit, const std::function<void(int)>& work) {
  std::atomic<int> next{0};
  const auto run = [&] {
    for (int i = next++; i < count; i = next++) work(i);
  };
  // Given by reference, which takes no memory: nothing may throw beside threads that run.
  std::vector<std::thread> helpers;
  const int wanted = std::min(count, limit) - 1;
  while (static_cast<int>(helpers.size()) < wanted && start_thread(&helpers, std::ref(run))) {
  }
  run();
  for (std::thread& helper : helpers) helper.join();
}

}  // namespace vox
