#include "bench/JbigRows.h"

#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <vector>

#include <benchmark/benchmark.h>

#include "bench/Beside.h"
#include "bench/JbigCorpus.h"
#include "tests/interop/jbig/LibjbigPeer.h"
#include "tests/support/JbigDriver.h"

namespace vox::bench {
namespace {

using test::Bytes;
using test::CodecBlock;
using test::JbigShape;
using test::Picture;

enum OPERATION { kDecode, kEncode };

const char* NameOf(OPERATION operation) {
  return operation == kDecode ? "decode" : "encode";
}

// ---- one page, one coding

class Job {
 public:
  Job(const Picture& picture, const JbigShape& shape)
      : picture_(picture), shape_(shape), bie_(test::PeerEncode(picture, shape)), block_(shape) {
    out_.resize(std::max(bie_.size(), picture.bits.size()));
  }

  std::uint64_t Pixels() const { return std::uint64_t{shape_.width} * shape_.height; }

  // True when our result is libjbig's.
  bool Works(OPERATION operation) {
    Ours(operation);
    const Bytes& wanted = operation == kDecode ? picture_.bits : bie_;
    return size_ == wanted.size() && std::equal(wanted.begin(), wanted.end(), out_.begin());
  }
  void Ours(OPERATION operation) {
    if (operation == kDecode)
      Decode();
    else
      Encode();
  }
  void Peer(OPERATION operation) {
    peer_.clear();
    if (operation == kDecode)
      test::PeerDecode(bie_, peer_);
    else
      test::PeerEncode(picture_, shape_, {}, peer_);
    benchmark::DoNotOptimize(peer_.data());
  }

 private:
  void Decode() {
    CODECCSTR& codec = block_.codec;
    codec.Command = CODEC_START;
    codec.lpCBuff = bie_.data() + kBihSize;
    codec.szCBuff = static_cast<DWORD>(bie_.size() - kBihSize);
    codec.lpIBuff = out_.data();
    codec.HeightIBuff = static_cast<WORD>(shape_.height);
    size_ = DECOMPRESS(&codec) == CODEC_DONE ? picture_.bits.size() : 0;
    benchmark::DoNotOptimize(out_.data());
  }
  void Encode() {
    CODECCSTR& codec = block_.codec;
    codec.Command = CODEC_START;
    codec.lpCBuff = out_.data();
    codec.szCBuff = static_cast<DWORD>(out_.size());
    codec.lpIBuff = const_cast<BYTE*>(picture_.bits.data());
    codec.HeightIBuff = static_cast<WORD>(shape_.height);
    size_ = COMPRESS(&codec) == CODEC_DONE ? codec.CodeSize : 0;
    benchmark::DoNotOptimize(out_.data());
  }

  const Picture& picture_;
  JbigShape shape_;
  Bytes bie_;
  CodecBlock block_;
  Bytes out_, peer_;
  std::size_t size_ = 0;  // of what is in out_
};

JbigShape ShapeOf(const Picture& picture, int lines, bool tp, std::uint32_t strip) {
  return {picture.width, picture.height, std::min(strip, picture.height), lines, tp};
}

// ---- rows of ratios

struct Row {
  OPERATION operation;
  const char* group;
  double target;
  bool tp = false;
  bool worst_page = false;  // the slowest page counts instead of the mean
};

struct Variant {
  bool inverted;
  int lines;
  bool striped;

  std::string Name() const {
    return std::string(inverted ? "white 1, " : "white 0, ") + (lines == 2 ? "two" : "three") +
           " lines, " + (striped ? "128-line stripes" : "one stripe");
  }
};

// Adds up what one variant reaches on the pages of a group.
class Reached {
 public:
  void Add(const Beside& beside) {
    logarithms_ += std::log(beside.ratio);
    worst_ = pages_ == 0 ? beside.ratio : std::min(worst_, beside.ratio);
    ++pages_;
    ours_ += beside.ours;
  }
  double Ratio(bool worst_page) const {
    return worst_page ? worst_ : std::exp(logarithms_ / pages_);
  }
  double Seconds() const { return ours_; }

