// A page over the whole road, from the virtual device to client lines: its time beside its parts in
// the same run, the memory of a slow client's process, and its processor time while it waits.
//
// RoadOfTextPage: A4, 600 dpi, 1 bit, JBIG. Its parts are decoding the same blocks, and moving the
// same lines through the three threads of the pipeline. The target is under 1.5 times their sum.
// SlowClient: A3, 1200 dpi, colour: 835 MB raw. The target is under 160 MiB of resident memory.
// Waiting*: the target is under 2 percent of a core.
#include <chrono>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <benchmark/benchmark.h>

#include "bench/MemoryScanner.h"
#include "bench/ScanProcess.h"
#include "sim/PageStream.h"
#include "tests/e2e/Road.h"
#include "vox/drivers/JbigBuf.h"

namespace vox {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using Bytes = std::vector<std::uint8_t>;
using test::Ask;
using test::Road;

double SecondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

void ReportAgainst(benchmark::State& state, double value, double target) {
  state.counters["target"] = target;
  state.SetLabel(value < target ? "met" : "MISSED");
}

// Takes all client lines of a started page and ends it; true when they are `expected`, or when
// nothing is.
bool TakePage(CTwainImageIF& scanner, const tagTWSCANPARAM& request,
              const std::vector<test::Line>* expected = nullptr) {
  Bytes line(request.dwLineSize);
  bool same = true;
  for (std::uint32_t i = 0; i < request.dwImageLength; ++i) {
    if (scanner.ReadLine(line.data()) != 0) same = false;
    if (expected != nullptr && line != (*expected)[i]) same = false;
    benchmark::DoNotOptimize(line.data());
  }
  scanner.EndScan();
  return same && scanner.GetIfErrorStatus() == 0;
}

class TextPage {
 public:
  TextPage() {
    sim::UnitOptions unit;
    unit.physical_width = 82700;
    unit.physical_height = 117000;
    sim::DeviceOptions options;
    options.flatbed = unit;
    options.glass = sim::MakeTestChart({82700, 116900});
    options.cache_bytes = 64u << 20;
    sim::VirtualDevice& device = road_.Device(options);
    const sim::ScanInfo asked = road_.Request(request_);
    info_ = device.PageInfo(asked, 0);
    lines_ = device.PageLines(asked, 0);
    prepared_ = device.Prepare(asked);
    const auto stream = sim::OpenPage({options.glass, info_, {}}, options.coding);
    for (Bytes block; stream->Next(block);) blocks_.push_back(std::move(block));
    pipeline_ = std::make_unique<bench::MemoryScanner>(lines_);
  }

  // Works checks the result of each part before any time counts.
  bool Works() {
    const auto expected = road_.Expected(request_);
    return prepared_ && Decode() && StartPipeline() && TakePage(*pipeline_, request_, &expected) &&
           road_.Scanner().Start(request_) &&
           TakePage(road_.Scanner().Interface(), request_, &expected);
  }
  bool Decode() {
    CJbigDataCtrl decoder;
    decoder.AllocImageData();
    decoder.SetJbigParam(info_.jbig_line_template, info_.jbig_typical_prediction,
                         info_.encode_header_size);
    bool good = true;
    for (Bytes& block : blocks_) {
      decoder.m_lpJbigData = block.data();
      good = decoder.Decompress() && good;
      benchmark::DoNotOptimize(decoder.GetImageDataCtrl()->GetDataPtr());
      decoder.GetImageDataCtrl()->Remove();
    }
    decoder.m_lpJbigData = nullptr;
    return good;
  }
  void MoveLines() {
    StartPipeline();
    TakePage(*pipeline_, request_);
  }
  void Scan() {
    road_.Scanner().Start(request_);
    TakePage(road_.Scanner().Interface(), request_);
  }

 private:
  bool StartPipeline() {
    return pipeline_->PrepareScan(request_, true, false) && pipeline_->StartScan(false);
  }

