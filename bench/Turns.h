// Works that take turns, so that whatever else the machine does meets all of them, and the row that
// a promise about them prints: what was reached, the bound, met or MISSED.
//
// Thread rule: one thread; the works may use threads of their own.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include <benchmark/benchmark.h>

#include "bench/Medians.h"

namespace vox::bench {

// IsQuick: every row runs once on next to nothing, only so that it is seen to run. See bench/run.
inline bool IsQuick() {
  static const bool quick = std::getenv("VOX_BENCH_QUICK") != nullptr;
  return quick;
}
inline int Turns() {
  return IsQuick() ? 1 : 9;
}

// TakeTurns gives the wall seconds of each work, a value a turn.
template <typename... Works>
std::array<std::vector<double>, sizeof...(Works)> TakeTurns(const Works&... works) {
  std::array<std::vector<double>, sizeof...(Works)> seconds;
  for (int turn = 0; turn < Turns(); ++turn) {
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

// ReportRow is how a row keeps a promise: bench/run makes its table from these counters. `where`
// says which of the variants that the row measures the value is of.
inline void ReportRow(benchmark::State& state, double reached, double bound,
                      Promise promise = Promise::kAtMost, const std::string& where = {}) {
  const bool at_most = promise == Promise::kAtMost;
  state.counters["reached"] = reached;
  state.counters[at_most ? "at_most" : "at_least"] = bound;
  const bool met = at_most ? reached <= bound : reached >= bound;
  state.SetLabel((met ? "met" : "MISSED") + (where.empty() ? "" : " (" + where + ")"));
}

// A row measures by itself and runs once.
inline void AsRow(benchmark::internal::Benchmark* row) {
  row->UseManualTime()->Iterations(1)->Repetitions(1)->Unit(benchmark::kMillisecond);
}

// RegisterRow makes a row of `measure`, which gets the state.
template <typename Measure>
void RegisterRow(const std::string& name, const Measure& measure) {
  AsRow(benchmark::RegisterBenchmark(name.c_str(), measure));
}

}  // namespace vox::bench
