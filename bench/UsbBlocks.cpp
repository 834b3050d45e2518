// blocks/B/lines/L: pages of 1, 2, 4, 8 and 16 times a size, in blocks of B bytes and lines of L,
// from a port that costs next to nothing. Processor time, the sizes in turns, medians of nine; what
// is reached is the time for a byte of the largest page to that of the smallest. It stays level: at
// most 1.25.
#include <algorithm>
#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "bench/Turns.h"
#include "tests/support/BlockPort.h"
#include "vox/drivers/usb/TwImgIFUsb.h"

namespace vox::bench {
namespace {

constexpr std::array<std::uint64_t, 5> kTimes = {1, 2, 4, 8, 16};
// Bytes of the smallest page, or a block.
std::uint64_t Smallest(std::uint32_t block) {
  return std::max<std::uint64_t>(block, IsQuick() ? 1u << 17 : 2u << 20);
}
constexpr double kMost = 1.25;

// Nanoseconds for a byte of the page's whole lines; 0: it does not come.
double ReadPage(test::BlockPort& port, std::uint64_t page, std::uint32_t block,
                std::uint32_t size) {
  CTwImgIFUsb scanner(test::BlockPort::kModel, test::BlockPort::kSerial);
  if (!scanner.Open()) return 0;
  port.Load(page, block);
  std::vector<unsigned char> line(size);
  const std::uint64_t lines = page / size;
  const Stopwatch watch;
  for (std::uint64_t i = 0; i < lines; ++i) {
    unsigned got = 0;
    if (scanner.ReadScanData(line.data(), size, &got) != 0) return 0;
    benchmark::DoNotOptimize(line.data());
  }
  const double seconds = watch.CpuSeconds();
  if (!test::BlockPort::Expected((lines - 1) * size, line)) return 0;
  return 1e9 * seconds / static_cast<double>(lines * size);
}

void Blocks(benchmark::State& state, std::uint32_t block, std::uint32_t line) {
  if (IsQuick()) block = std::min(block, 1u << 20);
  test::BlockPort port;
  std::array<std::vector<double>, kTimes.size()> times;
  const std::uint64_t smallest = Smallest(block);
  for (auto _ : state) {
    ReadPage(port, smallest, block, line);  // what is paid once
    for (int round = 0; round < Turns(); ++round) {
      for (std::size_t i = 0; i < kTimes.size(); ++i) {
        times[i].push_back(ReadPage(port, smallest * kTimes[i], block, line));
        if (times[i].back() == 0) return state.SkipWithError("the page does not come");
      }
    }
    state.SetIterationTime(1e-9 * Median(times.back()) *
                           static_cast<double>(smallest * kTimes.back()));
  }
  state.counters["smallest_ns_per_byte"] = Median(times.front());
  state.counters["largest_ns_per_byte"] = Median(times.back());
  ReportRow(state, MedianRatio(times.back(), times.front()), kMost);
}

[[maybe_unused]] const bool registered = [] {
  for (const std::uint32_t block : {512u, 4096u, 65'536u, 1u << 20, 64u << 20}) {
    for (const std::uint32_t line : {600u, 15'000u, 122'880u}) {
      const std::string name = "blocks/" + std::to_string(block) + "/lines/" + std::to_string(line);
      RegisterRow(name, [=](benchmark::State& state) { Blocks(state, block, line); });
    }
  }
  return true;
}();

}  // namespace
}  // namespace vox::bench
