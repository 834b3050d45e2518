// The whole road of a page, from the virtual device to client lines: its time beside its parts
// (PageRows.cpp), the job server's (RelayRows.cpp), growth with the page and the job
// (GrowthRows.cpp), the memory of a slow client's process, and its processor time while it waits.
//
// SlowClient: A3, 1200 dpi, colour: 835 MB raw, in at most 160 MiB of resident memory.
// Wait/*: at most 2 percent of a core.
#include <chrono>
#include <memory>

#include <benchmark/benchmark.h>

#include "bench/Gradient.h"
#include "bench/ScanProcess.h"
#include "bench/Turns.h"
#include "tests/e2e/Road.h"

namespace vox {
namespace {

using namespace std::chrono_literals;
using test::Road;

void SlowClient(benchmark::State& state) {
  sim::UnitOptions unit;
  unit.x_resolution_max = unit.y_resolution_max = 1200;
  unit.physical_width = 116900;
  unit.physical_height = 165400;
  sim::DeviceOptions options;
  options.flatbed = unit;
  options.glass = std::make_shared<bench::Gradient>(sim::PageSize{116900, 165400});
  Road road;
  road.Device(options);
  for (auto _ : state) {
    const bench::Usage usage = bench::ReadSlowly(road.FirstDevice(), 150);
    if (!usage.done) return state.SkipWithError("the page does not come");
    state.SetIterationTime(usage.seconds);
    state.counters["lines"] = usage.lines;
    bench::ReportRow(state, usage.peak_mib, 160);
  }
}
BENCHMARK(SlowClient)->Apply(bench::AsRow);

void Wait(benchmark::State& state, unsigned bits, const sim::Faults& faults) {
  sim::DeviceOptions options;
  options.faults = faults;
  Road road;
  road.Device(options);
  for (auto _ : state) {
    const bench::Usage usage = bench::WaitFor(road.FirstDevice(), bits, bench::IsQuick() ? 0.2 : 2);
    if (!usage.done) return state.SkipWithError("the page does not start");
    state.SetIterationTime(usage.seconds);
    state.counters["lines"] = usage.lines;
    bench::ReportRow(state, usage.cpu_share * 100, 2);
  }
}

sim::Faults Silent() {
  sim::Faults faults;
  faults.silence = {.at = sim::Stage::kData, .after_bytes = 300, .whole_device = false};
  return faults;
}
// A block, or 64 KiB of raw lines, four times a second.
sim::Faults Slow() {
  sim::Faults faults;
  faults.delays.data = 250ms;
  return faults;
}

BENCHMARK_CAPTURE(Wait, SilentJbig, 1, Silent())->Apply(bench::AsRow);
BENCHMARK_CAPTURE(Wait, SilentRaw, 8, Silent())->Apply(bench::AsRow);
BENCHMARK_CAPTURE(Wait, SlowJbig, 1, Slow())->Apply(bench::AsRow);
BENCHMARK_CAPTURE(Wait, SlowRaw, 8, Slow())->Apply(bench::AsRow);

}  // namespace
}  // namespace vox

int main(int argc, char** argv) {
  const int status = vox::bench::RunScanProcess(argc, argv);
  if (status >= 0) return status;
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
