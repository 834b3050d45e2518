// What a scanning program takes of its machine, measured in a process of its own and told to the
// program that started it, so that the device's part does not count.
//
// Thread rule: one thread.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "vox/drivers/ScanRecords.h"

namespace vox::bench {

struct Usage {
  bool done = false;     // the scan went as it should
  double lines = 0;      // client lines read
  double bytes = 0;      // of them, where they are counted
  double peak_mib = 0;   // greatest resident memory so far (VmHWM)
  double cpu_share = 0;  // of one core, while it ran or waited
  double seconds = 0;    // that took
};

// UsageWatch measures from its making on.
class UsageWatch {
 public:
  UsageWatch();
  void Fill(Usage& usage) const;

 private:
  const std::chrono::steady_clock::time_point start_;
  const double cpu_;
};

// OwnProgram is the path of this program. RunForUsage runs a shell's command line and gives what it
// printed with PrintUsage; not done when it failed.
std::string OwnProgram();
Usage RunForUsage(const std::string& command);
void PrintUsage(const Usage& usage);

// ReadSlowly scans a page with a test::ScanClient, and takes a line every `pause_us` once the
// device had some time to run ahead.
template <class Client>
Usage ReadSlowly(Client& client, const tagTWSCANPARAM& request, unsigned pause_us,
                 std::chrono::seconds ahead = std::chrono::seconds(1)) {
  Usage usage;
  const UsageWatch watch;
  if (!client.Start(request)) return usage;
  std::this_thread::sleep_for(ahead);
  std::vector<std::uint8_t> line(request.dwLineSize);
  auto next = std::chrono::steady_clock::now();
  for (std::uint32_t i = 0; i < request.dwImageLength; ++i) {
    std::this_thread::sleep_until(next += std::chrono::microseconds(pause_us));
    if (client.Interface().ReadLine(line.data()) != 0) break;
    usage.lines += 1;
  }
  client.Interface().EndScan();
  usage.done = usage.lines == request.dwImageLength && client.Interface().GetIfErrorStatus() == 0;
  watch.Fill(usage);
  return usage;
}

}  // namespace vox::bench
