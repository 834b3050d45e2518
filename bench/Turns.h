// Works that take turns, so that whatever else the machine does meets all of them, and the row that
// a promise about them prints: ratio, target, met or MISSED.
//
// Thread rule: one thread; the works may use threads of their own.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <vector>

#include <benchmark/benchmark.h>

#include "bench/Medians.h"

namespace vox::bench {

inline constexpr int kTurns = 9;

// TakeTurns gives the wall seconds of each work, a value a turn.
template <typename... Works>
std::array<std::vector<double>, sizeof...(Works)> TakeTurns(const Works&... works) {
  std::array<std::vector<double>, sizeof...(Works)> seconds;
  for (int turn = 0; turn < kTurns; ++turn) {
    std::size_t work = 0;
    const auto time = [&](const auto& run) {
      const Stopwatch watch;
      run();
      seconds[work++].push_back(watch.Seconds());
    };
    (time(works), ...);
  }
  return seconds;
}

// MedianRatio is the median over the turns of a / b.
inline double MedianRatio(std::vector<double> a, const std::vector<double>& b) {
  for (std::size_t i = 0; i < a.size(); ++i) a[i] /= b[i];
  return Median(std::move(a));
}

inline std::vector<double> Slower(std::vector<double> a, const std::vector<double>& b) {
  for (std::size_t i = 0; i < a.size(); ++i) a[i] = std::max(a[i], b[i]);
  return a;
}

enum class Promise { kAtMost, kAtLeast };

inline void ReportRow(benchmark::State& state, double ratio, double target,
                      Promise promise = Promise::kAtMost) {
  state.counters["ratio"] = ratio;
  state.counters["target"] = target;
  const bool met = promise == Promise::kAtMost ? ratio <= target : ratio >= target;
  state.SetLabel(met ? "met" : "MISSED");
}

// A row measures by itself and runs once.
inline void AsRow(benchmark::internal::Benchmark* row) {
  row->UseManualTime()->Iterations(1)->Repetitions(1)->Unit(benchmark::kMillisecond);
}

}  // namespace vox::bench
