// JBIG decode and encode beside libjbig in the same run, on A4 pages of 300 dpi that are drawn
// here: text, a halftone, a blank page. Both codecs' results are compared before the time counts.
//
// Names: operation/page/template lines[/tp]/who. Bytes are those of the bitmap; items are lines.
#include <algorithm>
#include <cmath>
#include <functional>
#include <map>
#include <random>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "tests/interop/jbig/LibjbigPeer.h"
#include "tests/support/JbigDriver.h"

namespace vox::test {
namespace {

constexpr unsigned kWidth = 2480;
constexpr unsigned kHeight = 3508;

// ---- the pages

// Glyph number n of a made-up script: three strokes of a pen in a box of 28 x 44 pixels, whose
// edges are as ragged as a scanner leaves them.
void DrawGlyph(Picture& page, unsigned left, unsigned top, unsigned n, std::mt19937& noise) {
  std::mt19937 shape(n);
  for (int stroke = 0; stroke < 3; ++stroke) {
    const double x0 = shape() % 28, y0 = shape() % 44, x1 = shape() % 28, y1 = shape() % 44;
    const double bend = static_cast<double>(shape() % 20) - 10;
    for (int step = 0; step <= 60; ++step) {
      const double t = step / 60.0;
      const double cx = x0 + (x1 - x0) * t + bend * std::sin(3.14159 * t);
      const double cy = y0 + (y1 - y0) * t;
      const double radius = 2.3 + (noise() % 100) * 0.005;
      for (int dy = -3; dy <= 3; ++dy)
        for (int dx = -3; dx <= 3; ++dx)
          if (dx * dx + dy * dy <= radius * radius)
            page.Set(left + static_cast<unsigned>(std::max(0.0, cx + dx)),
                     top + static_cast<unsigned>(std::max(0.0, cy + dy)));
    }
  }
}

Picture TextPage() {
  Picture page(kWidth, kHeight);
  std::mt19937 noise(1);
  for (unsigned top = 260; top + 330 < kHeight; top += 62)
    for (unsigned left = 250; left + 300 < kWidth; left += 32)
      if (noise() % 6 != 0) DrawGlyph(page, left, top, noise() % 50, noise);
  for (int speck = 0; speck < 300; ++speck) page.Set(noise() % kWidth, noise() % kHeight);
  return page;
}

// Dots on a screen of 45 degrees, 8.5 pixels apart, as large as a soft picture is dark.
Picture HalftonePage() {
  Picture page(kWidth, kHeight);
  std::mt19937 noise(2);
  for (unsigned y = 150; y + 150 < kHeight; ++y)
    for (unsigned x = 150; x + 150 < kWidth; ++x) {
      const double grey = 0.5 + 0.3 * std::sin(x * 0.004) * std::cos(y * 0.003) +
                          0.15 * std::sin(x * 0.021 + y * 0.017);
      const double screen =
          0.5 + 0.25 * (std::cos((x + y) * 0.5227) + std::cos((x + 8.0 * kWidth - y) * 0.5227));
      if (screen + (noise() % 100) * 0.0008 < grey) page.Set(x, y);
    }
  return page;
}

const Picture& Page(const std::string& name) {
  static const std::map<std::string, Picture> pages = {
      {"text", TextPage()}, {"halftone", HalftonePage()}, {"blank", Picture(kWidth, kHeight)}};
  return pages.at(name);
}

// ---- the measurements

struct Job {
  std::string page;
  int lines;
  bool tp;

  JbigShape Shape() const { return {kWidth, kHeight, kHeight, lines, tp}; }
};

// Does the job once into `out`, which keeps its memory from one time to the next.
using Work = std::function<void(const Job&, const Bytes& bie, Bytes& out)>;

void VoxDecode(const Job& job, const Bytes& bie, Bytes& out) {
  const JbigShape shape = job.Shape();
  CodecBlock block(shape);
  out.resize(std::size_t{shape.LineBytes()} * kHeight);
  CODECCSTR& codec = block.codec;
  codec.lpCBuff = const_cast<BYTE*>(bie.data() + kBihSize);
  codec.szCBuff = static_cast<DWORD>(bie.size() - kBihSize);
  codec.lpIBuff = out.data();
  codec.HeightIBuff = kHeight;
  if (DECOMPRESS(&codec) != CODEC_DONE) out.clear();
}

void VoxEncode(const Job& job, const Bytes& bie, Bytes& out) {
  CodecBlock block(job.Shape());
  out.resize(bie.size());
  CODECCSTR& codec = block.codec;
  codec.lpCBuff = out.data();
  codec.szCBuff = static_cast<DWORD>(out.size());
  codec.lpIBuff = const_cast<BYTE*>(Page(job.page).bits.data());
  codec.HeightIBuff = kHeight;
  if (COMPRESS(&codec) != CODEC_DONE) out.clear();
}

void LibjbigDecode(const Job&, const Bytes& bie, Bytes& out) {
  out.clear();
  PeerDecode(bie, out);
}

void LibjbigEncode(const Job& job, const Bytes&, Bytes& out) {
  out.clear();
  PeerEncode(Page(job.page), job.Shape(), {}, out);
}

void Measure(benchmark::State& state, const Job& job, const Work& work, bool decodes) {
  const Bytes bie = PeerEncode(Page(job.page), job.Shape());
  Bytes out;
  work(job, bie, out);
  if (out != (decodes ? Page(job.page).bits : bie)) {
    state.SkipWithError("the result is wrong");
    return;
  }
  for (auto _ : state) {
    work(job, bie, out);
    benchmark::DoNotOptimize(out.data());
  }
  state.SetBytesProcessed(state.iterations() *
                          static_cast<std::int64_t>(Page(job.page).bits.size()));
  state.SetItemsProcessed(state.iterations() * std::int64_t{kHeight});
}

void Register(const std::string& operation, const Job& job, const std::string& who,
              const Work& work) {
  const std::string name =
      operation + "/" + job.page + "/" + std::to_string(job.lines) + (job.tp ? "/tp/" : "/") + who;
  benchmark::RegisterBenchmark(name.c_str(), [=](benchmark::State& state) {
    Measure(state, job, work, operation == "decode");
  })->Unit(benchmark::kMillisecond);
}

void RegisterAll() {
  for (const char* page : {"text", "halftone", "blank"})
    for (const int lines : {2, 3})
      for (const bool tp : {false, true}) {
        const Job job{page, lines, tp};
        Register("decode", job, "libjbig", LibjbigDecode);
        Register("decode", job, "vox", VoxDecode);
        Register("encode", job, "libjbig", LibjbigEncode);
        Register("encode", job, "vox", VoxEncode);
      }
}

}  // namespace
}  // namespace vox::test

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  vox::test::RegisterAll();
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