  // 4960 by 7014 pixels: whole bytes, so that device lines are client lines.
  const tagTWSCANPARAM request_ = Ask::Lineart().Dpi(600).Frame(0, 0, 4960 / 600.0F, 11.69F);
  Road road_;
  sim::ScanInfo info_;
  Bytes lines_;
  std::vector<Bytes> blocks_;
  bool prepared_ = false;
  std::unique_ptr<bench::MemoryScanner> pipeline_;
};

void RoadOfTextPage(benchmark::State& state) {
  TextPage page;
  if (!page.Works()) return state.SkipWithError("the page does not come out as it should");
  double decode = 0, pipeline = 0, road = 0;
  for (auto _ : state) {
    const auto start = Clock::now();
    page.Decode();
    const auto decoded = Clock::now();
    page.MoveLines();
    const auto moved = Clock::now();
    page.Scan();
    const double seconds = SecondsSince(moved);
    decode += std::chrono::duration<double>(decoded - start).count();
    pipeline += std::chrono::duration<double>(moved - decoded).count();
    road += seconds;
    state.SetIterationTime(seconds);
  }
  const auto pages = static_cast<double>(state.iterations());
  state.counters["decode_ms"] = decode / pages * 1e3;
  state.counters["pipeline_ms"] = pipeline / pages * 1e3;
  state.counters["ratio"] = road / (decode + pipeline);
  ReportAgainst(state, road / (decode + pipeline), 1.5);
}
BENCHMARK(RoadOfTextPage)->UseManualTime()->Unit(benchmark::kMillisecond);

// Gradient draws itself faster than a network carries it.
class Gradient : public sim::PageSource {
 public:
  sim::PageSize Size() const override { return {116900, 165400}; }
  std::unique_ptr<sim::PageRaster> Open(const sim::RasterWindow&) const override {
    class Raster : public sim::PageRaster {
      void DrawRow(std::int64_t y, std::span<std::uint8_t> rgb) override {
        std::memset(rgb.data(), static_cast<int>(y & 0xFF), rgb.size());
      }
    };
    return std::make_unique<Raster>();
  }
};

void SlowClient(benchmark::State& state) {
  sim::UnitOptions unit;
  unit.x_resolution_max = unit.y_resolution_max = 1200;
  unit.physical_width = 116900;
  unit.physical_height = 165400;
  sim::DeviceOptions options;
  options.flatbed = unit;
  options.glass = std::make_shared<Gradient>();
  Road road;
  road.Device(options);
  for (auto _ : state) {
    const bench::Usage usage = bench::ReadSlowly(road.FirstDevice(), 150);
    if (!usage.done) return state.SkipWithError("the page does not come");
    state.SetIterationTime(usage.seconds);
    state.counters["peak_MiB"] = usage.peak_mib;
    state.counters["lines"] = usage.lines;
    ReportAgainst(state, usage.peak_mib, 160);
  }
}
BENCHMARK(SlowClient)->UseManualTime()->Iterations(1)->Repetitions(1)->Unit(benchmark::kSecond);

void Wait(benchmark::State& state, unsigned bits, const sim::Faults& faults) {
  sim::DeviceOptions options;
  options.faults = faults;
  Road road;
  road.Device(options);
  for (auto _ : state) {
    const bench::Usage usage = bench::WaitFor(road.FirstDevice(), bits, 2);
    if (!usage.done) return state.SkipWithError("the page does not start");
    state.SetIterationTime(usage.seconds);
    state.counters["cpu_percent"] = usage.cpu_share * 100;
    state.counters["lines"] = usage.lines;
    ReportAgainst(state, usage.cpu_share * 100, 2);
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

BENCHMARK_CAPTURE(Wait, SilentJbig, 1, Silent())->UseManualTime()->Iterations(1)->Repetitions(1);
BENCHMARK_CAPTURE(Wait, SilentRaw, 8, Silent())->UseManualTime()->Iterations(1)->Repetitions(1);
BENCHMARK_CAPTURE(Wait, SlowJbig, 1, Slow())->UseManualTime()->Iterations(1)->Repetitions(1);
BENCHMARK_CAPTURE(Wait, SlowRaw, 8, Slow())->UseManualTime()->Iterations(1)->Repetitions(1);

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