 private:
  double logarithms_ = 0, worst_ = 0, ours_ = 0;
  int pages_ = 0;
};

Reached Measure(const Row& row, const Variant& variant) {
  Reached reached;
  for (const CorpusPage& page : PageGroup(row.group)) {
    const Picture picture = variant.inverted ? Inverted(page.picture) : page.picture;
    Job job(picture,
            ShapeOf(picture, variant.lines, row.tp, variant.striped ? 128 : picture.height));
    if (!job.Works(row.operation))
      throw std::runtime_error(page.name + ", " + variant.Name() + ": the result is wrong");
    reached.Add(MeasureBeside([&] { job.Ours(row.operation); }, [&] { job.Peer(row.operation); }));
  }
  return reached;
}

void MeasureRow(benchmark::State& state, const Row& row) {
  if (PageGroup(row.group).empty()) return state.SkipWithError("there are no such pages here");
  double lowest = 1e9, highest = 0, seconds = 0;
  std::string slowest;
  for (auto _ : state) {
    for (int i = 0; i < 8; ++i) {
      const Variant variant{(i & 1) != 0, (i & 2) ? 3 : 2, (i & 4) != 0};
      const Reached reached = Measure(row, variant);
      const double ratio = reached.Ratio(row.worst_page);
      highest = std::max(highest, ratio);
      seconds += reached.Seconds() / 8;
      if (ratio >= lowest) continue;
      lowest = ratio;
      slowest = variant.Name();
    }
    state.SetIterationTime(seconds);
  }
  state.counters["best"] = highest;
  ReportRow(state, lowest, row.target, Promise::kAtLeast, slowest);
}

// ---- rows of instructions

// What valgrind's callgrind counts in the codec's entrance; 0 when it is not installed.
double Instructions(const std::string& program, OPERATION operation, const std::string& group,
                    int lines, double& pixels) {
  const std::string entrance = operation == kDecode ? "vox::DECOMPRESS(*)" : "vox::COMPRESS(*)";
  const std::string command =
      "valgrind --tool=callgrind --callgrind-out-file=/dev/null '--toggle-collect=" + entrance +
      "' '" + program + "' --code " + NameOf(operation) + " " + group + " " +
      std::to_string(lines) + " 2>&1";
  const std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
  if (!pipe) return 0;
  double collected = 0;
  std::array<char, 512> line{};
  while (std::fgets(line.data(), line.size(), pipe.get())) {
    std::sscanf(line.data(), "==%*d== Collected : %lf", &collected);
    std::sscanf(line.data(), "pixels: %lf", &pixels);
  }
  return collected;
}

void CountRow(benchmark::State& state, const std::string& program, OPERATION operation,
              const std::string& group, int lines, double target) {
  double pixels = 0, count = 0;
  for (auto _ : state) count = Instructions(program, operation, group, lines, pixels);
  if (count <= 0 || pixels <= 0) return state.SkipWithError("valgrind is not installed");
  ReportRow(state, count / pixels, target);
}

template <typename Function>
void Register(const std::string& name, const Function& measure) {
  RegisterRow(name, [measure](benchmark::State& state) {
    try {
      measure(state);
    } catch (const std::exception& error) {
      state.SkipWithError(error.what());
    }
  });
}

constexpr Row kRows[] = {
    {kDecode, "text300", 5},         {kDecode, "text600", 8},
    {kDecode, "dense", 2.5},         {kDecode, "sparse", 24},
    {kDecode, "scans", 3.2},         {kDecode, "speckle2", 1.6},
    {kDecode, "halftone", 1.5},      {kDecode, "diffused", 1.5},
    {kDecode, "text300", 2.8, true}, {kDecode, "text600", 2.8, true},
    {kDecode, "speckle0.2", 1},      {kDecode, "blank", 1},
    {kEncode, "text300", 5},         {kEncode, "text600", 5},
    {kEncode, "dense", 2.5},         {kEncode, "scans", 1.7, false, true},
    {kEncode, "halftone", 1.3},      {kEncode, "diffused", 1.3},
    {kEncode, "sparse", 1},          {kEncode, "speckle0.2", 1},
    {kEncode, "speckle2", 1},        {kEncode, "blank", 1},
};

struct Count {
  OPERATION operation;
  int lines;
  double target;
};
constexpr Count kCounts[] = {{kDecode, 2, 6}, {kDecode, 3, 7}};

}  // namespace

void RegisterJbigRows(const std::string& program) {
  for (const Row& row : kRows)
    Register(std::string(NameOf(row.operation)) + "/" + row.group + (row.tp ? "/tp" : "") +
                 (row.worst_page ? "/worst" : ""),
             [row](benchmark::State& state) { MeasureRow(state, row); });
  for (const Count& count : kCounts)
    Register(std::string(NameOf(count.operation)) + "/text300/instructions/" +
                 std::to_string(count.lines),
             [=](benchmark::State& state) {
               CountRow(state, program, count.operation, "text300", count.lines, count.target);
             });
}

int CodeOnce(const std::string& operation, const std::string& group, int lines) {
  const Picture& picture = PageGroup(group).at(0).picture;
  Job job(picture, ShapeOf(picture, lines, false, picture.height));
  if (!job.Works(operation == NameOf(kDecode) ? kDecode : kEncode)) {
    std::cerr << "jbig_bench: the result is wrong\n";
    return 1;
  }
  std::cout << "pixels: " << job.Pixels() << "\n";
  return 0;
}

}  // namespace vox::bench
