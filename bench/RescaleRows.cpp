// The promises of the rescaling kernels, a row each: lines of A4 width through both stages beside
// the plain formulas and beside libswscale's area and bilinear scaling, which do the like, and bits
// made of grey lines. A row shows how many times as fast as its peer we are, and what is promised.
//
// Half of a page's lines stand for the page; every line costs the same. Our time includes the
// page's tables, the peer's does not. Bytes are compared with the plain ones first.
#include <algorithm>
#include <cstdint>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <benchmark/benchmark.h>

extern "C" {
#include <libswscale/swscale.h>
}

#include "bench/Beside.h"
#include "tests/support/PlainKernels.h"
#include "vox/drivers/LineKernels.h"
#include "vox/drivers/LineStages.h"

namespace vox::bench {
namespace {

using test::Line;

struct Shape {
  const char* name;
  unsigned from, to;  // dpi
  unsigned ps;        // bytes of a pixel
};
constexpr Shape kColourDown{"600to300colour", 600, 300, 3};
constexpr Shape kGreyDown{"600to400grey", 600, 400, 1};
constexpr Shape kGreyUp{"300to600grey", 300, 600, 1};

std::uint32_t Width(unsigned dpi) {
  return 827 * dpi / 100;  // 8.27 inch
}
std::uint32_t HalfLength(unsigned dpi) {
  return (IsQuick() ? 100 : 1169) * dpi / 200;  // of 11.69 inch
}

class Page {
 public:
  explicit Page(const Shape& shape)
      : from_(Width(shape.from)),
        to_(Width(shape.to)),
        lines_(HalfLength(shape.from)),
        length_(HalfLength(shape.to)),
        ps_(shape.ps),
        page_(std::size_t{from_} * ps_ * lines_ + kSpare),
        out_(std::size_t{to_} * ps_ * length_ + kSpare) {
    std::mt19937 random(1);
    for (auto& byte : page_) byte = static_cast<std::uint8_t>(random());
    info_.DataType = ps_ == 3 ? 3 : 2;
    info_.Xresolution = info_.Yresolution = shape.from;
    info_.Window.xExtent = from_;
    info_.Window.yExtent = lines_;
    request_.fXResolution = request_.fYResolution = static_cast<float>(shape.to);
    request_.dwImageWidth = to_;
    request_.dwImageLength = length_;
    request_.wBitsPerPixel = static_cast<std::uint16_t>(ps_ * 8);
    request_.fRight = static_cast<float>(from_) / static_cast<float>(shape.from);
    request_.dwLineSize = to_ * ps_;
  }

  void Ours() {
    HorizontalStage horizontal(request_, info_);
    VerticalStage vertical(request_, info_);
    const LINE_SIZES sizes = line_sizes(request_, info_);
    std::vector<Line> ring(3, Line(sizes.device_room));
    Line client(sizes.client_room);
    std::uint32_t made = 0;
    for (std::uint32_t j = 0; j < length_; ++j) {
      const LINE_SPAN span = vertical.span(j);
      vertical.begin(j, client.data());
      for (std::uint32_t n = span.lower; n <= span.upper; ++n) {
        if (n >= made) horizontal.run(ring[n % 3].data(), Raw(n));
        made = std::max(made, n + 1);
        vertical.add(ring[n % 3].data());
      }
      vertical.finish();
      std::copy_n(client.begin(), to_ * ps_, out_.begin() + std::size_t{j} * to_ * ps_);
    }
  }

  void Plain() {
    std::vector<Line> lines;
    for (std::uint32_t n = 0; n < lines_; ++n) {
      const Line raw(Raw(n), Raw(n) + std::size_t{from_} * ps_);
      lines.push_back(to_ > from_ ? test::PlainExpandWidth(raw, to_, from_, ps_)
                                  : test::PlainReduceWidth(raw, to_, from_, ps_));
    }
    for (std::uint32_t j = 0; j < length_; ++j) {
      const Line line =
          to_ > from_ ? PlainBetween(lines, j) : test::PlainShrunkLine(lines, j, length_);
      std::copy(line.begin(), line.end(), out_.begin() + std::size_t{j} * to_ * ps_);
    }
  }

  void Peer(SwsContext* scaler) {
    const std::uint8_t* const from[4] = {page_.data()};
    std::uint8_t* const to[4] = {out_.data()};
    const int from_size[4] = {static_cast<int>(from_ * ps_)};
    const int to_size[4] = {static_cast<int>(to_ * ps_)};
    sws_scale(scaler, from, from_size, 0, static_cast<int>(lines_), to, to_size);
  }
  std::shared_ptr<SwsContext> PeerScaler(int algorithm) const {
    const AVPixelFormat format = ps_ == 3 ? AV_PIX_FMT_RGB24 : AV_PIX_FMT_GRAY8;
    return {sws_getContext(static_cast<int>(from_), static_cast<int>(lines_), format,
                           static_cast<int>(to_), static_cast<int>(length_), format, algorithm,
                           nullptr, nullptr, nullptr),
            sws_freeContext};
  }

