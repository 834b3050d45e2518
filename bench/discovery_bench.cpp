// Sixty devices, each a machine of its own on one switch: how long a search takes, and how much of
// that after the last device has answered for the first time; how long it takes to see which of
// them are on line, and how soon that ends when it is cancelled. Needs the right to make network
// namespaces. There is no peer: the bounds are what is promised.
#include <algorithm>
#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>

#include <benchmark/benchmark.h>

#include "tests/e2e/discovery/Neighbourhood.h"
#include "tests/unit/core/Scratch.h"
#include "vox/DevicesManager.h"
#include "vox/drivers/net/search.h"

namespace vox {
namespace {

using Clock = std::chrono::steady_clock;
constexpr int kDevices = 60;
constexpr int kRepetitions = 3;  // each takes seconds

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
    state.SetIterationTime(Seconds(Clock::now() - (cancel ? delegate.at : begun)));
  }
  for (int i = 2; back != nullptr && i <= kDevices; i += 2) (around.*back)(IdOf(i));
}

void Register(const char* name, const std::function<void(benchmark::State&)>& run) {
  benchmark::RegisterBenchmark(name, run)
      ->UseManualTime()
      ->Iterations(1)
      ->Repetitions(kRepetitions)
      ->Unit(benchmark::kMillisecond);
}

}  // namespace
}  // namespace vox

int main(int argc, char** argv) {
  using vox::test::Neighbourhood;
  benchmark::Initialize(&argc, argv);
  vox::Register("discover/60", [](auto& state) { vox::Discover(state, true); });
  vox::Register("discover/60/after_last_answer", [](auto& state) { vox::Discover(state, false); });
  vox::Register("online/60", [](auto& state) { vox::Online(state, nullptr, nullptr, false); });
  vox::Register("online/60/half_off", [](auto& state) {
    vox::Online(state, &Neighbourhood::Unplug, &Neighbourhood::Plug, false);
  });
  vox::Register("online/60/half_asleep", [](auto& state) {
    vox::Online(state, &Neighbourhood::Sleep, &Neighbourhood::Wake, false);
  });
  vox::Register("online/60/half_asleep/after_cancel", [](auto& state) {
    vox::Online(state, &Neighbourhood::Sleep, &Neighbourhood::Wake, true);
  });
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
