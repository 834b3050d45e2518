// SlowClient/N: a page of A3 at N dpi in colour, at 1200 dpi 835 MB, from a virtual scanner on an
// emulated bus, to a client that takes nothing for ten seconds, in which the bus carries
// more than the bound, and then a line now and then. The peak is of the scanning
// process: at most 160 MiB of resident memory.
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
#include "bench/Turns.h"
#include "tests/e2e/Ask.h"
#include "tests/e2e/ScanClient.h"
#include "tests/unit/core/Scratch.h"
#include "vox/drivers/usb/TwImgIFUsb.h"

namespace vox::bench {
namespace {

constexpr char kMark[] = "--as-usb-scan-process";
constexpr char kSerial[] = "SLOW1";
constexpr unsigned kPauseUs = 500;
constexpr double kMostMib = 160;

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
    state.counters["lines"] = usage.lines;
    ReportRow(state, usage.peak_mib, kMostMib);
  }
}
BENCHMARK(SlowClient)->Arg(150)->Arg(1200)->Apply(AsRow);

}  // namespace

int RunUsbScanProcess(int argc, char** argv) {
  if (argc != 4 || std::strcmp(argv[1], kMark) != 0) return -1;
  const auto dpi = static_cast<float>(std::atof(argv[2]));
  test::ScanClient client(std::make_unique<CTwImgIFUsb>("Veltronix QD7200", kSerial));
  const auto request = test::Ask::Colour().Dpi(dpi).Frame(0, 0, 11.69F, IsQuick() ? 1 : 16.54F);
  const std::chrono::seconds ahead(IsQuick() ? 0 : 10);
  PrintUsage(ReadSlowly(client, request, static_cast<unsigned>(std::atoi(argv[3])), ahead));
  return 0;
}

}  // namespace vox::bench
