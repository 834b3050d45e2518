// How a scanning process's cost grows with the page and with the job: a table of its processor time
// and greatest resident memory.
//
// Growth/Dpi/N: an A4 page in colour, from 75 dpi to 1200. Growth/Pages/N: jobs of A4 pages at 75
// dpi, grey, from 1 page to 500. Time: the ratio is the processor time a byte beside the row
// before, at most 1.3: growth is linear or below. Memory: a page of any size stays under 160
// MiB, which two leads of 64 MiB allow (the largest page here has 398); a job of any length takes
// at most 1.3 times a page's memory.
#include <algorithm>
#include <array>
#include <cstddef>
#include <iterator>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <benchmark/benchmark.h>

#include "bench/Gradient.h"
#include "bench/ScanProcess.h"
#include "bench/Turns.h"
#include "tests/e2e/Road.h"

namespace vox::bench {
namespace {

constexpr sim::PageSize kA4{.width = 82700, .height = 116900};
constexpr std::array<unsigned, 5> kResolutions = {75, 150, 300, 600, 1200};
constexpr std::array<unsigned, 4> kPages = {1, 10, 100, 500};

struct Step {
  std::vector<double> cpu, seconds, peak;  // a value a turn
  double bytes = 0;
};
using Table = std::map<unsigned, Step>;

sim::DeviceOptions DeviceWithA4() {
  sim::UnitOptions unit;
  unit.x_resolution_max = unit.y_resolution_max = 1200;
  unit.physical_width = kA4.width;
  unit.physical_height = 117000;
  sim::DeviceOptions options;
  options.flatbed = options.feeder = unit;
  options.glass = std::make_shared<Gradient>(kA4);
  return options;
}

// Each step is scanned once a turn; empty when a scan did not go as it should.
template <std::size_t N, typename Scan>
Table Grow(const std::array<unsigned, N>& steps, const Scan& scan) {
  Table table;
  for (int turn = 0; turn < Turns(); ++turn) {
    for (const unsigned number : steps) {
      const Usage usage = scan(number);
      if (!usage.done) return {};
      Step& step = table[number];
      step.cpu.push_back(usage.cpu_share * usage.seconds);
      step.seconds.push_back(usage.seconds);
      step.peak.push_back(usage.peak_mib);
      step.bytes = usage.bytes;
    }
  }
  return table;
}

const Table& Resolutions() {
  static const Table table = [] {
    test::Road road;
    road.Device(DeviceWithA4());
    return Grow(kResolutions,
                [&](unsigned dpi) { return ScanJob(road.FirstDevice(), 24, dpi, 1); });
  }();
  return table;
}

const Table& Jobs() {
  static const Table table = [] {
    test::Road road;
    road.Device(DeviceWithA4());
    return Grow(kPages, [&](unsigned pages) {
      if (IsQuick()) pages = std::max(1U, pages / 20);
      const sim::Sheet sheet{.front = std::make_shared<Gradient>(kA4), .back = nullptr};
      road.FirstDevice().LoadFeeder(std::vector<sim::Sheet>(pages, sheet));
      return ScanJob(road.FirstDevice(), 8, 75, pages);
    });
  }();
  return table;
}

void Time(benchmark::State& state, const Table& (*measured)(), unsigned number) {
  for (auto _ : state) {
    const Table& table = measured();
    const auto step = table.find(number);
    if (step == table.end()) return state.SkipWithError("a scan does not go as it should");
    state.SetIterationTime(Median(step->second.seconds));
    state.counters["cpu_ms"] = Median(step->second.cpu) * 1e3;
    state.counters["MiB"] = step->second.bytes / (1 << 20);
    if (step == table.begin()) continue;  // nothing to compare with
    const Step& before = std::prev(step)->second;
    ReportRow(state, MedianRatio(step->second.cpu, before.cpu) * before.bytes / step->second.bytes,
              1.3);
  }
}

void Memory(benchmark::State& state, const Table& (*measured)(), unsigned number, bool of_first) {
  for (auto _ : state) {
    const Table& table = measured();
    const auto step = table.find(number);
    if (step == table.end()) return state.SkipWithError("a scan does not go as it should");
    const double peak = Median(step->second.peak);
    const double unit = of_first ? Median(table.begin()->second.peak) : 1;
    state.SetIterationTime(Median(step->second.seconds));
    if (of_first) state.counters["peak_MiB"] = peak;
    ReportRow(state, peak / unit, of_first ? 1.3 : 160);
  }
}

void Register(const std::string& name, const Table& (*measured)(), unsigned number, bool of_first) {
  const std::string row = name + '/' + std::to_string(number);
  benchmark::RegisterBenchmark((row + "/Time").c_str(), Time, measured, number)->Apply(AsRow);
  benchmark::RegisterBenchmark((row + "/Memory").c_str(), Memory, measured, number, of_first)
      ->Apply(AsRow);
}

const bool registered = [] {
  for (const unsigned dpi : kResolutions) Register("Growth/Dpi", Resolutions, dpi, false);
  for (const unsigned pages : kPages) Register("Growth/Pages", Jobs, pages, true);
  return true;
}();

}  // namespace
}  // namespace vox::bench
