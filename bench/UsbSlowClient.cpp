// SlowClient/N: a page of A3 at N dpi in colour, at 1200 dpi 835 MB, from a virtual scanner on an
// emulated bus, to a client that takes nothing for ten seconds, in which the bus carries
// more than the target, and then a line now and then. The peak is of the scanning process; the
// target is under 160 MiB of resident memory.
#include "bench/UsbSlowClient.h"

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <sstream>
#include <string>

#include <benchmark/benchmark.h>

#include "bench/ScanUsage.h"
#include "tests/e2e/Ask.h"
#include "tests/e2e/ScanClient.h"
#include "tests/unit/core/Scratch.h"
#include "vox/drivers/usb/TwImgIFUsb.h"

namespace vox::bench {
namespace {

constexpr char kMark[] = "--as-usb-scan-process";
constexpr char kSerial[] = "SLOW1";
constexpr unsigned kPauseUs = 500;
constexpr std::chrono::seconds kAhead{10};
constexpr double kTargetMib = 160;

void SlowClient(benchmark::State& state) {
  const Scratch scratch;
  const Variable root("VOX_ROOT", scratch.Path("root")), temporary("TMPDIR", scratch.Path("tmp"));
  for (const char* folder : {"root", "tmp"})
    std::filesystem::create_directories(scratch.Path(folder));
  std::ostringstream command;
  command << "'" VOXSIM_USB "' --serial " << kSerial << " --bed 11.69,16.54 --range 75,1200 -- '"
          << OwnProgram() << "' " << kMark << ' ' << state.range(0) << ' ' << kPauseUs;
  for (auto _ : state) {
    const Usage usage = RunForUsage(command.str());
    if (!usage.done) return state.SkipWithError("the page does not come");
    state.SetIterationTime(usage.seconds);
    state.counters["peak_MiB"] = usage.peak_mib;
    state.counters["lines"] = usage.lines;
    state.counters["target"] = kTargetMib;
    state.SetLabel(usage.peak_mib < kTargetMib ? "met" : "MISSED");
  }
}
BENCHMARK(SlowClient)
    ->Arg(150)
    ->Arg(1200)
    ->UseManualTime()
    ->Iterations(1)
    ->Repetitions(1)
    ->Unit(benchmark::kSecond);

}  // namespace

int RunUsbScanProcess(int argc, char** argv) {
  if (argc != 4 || std::strcmp(argv[1], kMark) != 0) return -1;
  const auto dpi = static_cast<float>(std::atof(argv[2]));
  test::ScanClient client(std::make_unique<CTwImgIFUsb>("Veltronix QD7200", kSerial));
  const auto request = test::Ask::Colour().Dpi(dpi).Frame(0, 0, 11.69F, 16.54F);
  PrintUsage(ReadSlowly(client, request, static_cast<unsigned>(std::atoi(argv[3])), kAhead));
  return 0;
}

}  // namespace vox::bench
