// Sixty devices, each a machine of its own on one switch: how long a search takes, and how much of
// that after the last device has answered for the first time; how long it takes to see which of
// them are on line, and how soon that ends when it is cancelled: within 200 ms. Needs the right to
// make network namespaces. There is no peer: the bounds are what is promised. Medians of nine
// where something is promised, of three elsewhere, since each takes seconds.
//
// program/*: the vox program itself, from its start to its end; cpu_ms is its processor time.
//   list       with 60 remembered devices; at most 50 ms of wall time
//   discover   what it takes after the last device has answered for the first time, with all 60
//              saved; at most 1500 ms
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>

#include <benchmark/benchmark.h>

#include "bench/ProgramRun.h"
#include "bench/Turns.h"
#include "tests/e2e/discovery/Neighbourhood.h"
#include "tests/unit/core/Scratch.h"
#include "vox/DevicesManager.h"
#include "vox/UserPreferences.h"
#include "vox/drivers/net/search.h"

namespace vox {
namespace {

using Clock = std::chrono::steady_clock;
constexpr int kDevices = 60;
constexpr double kListMs = 50, kDiscoverMs = 1500, kCancelMs = 200;  // that they may take

double Seconds(Clock::duration time) {
  return std::chrono::duration<double>(time).count();
}

std::string IdOf(int device) {
  return std::string("d").append(std::to_string(device));
}

// The street, with a machine root of its own. Devices are numbered from 1.
class Street {
 public:
  Street() {
    std::filesystem::create_directories(scratch_.Path("var/lib/Veltronix Vox"));
    if (!around.Error().empty()) return;
    around.Host().AdmitToPing("0 2147483647");
    for (int i = 1; i <= kDevices; ++i) around.Add(IdOf(i), {});
  }
  // The moment at which the last device was asked for the first time since `begun`.
  Clock::time_point LastFirstQuestion(Clock::time_point begun) {
    Clock::time_point last = begun;
    for (int i = 1; i <= kDevices; ++i) last = std::max(last, FirstQuestion(IdOf(i), begun));
    return last;
  }

  std::string OutputFile() const { return scratch_.Path("out"); }
  static void Forget() {
    std::filesystem::remove(UserPreferences::instance().pathToGlobalSettings());
  }
  static void Remember() {
    Dictionary records;
    for (int i = 1; i <= kDevices; ++i) {
      char id[18], ip[12];
      std::snprintf(id, sizeof id, "02:00:00:00:00:%02x", static_cast<unsigned>(i));
      std::snprintf(ip, sizeof ip, "10.77.0.%d", i + 1);
      records.Set(std::string("Device.") + id, Dictionary{{"deviceId", id},
                                                          {"type", "network"},
                                                          {"modelName", "Veltronix QD7200"},
                                                          {"ip", ip},
                                                          {"name", IdOf(i)},
                                                          {"mac", id},
                                                          {"isNetworkPushEnabled", true},
                                                          {"location", IdOf(i) + " (" + ip + ")"}});
    }
    UserPreferences::instance().setValuesForSharedKeys(records);
  }

  test::Neighbourhood around{kDevices};

