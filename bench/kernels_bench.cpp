// The rescaling kernels beside the plain formulas in the same run, on lines of A4 pages. Every
// kernel's bytes are compared with the plain ones before its time counts.
//
// Names: kernel/pixels in/pixels out/bytes a pixel. Bytes are those written; items are lines.
#include <random>
#include <vector>

#include <benchmark/benchmark.h>

#include "tests/support/PlainKernels.h"
#include "vox/drivers/LineKernels.h"
#include "vox/drivers/LineStages.h"
#include "vox/drivers/WidthScaler.h"

namespace vox {
namespace {

using test::Line;

Line Noise(std::size_t size, unsigned seed = 1) {
  std::mt19937 random(seed);
  Line line(size);
  for (auto& byte : line) byte = static_cast<std::uint8_t>(random());
  return line;
}

void Report(benchmark::State& state, std::size_t bytes) {
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(bytes));
  state.SetItemsProcessed(state.iterations());
}

// Runs `line`, which gives a whole line, if it gives what the plain formula gives.
template <class Make>
void Time(benchmark::State& state, const Line& expected, const Make& make) {
  if (make() != expected) {
    state.SkipWithError("bytes differ from the plain formula");
    return;
  }
  for (auto _ : state) {
    Line line = make();
    benchmark::DoNotOptimize(line.data());
  }
  Report(state, expected.size());
}

struct Widths {
  explicit Widths(const benchmark::State& state)
      : from(static_cast<unsigned>(state.range(0))),
        to(static_cast<unsigned>(state.range(1))),
        ps(static_cast<unsigned>(state.range(2))),
        src(Noise(std::size_t{from} * ps)) {}
  Line Plain() const {
    return to > from ? test::PlainExpandWidth(src, to, from, ps)
                     : test::PlainReduceWidth(src, to, from, ps);
  }
  unsigned from, to, ps;
  Line src;
};

void PlainWidth(benchmark::State& state) {
  const Widths widths(state);
  Time(state, widths.Plain(), [&] { return widths.Plain(); });
}

// As the pipeline does it: the tables are made once a page.
void ScaledWidth(benchmark::State& state) {
  const Widths w(state);
  const auto scaler = w.to > w.from ? WidthScaler::expand(w.to, w.from, w.ps)
                                    : WidthScaler::reduce(w.to, w.from, w.ps);
  Time(state, w.Plain(), [&] {
    Line line(std::size_t{w.to} * w.ps);
    scaler.run(line.data(), w.src.data());
    return line;
  });
}

// As a single call does it, without tables.
void KernelWidth(benchmark::State& state) {
  const Widths w(state);
  const auto kernel = w.to > w.from ? ExpandWidth : ReduceWidth;
  Time(state, w.Plain(), [&] {
    Line line(std::size_t{w.to} * w.ps);
    kernel(line.data(), w.src.data(), w.to, w.from, w.ps);
    return line;
  });
}

void A4Widths(benchmark::internal::Benchmark* bench) {
  bench->Args({2481, 4962, 1})->Args({2481, 4962, 3});  // 300 to 600 dpi
  bench->Args({4962, 2481, 1})->Args({4962, 2481, 3});  // 600 to 300 dpi
  bench->Args({1654, 620, 3});                          // 200 to 75 dpi
}
BENCHMARK(PlainWidth)->Apply(A4Widths);
BENCHMARK(ScaledWidth)->Apply(A4Widths);
BENCHMARK(KernelWidth)->Args({4962, 2481, 3});

constexpr unsigned kColourLine = 4962 * 3;

void PlainGrade(benchmark::State& state) {
  const Line lower = Noise(kColourLine), upper = Noise(kColourLine, 2);
  const Line expected = test::PlainGradeLine(lower, upper, 0.3f);
  Time(state, expected, [&] { return test::PlainGradeLine(lower, upper, 0.3f); });
}
BENCHMARK(PlainGrade);

void Grade(benchmark::State& state) {
  const Line lower = Noise(kColourLine), upper = Noise(kColourLine, 2);
  Time(state, test::PlainGradeLine(lower, upper, 0.3f), [&] {
    Line line(kColourLine);
    GradeLine(line.data(), lower.data(), upper.data(), kColourLine, 0.3f);
    return line;
  });
}
BENCHMARK(Grade);

void PlainBits(benchmark::State& state) {
  const Line grey = Noise(4962);
  const Line expected = test::PlainBitReduced(grey, grey.size(), 0);
  Time(state, expected, [&] { return test::PlainBitReduced(grey, grey.size(), 0); });
}
BENCHMARK(PlainBits);

void Bits(benchmark::State& state) {
  const Line grey = Noise(4962);
  Time(state, test::PlainBitReduced(grey, grey.size(), 0), [&] {
    Line line((grey.size() + 7) / 8);
    BitReduceMonoLine(line.data(), grey.data(), static_cast<unsigned>(grey.size()), 0);
    return line;
  });
}
BENCHMARK(Bits);

// Shrinking down from 600 to 300 dpi, colour: one client line from the lines of its span.
struct Shrinking {
  Shrinking() {
    request.wBitsPerPixel = 24;
    request.fXResolution = 600;
    request.fYResolution = 300;
    request.dwImageWidth = 4962;
    request.dwImageLength = 50;
    request.dwLineSize = kColourLine;
    request.fRight = 8.27f;
    info.DataType = 3;
    info.Xresolution = info.Yresolution = 600;
    info.Window = {0, 0, 4962, 100};
    for (unsigned n = 0; n < 100; ++n) lines.push_back(Noise(kColourLine, n));
  }
  tagTWSCANPARAM request{};
  _SCANINFO info{};
  std::vector<Line> lines;
};

void PlainShrink(benchmark::State& state) {
  const Shrinking page;
  const Line expected = test::PlainShrunkLine(page.lines, 20, 50);
  Time(state, expected, [&] { return test::PlainShrunkLine(page.lines, 20, 50); });
}
BENCHMARK(PlainShrink);

void Shrink(benchmark::State& state) {
  const Shrinking page;
  VerticalStage stage(page.request, page.info);
  Time(state, test::PlainShrunkLine(page.lines, 20, 50), [&] {
    Line line(line_sizes(page.request, page.info).client_room);
    const LINE_SPAN span = stage.span(20);
    stage.begin(20, line.data());
    for (std::uint32_t n = span.lower; n <= span.upper; ++n) stage.add(page.lines[n].data());
    stage.finish();
    return line;
  });
}
BENCHMARK(Shrink);

}  // namespace
}  // namespace vox

BENCHMARK_MAIN();
