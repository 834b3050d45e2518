#include "bench/ScanProcess.h"

#include <cstdlib>
#include <cstring>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "bench/Turns.h"
#include "tests/e2e/Ask.h"
#include "tests/e2e/Road.h"
#include "vox/drivers/net/NetworkComm/NetworkCommEntry.h"
#include "vox/drivers/net/NetworkComm/tvr302udp.h"

namespace vox::bench {
namespace {

constexpr char kMark[] = "--as-scan-process";

Usage Waiting(test::Client& client, unsigned bits, double seconds) {
  const tagTWSCANPARAM request = test::Ask::Depth(bits).Dpi(300).Frame(0, 0, 8, 11);
  Usage usage;
  if (!client.Start(request)) return usage;
  usage.done = true;
  const UsageWatch watch;
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

Usage Job(test::Client& client, unsigned bits, unsigned dpi, unsigned pages) {
  const auto resolution = static_cast<float>(dpi);
  const tagTWSCANPARAM request =
      test::Ask::Depth(bits).Dpi(resolution).Frame(0, 0, 8.27F, IsQuick() ? 1 : 11.69F);
  std::vector<std::uint8_t> line(request.dwLineSize);
  Usage usage;
  const UsageWatch watch;
  unsigned came = 0;
  bool more = true;
  for (bool first = true; more; first = false, ++came) {
    CTwImgIFNW& scanner = client.Interface();
    if (!scanner.PrepareScan(request, first, false)) return usage;
    scanner.GetScanParam();
    if (!scanner.StartScan(false)) return usage;
    for (std::uint32_t i = 0; i < request.dwImageLength; ++i) {
      if (scanner.ReadLine(line.data()) != 0) return usage;
    }
    scanner.EndScan();
    if (scanner.GetIfErrorStatus() != 0) return usage;
    more = scanner.IsNextPageExist();
  }
  usage.done = came == pages;
  usage.lines = static_cast<double>(request.dwImageLength) * came;
  usage.bytes = usage.lines * request.dwLineSize;
  watch.Fill(usage);
  return usage;
}

Usage RunWith(const sim::VirtualDevice& device, const char* what, const std::string& numbers) {
  std::ostringstream command;
  command << "'" << OwnProgram() << "' " << kMark << ' ' << device.SnmpPort() << ' '
          << device.CommandPort() << ' ' << what << ' ' << numbers;
  return RunForUsage(command.str());
}

}  // namespace

Usage ReadSlowly(const sim::VirtualDevice& device, unsigned pause_us) {
  return RunWith(device, "slowly", std::to_string(pause_us));
}

Usage WaitFor(const sim::VirtualDevice& device, unsigned bits, double seconds) {
  return RunWith(device, "waiting", std::to_string(bits) + ' ' + std::to_string(seconds));
}

Usage ScanJob(const sim::VirtualDevice& device, unsigned bits, unsigned dpi, unsigned pages) {
  return RunWith(device, "job",
                 std::to_string(bits) + ' ' + std::to_string(dpi) + ' ' + std::to_string(pages));
}

int RunScanProcess(int argc, char** argv) {
  if (argc < 6 || std::strcmp(argv[1], kMark) != 0) return -1;
  snmpPort = static_cast<std::uint16_t>(std::atoi(argv[2]));
  SetUdpCommandPort(static_cast<std::uint16_t>(std::atoi(argv[3])));
  const auto number = static_cast<unsigned>(std::atoi(argv[5]));
  test::Client client("127.0.0.1");
  if (std::strcmp(argv[4], "job") == 0 && argc == 8) {
    PrintUsage(Job(client, number, static_cast<unsigned>(std::atoi(argv[6])),
                   static_cast<unsigned>(std::atoi(argv[7]))));
    return 0;
  }
  const auto bed = test::Ask::Colour().Dpi(1200).Frame(0, 0, 11.69F, IsQuick() ? 1 : 16.54F);
  PrintUsage(argc > 6 ? Waiting(client, number, std::atof(argv[6]))
                      : ReadSlowly(client, bed, number));
  return 0;
}

}  // namespace vox::bench