 private:
  Clock::time_point FirstQuestion(const std::string& id, Clock::time_point begun) {
    for (const sim::Event& event : around.Device(id).Events().All()) {
      if (event.time >= begun && event.kind == sim::EventKind::kSnmpRequest) return event.time;
    }
    return begun;
  }
  Scratch scratch_;
  const Variable root_{"VOX_ROOT", scratch_.Path("")};
  const Variable config_{"XDG_CONFIG_HOME", scratch_.Path("")};
};

Street& TheStreet() {
  static Street street;
  return street;
}

bool Permitted(benchmark::State& state) {
  const std::string& error = TheStreet().around.Error();
  if (!error.empty()) state.SkipWithError(error.c_str());
  return error.empty();
}

void Discover(benchmark::State& state, bool whole) {
  if (!Permitted(state)) return;
  const test::Inside inside(TheStreet().around.Host());
  for (auto _ : state) {
    const auto begun = Clock::now();
    const auto found = searchNetworkDevices(nullptr, nullptr);
    const auto end = Clock::now();
    if (found.size() != kDevices) return state.SkipWithError("not all are found");
    state.SetIterationTime(Seconds(end - (whole ? begun : TheStreet().LastFirstQuestion(begun))));
    DevicesManager::instance().appendDevices(found);
  }
}

class CancelledAt final : public CancelDelegate {
 public:
  explicit CancelledAt(Clock::time_point time) : at(time) {}
  bool isCancelled() override { return Clock::now() >= at; }
  const Clock::time_point at;
};

// The even devices are made what `change` makes them for as long as it is measured.
void Online(benchmark::State& state, void (test::Neighbourhood::*change)(const std::string&),
            void (test::Neighbourhood::*back)(const std::string&), bool cancel) {
  if (!Permitted(state)) return;
  test::Neighbourhood& around = TheStreet().around;
  const test::Inside inside(around.Host());
  DevicesManager& manager = DevicesManager::instance();
  const auto known = manager.knownDevices();
  for (int i = 2; change != nullptr && i <= kDevices; i += 2) (around.*change)(IdOf(i));
  for (auto _ : state) {
    const auto begun = Clock::now();
    CancelledAt delegate(begun + (cancel ? std::chrono::seconds(2) : std::chrono::hours(1)));
    const auto online = manager.filterOnlineDevicesCancelDelegate(known, &delegate);
    if (!cancel && online.size() < kDevices / 2) state.SkipWithError("not all are on line");
    const double seconds = Seconds(Clock::now() - (cancel ? delegate.at : begun));
    state.SetIterationTime(seconds);
    if (cancel) bench::ReportRow(state, 1000 * seconds, kCancelMs);
  }
  for (int i = 2; back != nullptr && i <= kDevices; i += 2) (around.*back)(IdOf(i));
}

void Report(benchmark::State& state, double seconds, double most_ms, const bench::ProgramRun& run) {
  state.SetIterationTime(seconds);
  state.counters["cpu_ms"] = 1000 * run.cpu_seconds;
  bench::ReportRow(state, 1000 * seconds, most_ms);
}

void ListProgram(benchmark::State& state) {
  Street::Forget();
  Street::Remember();
  for (auto _ : state) {
    const bench::ProgramRun run = bench::RunVox("list", TheStreet().OutputFile());
    if (run.status != 0 || run.lines != kDevices)
      return state.SkipWithError("vox list does not list all");
    Report(state, run.seconds, kListMs, run);
  }
}

void DiscoverProgram(benchmark::State& state) {
  if (!Permitted(state)) return;
  const test::Inside inside(TheStreet().around.Host());
  for (auto _ : state) {
    Street::Forget();
    const auto begun = Clock::now();
    const bench::ProgramRun run = bench::RunVox("discover", TheStreet().OutputFile());
    if (run.status != 0 || run.lines != kDevices + 1)
      return state.SkipWithError("vox discover does not find all");
    if (UserPreferences::instance().allSharedKeys().size() != kDevices)
      return state.SkipWithError("vox discover does not save all");
    Report(state, Seconds(run.end - TheStreet().LastFirstQuestion(begun)), kDiscoverMs, run);
  }
}

void Register(const char* name, const std::function<void(benchmark::State&)>& run,
              int repetitions) {
  auto* const row = benchmark::RegisterBenchmark(name, run);
  bench::AsRow(row);
  row->Repetitions(repetitions);
}

}  // namespace
}  // namespace vox

int main(int argc, char** argv) {
  using vox::test::Neighbourhood;
  benchmark::Initialize(&argc, argv);
  const int nine = vox::bench::Turns(), three = std::min(nine, 3);
  vox::Register(
      "discover/60", [](auto& state) { vox::Discover(state, true); }, three);
  vox::Register(
      "discover/60/after_last_answer", [](auto& state) { vox::Discover(state, false); }, three);
  vox::Register(
      "online/60", [](auto& state) { vox::Online(state, nullptr, nullptr, false); }, three);
  vox::Register(
      "online/60/half_off",
      [](auto& state) { vox::Online(state, &Neighbourhood::Unplug, &Neighbourhood::Plug, false); },
      three);
  vox::Register(
      "online/60/half_asleep",
      [](auto& state) { vox::Online(state, &Neighbourhood::Sleep, &Neighbourhood::Wake, false); },
      three);
  vox::Register(
      "online/60/half_asleep/after_cancel",
      [](auto& state) { vox::Online(state, &Neighbourhood::Sleep, &Neighbourhood::Wake, true); },
      nine);
  vox::TheStreet();
  vox::Register("program/list/60", &vox::ListProgram, nine);
  vox::Register("program/discover/60/after_last_answer", &vox::DiscoverProgram, nine);
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
