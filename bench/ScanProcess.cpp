#include "bench/ScanProcess.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <sys/resource.h>
#include <unistd.h>

#include "tests/e2e/Ask.h"
#include "tests/e2e/Road.h"
#include "vox/drivers/net/NetworkComm/NetworkCommEntry.h"
#include "vox/drivers/net/NetworkComm/tvr302udp.h"

namespace vox::bench {
namespace {

using Clock = std::chrono::steady_clock;
constexpr char kMark[] = "--as-scan-process";

double CpuSeconds() {
  rusage usage{};
  ::getrusage(RUSAGE_SELF, &usage);
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + 1e-6 * static_cast<double>(time.tv_usec);
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

double PeakMib() {
  std::ifstream status("/proc/self/status");
  for (std::string word; status >> word;) {
    double kib = 0;
    if (word == "VmHWM:" && status >> kib) return kib / 1024;
  }
  return 0;
}

// Watch measures from its making on.
class Watch {
 public:
  void Fill(Usage& usage) const {
    usage.seconds = std::chrono::duration<double>(Clock::now() - start_).count();
    usage.cpu_share = (CpuSeconds() - cpu_) / usage.seconds;
    usage.peak_mib = PeakMib();
  }

 private:
  const Clock::time_point start_ = Clock::now();
  const double cpu_ = CpuSeconds();
};

Usage Slowly(test::Client& client, unsigned pause_us) {
  const tagTWSCANPARAM request = test::Ask::Colour().Dpi(1200).Frame(0, 0, 11.69F, 16.54F);
  Usage usage;
  const Watch watch;
  if (!client.Start(request)) return usage;
  std::this_thread::sleep_for(std::chrono::seconds(1));
  std::vector<std::uint8_t> line(request.dwLineSize);
  auto next = Clock::now();
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

Usage Waiting(test::Client& client, unsigned bits, double seconds) {
  const tagTWSCANPARAM request = test::Ask::Depth(bits).Dpi(300).Frame(0, 0, 8, 11);
  Usage usage;
  if (!client.Start(request)) return usage;
  usage.done = true;
  const Watch watch;
  std::thread reader([&] {
    std::vector<std::uint8_t> line(request.dwLineSize);
    while (client.Interface().ReadLine(line.data()) == 0) usage.lines += 1;
  });
  std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
  Usage waited;
  watch.Fill(waited);
  client.Interface().Abort();
  reader.join();
  waited.done = usage.done;
  waited.lines = usage.lines;
  return waited;
}

std::string OwnProgram() {
  std::vector<char> path(4096);
  const ssize_t size = ::readlink("/proc/self/exe", path.data(), path.size());
  return {path.data(), static_cast<std::size_t>(std::max<ssize_t>(size, 0))};
}

Usage RunWith(const sim::VirtualDevice& device, const char* what, const std::string& numbers) {
  std::ostringstream command;
  command << "'" << OwnProgram() << "' " << kMark << ' ' << device.SnmpPort() << ' '
          << device.CommandPort() << ' ' << what << ' ' << numbers;
  Usage usage;
  std::FILE* out = ::popen(command.str().c_str(), "re");
  if (out == nullptr) return usage;
  int done = 0;
  const bool read = std::fscanf(out, "%d %lf %lf %lf %lf", &done, &usage.lines, &usage.peak_mib,
                                &usage.cpu_share, &usage.seconds) == 5;
  usage.done = ::pclose(out) == 0 && read && done == 1;
  return usage;
}

}  // namespace

Usage ReadSlowly(const sim::VirtualDevice& device, unsigned pause_us) {
  return RunWith(device, "slowly", std::to_string(pause_us));
}

Usage WaitFor(const sim::VirtualDevice& device, unsigned bits, double seconds) {
  return RunWith(device, "waiting", std::to_string(bits) + ' ' + std::to_string(seconds));
}

int RunScanProcess(int argc, char** argv) {
  if (argc < 6 || std::strcmp(argv[1], kMark) != 0) return -1;
  snmpPort = static_cast<std::uint16_t>(std::atoi(argv[2]));
  SetUdpCommandPort(static_cast<std::uint16_t>(std::atoi(argv[3])));
  const auto number = static_cast<unsigned>(std::atoi(argv[5]));
  test::Client client("127.0.0.1");
  const Usage usage =
      argc > 6 ? Waiting(client, number, std::atof(argv[6])) : Slowly(client, number);
  std::printf("%d %.0f %.3f %.6f %.3f\n", usage.done ? 1 : 0, usage.lines, usage.peak_mib,
              usage.cpu_share, usage.seconds);
  return 0;
}

}  // namespace vox::bench
