// The SANE backend in scanimage, a program of others, beside scanimage without a backend and beside
// vox; with a virtual device in a network of this program's own. Needs the right to make one.
//
// list/remembered  scanimage -L with a device that is remembered, beyond what the same command
//                  takes with an empty list of backends: at most 50 ms; a turn has one of each
// list/unknown     scanimage -L with a device that nobody remembers: at most 2200 ms
// page/*           a page of letter paper through scanimage into a PNM file, against vox scan of
//                  the same page into one: at most 1.1 times
// cancel           from sane_cancel until the same handle has started its next page, which the
//                  device does only when it is idle; at ten moments of a page: the worst of them
//                  takes at most 1000 ms. Medians over the turns.
#include <array>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <benchmark/benchmark.h>
#include <sched.h>
#include <unistd.h>

#include "bench/Gradient.h"
#include "bench/ProgramRun.h"
#include "bench/Turns.h"
#include "sim/VirtualDevice.h"
#include "tests/e2e/sane/SaneModule.h"
#include "tests/support/FreshLoopback.h"
#include "tests/unit/core/Scratch.h"

namespace vox {
namespace {

using Clock = std::chrono::steady_clock;
using bench::ProgramRun;
using cli::test::SaneScanner;

constexpr double kListMs = 50, kSearchMs = 2200, kPageTimes = 1.1, kCancelMs = 1000;
constexpr char kDevice[] = "net:127.0.0.2";
constexpr int kMoments = 10;

// The network, the device in it, and two configurations: of the backend alone, and of none.
class Place {
 public:
  Place() {
    if (!test::Unshare(CLONE_NEWNET) || !test::RaiseLoopback() || !test::RouteBroadcasts()) {
      error_ = "this machine does not permit a network of its own";
      return;
    }
    std::filesystem::create_directories(scratch_.Path("var/lib/Veltronix Vox"));
    std::filesystem::create_directories(scratch_.Path("var/tmp"));
    for (const std::string folder : {"backend", "none"}) {
      std::filesystem::create_directories(scratch_.Path(folder + "/dll.d"));
      std::ofstream(scratch_.Path(folder + "/dll.conf")).flush();
    }
    std::ofstream(scratch_.Path("backend/dll.d/vox")) << "vox\n";
    std::ofstream(scratch_.Path("backend/vox.conf")) << "discovery on\n";
    sim::DeviceOptions options;
    options.address = "127.0.0.2";
    options.snmp_port = 161;
    options.command_port = 3892;
    options.hears_broadcasts = true;
    options.glass = std::make_shared<bench::Gradient>(sim::PageSize{85000, 117000});
    device_ = std::make_unique<sim::VirtualDevice>(std::move(options));
    if (!device_->Start()) error_ = device_->Error();
  }

  bool IsReady(benchmark::State& state) const {
    if (!error_.empty()) state.SkipWithError(error_.c_str());
    return error_.empty();
  }
  sim::VirtualDevice& Device() { return *device_; }
  std::string File(const std::string& leaf) const { return scratch_.Path(leaf); }

  ProgramRun Vox(std::vector<std::string> words) const {
    words.insert(words.begin(), VOX_PROGRAM);
    return bench::RunProgram(words, File("out"));
  }
  ProgramRun Scanimage(std::vector<std::string> words,
                       const std::string& folder = "backend") const {
    const Variable conf("SANE_CONFIG_DIR", File(folder));
    const Variable modules("LD_LIBRARY_PATH", SANE_VOX_FOLDER);
    words.insert(words.begin(), "scanimage");
    return bench::RunProgram(words, File("out"));
  }
  void Forget() const {
    std::filesystem::remove(File("var/lib/Veltronix Vox/com.veltronix.vox.plist"));
  }
  bool Remember() const { return Vox({"add", kDevice}).status == 0; }

