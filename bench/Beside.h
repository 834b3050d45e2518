// Two pieces of work that do the same, measured beside each other: they take turns, so that
// whatever else the machine does meets both, and the processor time of this thread counts.
#pragma once

#include <algorithm>
#include <ctime>
#include <vector>

namespace vox::bench {

struct Beside {
  double ours = 0, peer = 0;  // seconds of processor time, medians
  double ratio = 0;           // how many times as fast as the peer we are: median over the turns
};

inline double ThreadSeconds() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

inline double Median(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

// The peer does its work once a turn, we ours as often as that takes about as long, at most 16
// times: short times are measured too coarsely otherwise.
template <typename Ours, typename Peer>
Beside MeasureBeside(const Ours& ours, const Peer& peer, int turns = 9) {
  const auto seconds = [](const auto& work, int times) {
    const double start = ThreadSeconds();
    for (int i = 0; i < times; ++i) work();
    return (ThreadSeconds() - start) / times;
  };
  const double first = seconds(peer, 1);
  const int times = static_cast<int>(std::clamp(first / (seconds(ours, 1) + 1e-9), 1.0, 16.0));
  std::vector<double> mine, theirs, ratios;
  for (int turn = 0; turn < turns; ++turn) {
    theirs.push_back(seconds(peer, 1));
    mine.push_back(seconds(ours, times));
    ratios.push_back(theirs.back() / mine.back());
  }
  return {Median(mine), Median(theirs), Median(ratios)};
}

}  // namespace vox::bench
