// What the job server costs: pages from a device's connection to a client's through voxjobd, a
// process of its own, beside the bare copy of the same bytes.
//
// Relay/Speed: its bytes a second are at least 0.8 times the bare copy's.
// Relay/Memory: voxjobd's greatest resident memory grows by at most 1 MiB after the first page,
// over 2 GiB more.
#include <cstdint>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "bench/LoopbackCopy.h"
#include "bench/Turns.h"
#include "tests/e2e/ServerProcess.h"
#include "tests/support/TcpPeer.h"
#include "tests/unit/core/Scratch.h"
#include "tools/voxjobd/Messages.h"
#include "vox/drivers/net/bonjour.h"

namespace vox::bench {
namespace {

constexpr int kPages = 8;  // after the first one
std::size_t PageBytes() {
  return std::size_t{IsQuick() ? 8U : 256U} << 20;
}
constexpr JobKey kJob{0x7F000001, {1, 2, 3, 4, 5, 6, 7, 8}, 1};

class Relaying {
 public:
  Relaying() : page_(PageBytes()) {
    std::uint32_t state = 1;
    for (auto& byte : page_) byte = static_cast<std::uint8_t>((state = state * 69069 + 5) >> 24);
    server_ = std::make_unique<test::ServerProcess>();
  }

  bool Copy() const { return CopyOverLoopback(page_); }
  bool Relay() const {
    unsigned short port = 0;
    if (bonjour_resolve("voxjobd", kScannerServiceType, &port) != 0) return false;
    test::TcpPeer client = test::TcpPeer::Connect(port);
    if (!client.Send(BuildRegistration({kScanRegistration, kJob}))) return false;
    if (client.Receive(1) != test::Bytes{kRegistrationAccepted}) return false;
    test::TcpPeer device = test::TcpPeer::Connect(server_->DevicePort());
    if (!device.Send(BuildNotice({kJob.job_id, kJob.sequence_id, kPageNotice}))) return false;
    return client.Receive(kNoticeSize).size() == kNoticeSize && Carry(device, client, page_);
  }

  double PeakMib() const {
    std::ifstream status("/proc/" + std::to_string(server_->Process()) + "/status");
    for (std::string word; status >> word;) {
      double kib = 0;
      if (word == "VmHWM:" && status >> kib) return kib / 1024;
    }
    return 0;
  }

 private:
  Scratch scratch_;
  Variable root_{"VOX_ROOT", scratch_.Path("")};
  std::vector<std::uint8_t> page_;
  std::unique_ptr<test::ServerProcess> server_;
};

void Speed(benchmark::State& state) {
  for (auto _ : state) {
    const Relaying relaying;
    bool good = relaying.Copy() && relaying.Relay();
    const auto [copy, relay] = TakeTurns([&] { good = relaying.Copy() && good; },
                                         [&] { good = relaying.Relay() && good; });
    if (!good) return state.SkipWithError("the page does not come out as it should");
    state.SetIterationTime(Median(relay));
    state.counters["copy_ms"] = Median(copy) * 1e3;
    ReportRow(state, MedianRatio(copy, relay), 0.8, Promise::kAtLeast);
  }
}
BENCHMARK(Speed)->Name("Relay/Speed")->Apply(AsRow);

void Memory(benchmark::State& state) {
  for (auto _ : state) {
    const Relaying relaying;
    bool good = relaying.Relay();
    const double first = relaying.PeakMib();
    const Stopwatch watch;
    for (int i = 0; i < kPages; ++i) good = relaying.Relay() && good;
    if (!good || first == 0) return state.SkipWithError("the page does not come out as it should");
    state.SetIterationTime(watch.Seconds());
    state.counters["peak_MiB"] = relaying.PeakMib();
    ReportRow(state, relaying.PeakMib() - first, 1);
  }
}
BENCHMARK(Memory)->Name("Relay/Memory")->Apply(AsRow);

}  // namespace
}  // namespace vox::bench
