// Two pieces of work that do the same, measured beside each other: they take turns, so that
// whatever else the machine does meets both, and the processor time of this thread counts.
#pragma once

#include <algorithm>
#include <vector>

#include "bench/Turns.h"

namespace vox::bench {

struct Beside {
  double ours = 0, peer = 0;  // seconds of processor time, medians
  double ratio = 0;           // how many times as fast as the peer we are: median over the turns
};

// The peer does its work once a turn, we ours as often as that takes 10 ms or as long as the peer,
// at most 16 times: short times are measured too coarsely otherwise.
template <typename Ours, typename Peer>
Beside MeasureBeside(const Ours& ours, const Peer& peer) {
  const auto seconds = [](const auto& work, int times) {
    const Stopwatch watch;
    for (int i = 0; i < times; ++i) work();
    return watch.CpuSeconds() / times;
  };
  const double enough = std::min(seconds(peer, 1), 0.01);
  const int times = static_cast<int>(std::clamp(enough / (seconds(ours, 1) + 1e-9), 1.0, 16.0));
  std::vector<double> mine, theirs;
  for (int turn = 0; turn < Turns(); ++turn) {
    theirs.push_back(seconds(peer, 1));
    mine.push_back(seconds(ours, times));
  }
  return {Median(mine), Median(theirs), MedianRatio(theirs, mine)};
}

}  // namespace vox::bench
