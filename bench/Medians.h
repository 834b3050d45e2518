// What a benchmark takes that measures its rounds by itself: wall time and the calling thread's
// processor time, and the middle of the rounds' values.
//
// Thread rule: plain values; a Stopwatch belongs to the thread that made it.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <ctime>
#include <vector>

namespace vox::bench {

inline double Median(std::vector<double> values) {
  if (values.empty()) return 0;
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

// Stopwatch measures from its making on.
class Stopwatch {
 public:
  double Seconds() const { return std::chrono::duration<double>(Clock::now() - start_).count(); }
  double CpuSeconds() const { return ThreadSeconds() - cpu_start_; }

 private:
  using Clock = std::chrono::steady_clock;
  static double ThreadSeconds() {
    timespec time{};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
  }
  const Clock::time_point start_ = Clock::now();
  const double cpu_start_ = ThreadSeconds();
};

}  // namespace vox::bench
