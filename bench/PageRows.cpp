// A page over the whole road beside its parts in the same run.
//
// Road/Text: A4, 600 dpi, 1 bit, JBIG: at most 1.3 times as long as the slower of its parts, which
// are decoding the same blocks, and moving the same lines through the threads of the pipeline.
// Road/Colour: A4, 600 dpi, raw: at most twice as long as the bare copy of the same bytes.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include <benchmark/benchmark.h>

#include "bench/LoopbackCopy.h"
#include "bench/MemoryScanner.h"
#include "bench/Turns.h"
#include "sim/PageStream.h"
#include "tests/e2e/Road.h"
#include "vox/drivers/JbigBuf.h"

namespace vox::bench {
namespace {

using Bytes = std::vector<std::uint8_t>;
using test::Ask;

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

// PageOnTheRoad is a chart that the device has drawn and coded beforehand.
class PageOnTheRoad {
 public:
  // The frame is 4960 by 7014 pixels: whole bytes, so that device lines are client lines.
  explicit PageOnTheRoad(Ask depth)
      : request_(depth.Dpi(600).Frame(0, 0, 4960 / 600.0F, IsQuick() ? 1 : 11.69F)) {
    sim::UnitOptions unit;
    unit.physical_width = 82700;
    unit.physical_height = 117000;
    sim::DeviceOptions options;
    options.flatbed = unit;
    options.glass = sim::MakeTestChart({82700, 116900});
    options.cache_bytes = 256u << 20;
    sim::VirtualDevice& device = road_.Device(options);
    const sim::ScanInfo asked = road_.Request(request_);
    info_ = device.PageInfo(asked, 0);
    lines_ = device.PageLines(asked, 0);
    prepared_ = device.Prepare(asked);
    const auto stream = sim::OpenPage({options.glass, info_, {}}, options.coding);
    for (Bytes block; stream->Next(block);) blocks_.push_back(std::move(block));
    pipeline_ = std::make_unique<MemoryScanner>(lines_);
  }

  // Works checks the result of each part before any time counts.
  bool Works() {
    const auto expected = road_.Expected(request_);
    return prepared_ && StartPipeline() && TakePage(*pipeline_, request_, &expected) &&
           road_.Scanner().Start(request_) &&
           TakePage(road_.Scanner().Interface(), request_, &expected);
  }
  // Decode tells whether the blocks are good, and with `compare` whether they give the page.
  bool Decode(bool compare = false) {
    CJbigDataCtrl decoder;
    decoder.AllocImageData();
    decoder.SetJbigParam(info_.jbig_line_template, info_.jbig_typical_prediction,
                         info_.encode_header_size);
    bool good = true;
    std::size_t at = 0;
    for (Bytes& block : blocks_) {
      decoder.m_lpJbigData = block.data();
      good = decoder.Decompress() && good;
      const LPBYTE decoded = decoder.GetImageDataCtrl()->GetDataPtr();
      benchmark::DoNotOptimize(decoded);
      const std::size_t size = std::min(BlockBytes(block), lines_.size() - at);
      if (compare && good) good = std::equal(decoded, decoded + size, &lines_[at]);
      at += size;
      decoder.GetImageDataCtrl()->Remove();
    }
    decoder.m_lpJbigData = nullptr;
    return good && at == lines_.size();
  }
  bool Copy() const { return CopyOverLoopback(lines_); }
  bool MoveLines() { return StartPipeline() && TakePage(*pipeline_, request_); }
  bool Scan() {
    return road_.Scanner().Start(request_) && TakePage(road_.Scanner().Interface(), request_);
  }

 private:
  // Of the lines that a block carries; width and length lead its header, little-endian.
  static std::size_t BlockBytes(const Bytes& block) {
    return std::size_t{(block[0] | block[1] << 8U) / 8U} *
           static_cast<std::size_t>(block[2] | block[3] << 8U);
  }
  bool StartPipeline() {
    return pipeline_->PrepareScan(request_, true, false) && pipeline_->StartScan(false);
  }

  const tagTWSCANPARAM request_;
  test::Road road_;
  sim::ScanInfo info_;
  Bytes lines_;
  std::vector<Bytes> blocks_;
  bool prepared_ = false;
  std::unique_ptr<MemoryScanner> pipeline_;
};

constexpr char kWrong[] = "the page does not come out as it should";

void Text(benchmark::State& state) {
  for (auto _ : state) {
    PageOnTheRoad page(Ask::Lineart());
    bool good = page.Works() && page.Decode(true);
    const auto [decode, pipeline, road] =
        TakeTurns([&] { good = page.Decode() && good; }, [&] { good = page.MoveLines() && good; },
                  [&] { good = page.Scan() && good; });
    if (!good) return state.SkipWithError(kWrong);
    state.SetIterationTime(Median(road));
    state.counters["decode_ms"] = Median(decode) * 1e3;
    state.counters["pipeline_ms"] = Median(pipeline) * 1e3;
    ReportRow(state, MedianRatio(road, Slower(decode, pipeline)), 1.3);
  }
}
BENCHMARK(Text)->Name("Road/Text")->Apply(AsRow);

void Colour(benchmark::State& state) {
  for (auto _ : state) {
    PageOnTheRoad page(Ask::Colour());
    bool good = page.Works() && page.Copy();
    const auto [copy, pipeline, road] =
        TakeTurns([&] { good = page.Copy() && good; }, [&] { good = page.MoveLines() && good; },
                  [&] { good = page.Scan() && good; });
    if (!good) return state.SkipWithError(kWrong);
    state.SetIterationTime(Median(road));
    state.counters["copy_ms"] = Median(copy) * 1e3;
    state.counters["pipeline_ms"] = Median(pipeline) * 1e3;
    ReportRow(state, MedianRatio(road, copy), 2);
  }
}
BENCHMARK(Colour)->Name("Road/Colour")->Apply(AsRow);

}  // namespace
}  // namespace vox::bench