  bool OursIsPlain() {
    Plain();
    const Line expected = std::move(out_);
    out_.assign(expected.size(), 0);
    Ours();
    return out_ == expected;
  }

 private:
  static constexpr std::size_t kSpare = 64;  // what vector code of the peer may touch

  const unsigned char* Raw(std::uint32_t n) const {
    return page_.data() + std::size_t{n} * from_ * ps_;
  }
  Line PlainBetween(const std::vector<Line>& lines, std::uint32_t j) const {
    const std::uint32_t last = lines_ - 1;
    if (j == 0) return lines[0];
    if (j == length_ - 1) return lines[last];
    const float at =
        static_cast<float>(j) / static_cast<float>(length_ - 1) * static_cast<float>(last);
    const auto lower = static_cast<std::uint32_t>(at);
    if (lower == 0 || lower >= last) return lines[std::min(lower, last)];
    return test::PlainGradeLine(lines[lower], lines[lower + 1], at - static_cast<float>(lower));
  }

  std::uint32_t from_, to_;       // pixels
  std::uint32_t lines_, length_;  // device lines, client lines
  std::uint32_t ps_;              // bytes of a pixel
  Line page_, out_;
  tagTWSCANPARAM request_{};
  _SCANINFO info_{};
};

// Without a target nothing is promised.
void Report(benchmark::State& state, const Beside& times, std::optional<double> target) {
  state.SetIterationTime(times.ours);
  state.counters["peer_ms"] = times.peer * 1e3;
  if (target)
    ReportRow(state, times.ratio, *target, Promise::kAtLeast);
  else
    state.counters["ratio"] = times.ratio;
}

void BesidePlain(benchmark::State& state, const Shape& shape, double target) {
  Page page(shape);
  if (!page.OursIsPlain()) return state.SkipWithError("bytes differ from the plain formulas");
  for (auto _ : state) {
    Report(state, MeasureBeside([&] { page.Ours(); }, [&] { page.Plain(); }), target);
  }
}

void BesideSwscale(benchmark::State& state, const Shape& shape, int algorithm,
                   std::optional<double> target) {
  Page page(shape);
  const auto scaler = page.PeerScaler(algorithm);
  if (!scaler) return state.SkipWithError("libswscale refuses the page");
  for (auto _ : state) {
    Report(state, MeasureBeside([&] { page.Ours(); }, [&] { page.Peer(scaler.get()); }), target);
  }
}

void BitsBesidePlain(benchmark::State& state, double target) {
  constexpr unsigned kWidth = 4962, kLines = 500;
  std::mt19937 random(1);
  Line grey(kWidth);
  for (auto& byte : grey) byte = static_cast<std::uint8_t>(random());
  Line bits((kWidth + 7) / 8);
  const auto ours = [&] {
    for (unsigned n = 0; n < kLines; ++n) {
      BitReduceMonoLine(bits.data(), grey.data(), kWidth, 0);
      benchmark::DoNotOptimize(bits.data());
    }
  };
  const auto plain = [&] {
    for (unsigned n = 0; n < kLines; ++n) {
      benchmark::DoNotOptimize(test::PlainBitReduced(grey, kWidth, 0).data());
    }
  };
  ours();
  if (bits != test::PlainBitReduced(grey, kWidth, 0)) return state.SkipWithError("bits differ");
  for (auto _ : state) Report(state, MeasureBeside(ours, plain), target);
}

void Rows(const Shape& shape, double plain, double area) {
  const std::string name = std::string("rescale/") + shape.name;
  RegisterRow(name + "/plain", [=](benchmark::State& state) { BesidePlain(state, shape, plain); });
  RegisterRow(name + "/area",
              [=](benchmark::State& state) { BesideSwscale(state, shape, SWS_AREA, area); });
  RegisterRow(name + "/bilinear",
              [=](benchmark::State& state) { BesideSwscale(state, shape, SWS_BILINEAR, {}); });
}

[[maybe_unused]] const bool kRegistered = [] {
  Rows(kColourDown, 3.5, 1.5);
  Rows(kGreyDown, 5, 1);
  Rows(kGreyUp, 4, 1);
  RegisterRow("bits/plain", [](benchmark::State& state) { BitsBesidePlain(state, 8); });
  return true;
}();

}  // namespace
}  // namespace vox::bench