 private:
  Scratch scratch_;
  const Variable root_{"VOX_ROOT", scratch_.Path("")};
  const Variable config_{"XDG_CONFIG_HOME", scratch_.Path("")};
  std::string error_;
  std::unique_ptr<sim::VirtualDevice> device_;
};

Place& ThePlace() {
  static Place place;
  return place;
}

double Milliseconds(Clock::duration time) {
  return std::chrono::duration<double, std::milli>(time).count();
}

void ListRemembered(benchmark::State& state) {
  Place& place = ThePlace();
  if (!place.IsReady(state)) return;
  place.Forget();
  if (!place.Remember()) return state.SkipWithError("vox add does not add the device");
  for (auto _ : state) {
    std::vector<double> beyond;
    for (int turn = 0; turn < bench::Turns(); ++turn) {
      const ProgramRun ours = place.Scanimage({"--formatted-device-list=%d%n"});
      const ProgramRun none = place.Scanimage({"--formatted-device-list=%d%n"}, "none");
      if (ours.status != 0 || ours.lines != 1 || none.status != 0 || none.lines != 0)
        return state.SkipWithError("scanimage does not list the one device");
      beyond.push_back(1000 * (ours.seconds - none.seconds));
    }
    const double reached = bench::Median(beyond);
    state.SetIterationTime(reached / 1000);
    bench::ReportRow(state, reached, kListMs);
  }
}

void ListUnknown(benchmark::State& state) {
  Place& place = ThePlace();
  if (!place.IsReady(state)) return;
  for (auto _ : state) {
    std::vector<double> took;
    for (int turn = 0; turn < bench::Turns(); ++turn) {
      place.Forget();
      const ProgramRun run = place.Scanimage({"--formatted-device-list=%d%n"});
      if (run.status != 0 || run.lines != 1)
        return state.SkipWithError("scanimage does not find the device");
      took.push_back(1000 * run.seconds);
    }
    const double reached = bench::Median(took);
    state.SetIterationTime(reached / 1000);
    bench::ReportRow(state, reached, kSearchMs);
  }
}

struct PageKind {
  const char *sane, *vox;  // the mode
  const char* dpi;
};

void Page(benchmark::State& state, const PageKind& kind) {
  Place& place = ThePlace();
  if (!place.IsReady(state)) return;
  const std::string dpi = bench::IsQuick() ? "75" : kind.dpi;
  const std::string ours = place.File("sane.pnm"), theirs = place.File("vox.pnm");
  bool done = true;
  std::vector<double> sane_cpu, vox_cpu;
  const auto note = [&done](const ProgramRun& run, std::vector<double>& cpu) {
    done = done && run.status == 0;
    cpu.push_back(1000 * run.cpu_seconds);
  };
  for (auto _ : state) {
    const auto [sane, vox] = bench::TakeTurns(
        [&] {
          note(place.Scanimage({"-d", std::string("vox:") + kDevice, "--mode", kind.sane,
                                "--resolution", dpi, "--format=pnm", "-o", ours}),
               sane_cpu);
        },
        [&] {
          note(place.Vox({"scan", kDevice, "--mode", kind.vox, "--resolution", dpi, "-o", theirs}),
               vox_cpu);
        });
    if (!done || std::filesystem::file_size(ours) < std::filesystem::file_size(theirs))
      return state.SkipWithError("a page does not come");
    state.SetIterationTime(bench::Median(sane));
    state.counters["vox_ms"] = 1000 * bench::Median(vox);
    state.counters["cpu_ms"] = bench::Median(sane_cpu);
    state.counters["vox_cpu_ms"] = bench::Median(vox_cpu);
    bench::ReportRow(state, bench::MedianRatio(sane, vox), kPageTimes);
  }
}

// A page of about half a second, of which the device sends 64 KiB at a time.
void SetUpSlowPage(SaneScanner& scanner) {
  sim::Faults slow;
  slow.delays.data = std::chrono::milliseconds(25);
  ThePlace().Device().SetFaults(slow);
  scanner.Set("mode", "Gray");
  scanner.Set("resolution", 100);
}

// Milliseconds from a cancel that comes `when` after the start until the next page has begun, which
// is cancelled too; a negative number when that fails.
double CancelAt(SaneScanner& scanner, Clock::duration when) {
  Clock::time_point cancelled;
  std::thread other([&, at = Clock::now() + when] {
    std::this_thread::sleep_until(at);
    cancelled = Clock::now();
    scanner.Cancel();
  });
  SANE_Status status = scanner.Start();
  std::vector<SANE_Byte> bytes;
  while (status == SANE_STATUS_GOOD) status = scanner.Read(bytes);
  other.join();
  if (status == SANE_STATUS_EOF) cancelled = Clock::now();  // the page was over before
  if (scanner.Start() != SANE_STATUS_GOOD) return -1;
  const double took = Milliseconds(Clock::now() - cancelled);
  scanner.Cancel();
  while (scanner.Read(bytes) == SANE_STATUS_GOOD) {
  }
  return took;
}

void CancelMoments(benchmark::State& state, SaneScanner& scanner) {
  SetUpSlowPage(scanner);
  const auto begun = Clock::now();
  const bool good = scanner.Page().ended == SANE_STATUS_EOF;
  const auto whole = Clock::now() - begun;
  if (!good) return state.SkipWithError("the page does not come");
  std::array<std::vector<double>, kMoments> took;
  for (int turn = 0; turn < bench::Turns(); ++turn) {
    for (int moment = 0; moment < kMoments; ++moment) {
      took[static_cast<std::size_t>(moment)].push_back(
          CancelAt(scanner, whole * moment / kMoments));
      if (took[static_cast<std::size_t>(moment)].back() < 0)
        return state.SkipWithError("no page begins after a cancel");
    }
  }
  double worst = 0;
  std::string where;
  for (std::size_t moment = 0; moment < kMoments; ++moment) {
    const double reached = bench::Median(took[moment]);
    if (reached < worst) continue;
    worst = reached;
    where = "after " + std::to_string(10 * moment) + " %";
  }
  state.SetIterationTime(worst / 1000);
  state.counters["page_ms"] = Milliseconds(whole);
  bench::ReportRow(state, worst, kCancelMs, bench::Promise::kAtMost, where);
}

void Cancel(benchmark::State& state) {
  Place& place = ThePlace();
  if (!place.IsReady(state)) return;
  const Variable conf("SANE_CONFIG_DIR", place.File("backend"));
  for (auto _ : state) {
    const cli::test::SaneModule module;
    const cli::test::SaneSession session(module);
    SaneScanner scanner(module, kDevice);
    CancelMoments(state, scanner);
  }
  place.Device().SetFaults({});
}

void RegisterJudged(const std::string& name, const std::function<void(benchmark::State&)>& row) {
  bench::RegisterRow(name, [row](benchmark::State& state) {
    static const bool there = std::system("command -v scanimage >/dev/null") == 0;
    if (!there) return state.SkipWithError("scanimage (Debian: sane-utils) is not installed");
    row(state);
  });
}

void Register() {
  RegisterJudged("list/remembered", &ListRemembered);
  RegisterJudged("list/unknown", &ListUnknown);
  RegisterJudged("page/lineart", [](auto& state) { Page(state, {"Lineart", "lineart", "600"}); });
  RegisterJudged("page/gray", [](auto& state) { Page(state, {"Gray", "gray", "300"}); });
  RegisterJudged("page/colour", [](auto& state) { Page(state, {"Color", "color", "300"}); });
  bench::RegisterRow("cancel", &Cancel);
}

}  // namespace
}  // namespace vox

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  vox::ThePlace();  // before there is a second thread
  vox::Register();
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
