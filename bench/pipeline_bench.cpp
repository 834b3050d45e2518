// One A4 page at 600 dpi through the line pipeline: 7,016 lines from a transport that only copies,
// to a client that only counts. Beside it the peer, a bare skeleton of the same thing: three
// threads and a client that hand the same lines over with the same semaphores, and memcpy as the
// only work.
//
// Threads/BITS: how many times as long as the skeleton the pipeline takes, the two taking turns; a
// page of 1 bit at most 1.3 times.
//
// The page is checked before its time counts: what comes out is what went in.
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include <benchmark/benchmark.h>

#include "bench/MemoryScanner.h"
#include "bench/Turns.h"
#include "vox/drivers/SemaphoreSet.h"

namespace {

using vox::tagTWSCANPARAM;
using vox::bench::MemoryScanner;

constexpr unsigned kWidth = 4960;   // pixels: 210 mm at 600 dpi
constexpr unsigned kLength = 7016;  // lines: 297 mm

std::size_t LineBytes(unsigned bits) {
  return std::size_t{kWidth} * bits / 8;
}

const std::vector<unsigned char>& Page(unsigned bits) {
  static std::vector<unsigned char> pages[25];
  std::vector<unsigned char>& page = pages[bits];
  if (page.empty()) {
    page.resize(LineBytes(bits) * kLength);
    for (std::size_t i = 0; i < page.size(); ++i) page[i] = static_cast<unsigned char>(i * 7 / 3);
  }
  return page;
}

tagTWSCANPARAM Request(unsigned bits, float resolution) {
  tagTWSCANPARAM request{};
  const float scale = resolution / 600.0f;
  request.fXResolution = request.fYResolution = resolution;
  request.dwImageWidth = static_cast<std::uint32_t>(kWidth * scale);
  request.dwImageLength = static_cast<std::uint32_t>(kLength * scale);
  request.wBitsPerPixel = static_cast<std::uint16_t>(bits);
  request.wPixelType = bits == 24 ? 2 : bits == 8 ? 1 : 0;
  request.fRight = kWidth / 600.0f;
  request.fBottom = kLength / 600.0f;
  request.dwLineSize = (request.dwImageWidth * bits + 7) / 8;
  return request;
}

// Scans a page; the number of lines that came, and whether each equals the page's.
bool ScanPage(MemoryScanner& scanner, const tagTWSCANPARAM& request,
              const unsigned char* expected) {
  std::vector<unsigned char> line(request.dwLineSize);
  if (!scanner.PrepareScan(request, true, false) || !scanner.StartScan(false)) return false;
  bool right = true;
  for (std::uint32_t j = 0; j < request.dwImageLength; ++j) {
    right = scanner.ReadLine(line.data()) == 0 && right;
    if (expected == nullptr) continue;
    right = right && std::memcmp(line.data(), expected + j * line.size(), line.size()) == 0;
  }
  scanner.EndScan();
  return right;
}

// Times `page`, which moves a page of state.range(0) bits a pixel.
template <class MovePage>
void TimePages(benchmark::State& state, const MovePage& page) {
  for (auto _ : state) page();
  const auto bits = static_cast<unsigned>(state.range(0));
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(Page(bits).size()));
  state.counters["lines"] =
      benchmark::Counter(kLength, benchmark::Counter::kIsIterationInvariantRate);
}

void BM_PageThroughThePipeline(benchmark::State& state) {
  const auto bits = static_cast<unsigned>(state.range(0));
  const tagTWSCANPARAM request = Request(bits, 600);
  MemoryScanner scanner(Page(bits));
  if (!ScanPage(scanner, request, Page(bits).data())) return state.SkipWithError("wrong lines");
  TimePages(state, [&] { ScanPage(scanner, request, nullptr); });
}

// The same hand-overs without anything else. Every stage copies its line once.
class Skeleton {
 public:
  explicit Skeleton(unsigned bits)
      : bytes_(LineBytes(bits)), page_(Page(bits)), raw_(page_.size()), scaled_(page_.size()) {}

  bool Run(std::vector<unsigned char>& client) {
    semid_ = vox::create_line_semaphores();
    std::thread reader([this] { Copy(page_, raw_, -1, vox::kSemRawLine); });
    std::thread horizontal([this] { Copy(raw_, scaled_, vox::kSemRawLine, vox::kSemScaledLine); });
    std::thread vertical([this] {
      for (unsigned i = 0; i < kLength; ++i) {
        vox::wait_semaphore(semid_, vox::kSemScaledLine);
        vox::post_semaphore(semid_, vox::kSemClientLine);
      }
    });
    for (unsigned i = 0; i < kLength; ++i) {
      vox::wait_semaphore(semid_, vox::kSemClientLine);
      std::memcpy(client.data(), &scaled_[i * bytes_], bytes_);
    }
    reader.join();
    horizontal.join();
    vertical.join();
    vox::remove_semaphores(semid_);
    return std::memcmp(client.data(), &page_[(kLength - 1) * bytes_], bytes_) == 0;
  }
  std::size_t LineSize() const { return bytes_; }

 private:
  void Copy(const std::vector<unsigned char>& from, std::vector<unsigned char>& to, int wait,
            int post) const {
    for (unsigned i = 0; i < kLength; ++i) {
      if (wait >= 0) vox::wait_semaphore(semid_, wait);
      std::memcpy(&to[i * bytes_], &from[i * bytes_], bytes_);
      vox::post_semaphore(semid_, post);
    }
  }

  std::size_t bytes_;
  const std::vector<unsigned char>& page_;
  std::vector<unsigned char> raw_;
  std::vector<unsigned char> scaled_;
  int semid_ = vox::kNoSemaphores;
};

void BM_PageThroughABareSkeleton(benchmark::State& state) {
  const auto bits = static_cast<unsigned>(state.range(0));
  Skeleton skeleton(bits);
  std::vector<unsigned char> line(skeleton.LineSize());
  if (!skeleton.Run(line)) return state.SkipWithError("wrong lines");
  TimePages(state, [&] { skeleton.Run(line); });
}

void Threads(benchmark::State& state) {
  const auto bits = static_cast<unsigned>(state.range(0));
  const tagTWSCANPARAM request = Request(bits, 600);
  for (auto _ : state) {
    Skeleton skeleton(bits);
    std::vector<unsigned char> line(skeleton.LineSize());
    MemoryScanner scanner(Page(bits));
    if (!skeleton.Run(line) || !ScanPage(scanner, request, Page(bits).data())) {
      return state.SkipWithError("wrong lines");
    }
    const auto [bare, pipeline] = vox::bench::TakeTurns(
        [&] { skeleton.Run(line); }, [&] { ScanPage(scanner, request, nullptr); });
    state.SetIterationTime(vox::bench::Median(pipeline));
    state.counters["skeleton_ms"] = vox::bench::Median(bare) * 1e3;
    const double ratio = vox::bench::MedianRatio(pipeline, bare);
    if (bits == 1)
      vox::bench::ReportRow(state, ratio, 1.3);
    else
      state.counters["ratio"] = ratio;
  }
}
BENCHMARK(Threads)->Arg(1)->Arg(8)->Arg(24)->Apply(vox::bench::AsRow);

void EveryDepth(benchmark::internal::Benchmark* bench) {
  bench->ArgName("bits")->Arg(1)->Arg(8)->Arg(24);
  bench->Unit(benchmark::kMillisecond)->UseRealTime();
}
BENCHMARK(BM_PageThroughABareSkeleton)->Apply(EveryDepth);
BENCHMARK(BM_PageThroughThePipeline)->Apply(EveryDepth);

}  // namespace

BENCHMARK_MAIN();
