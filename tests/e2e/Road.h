// Road is the whole way of a page in one process: virtual devices, a job server, and clients that
// scan with CTwImgIFNW, all on loopback with ports of their own and a private folder in place of
// the machine's.
//
//     Road road;
//     road.Device(options);
//     const Page page = road.Scan(Ask::Grey().Dpi(150));
//     EXPECT_TRUE(SameLines(page.lines, road.Expected(Ask::Grey().Dpi(150))));
//
// Thread rule: a Road belongs to one thread, and each Client to one, Abort aside; several clients
// of one road may run at once.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "sim/VirtualDevice.h"
#include "tests/e2e/Ask.h"
#include "tests/e2e/ScanClient.h"
#include "tests/support/PlainRequest.h"
#include "tests/support/PlainRoad.h"
#include "tests/unit/core/Scratch.h"
#include "tools/voxjobd/JobServer.h"
#include "vox/drivers/net/TwImgIFNW.h"

namespace vox::test {

// Client is one network scan interface as an application uses it.
class Client : public ScanClient<CTwImgIFNW> {
 public:
  // Reads the device's capabilities at once.
  explicit Client(const std::string& address)
      : ScanClient(std::make_unique<CTwImgIFNW>("client", address.c_str())) {}
};

class Road {
 public:
  enum class Server { kInThread, kNone };
  explicit Road(Server server = Server::kInThread);
  ~Road();
  Road(const Road&) = delete;
  Road& operator=(const Road&) = delete;

  // Device starts a device. The first may be anywhere on loopback; each further one needs an
  // address of its own in options, since the ports are the same for all.
  sim::VirtualDevice& Device(sim::DeviceOptions options = {});
  // Scanner is the client of the first device, made when it is first asked for.
  Client& Scanner();
  std::unique_ptr<Client> NewClient(std::size_t device = 0);

  Page Scan(const tagTWSCANPARAM& request) { return Scanner().Scan(request); }
  std::vector<Page> ScanJob(const tagTWSCANPARAM& request) { return Scanner().ScanJob(request); }

  // Request is what the first device must be asked for; Expected the client lines of a page.
  sim::ScanInfo Request(const tagTWSCANPARAM& request, bool preview = false);
  std::vector<Line> Expected(const tagTWSCANPARAM& request, std::size_t page = 0,
                             bool preview = false);

  sim::VirtualDevice& FirstDevice() { return *devices_.front(); }
  sim::EventLog& Events() { return FirstDevice().Events(); }
  void StopServer() { server_.reset(); }
  // StartServer replaces the server when there is one.
  bool StartServer(const JobServerTimes& times = {});
  // SetWaits is for the scanner and the clients that come after.
  void SetWaits(const tagNWWAITS& waits);
  std::uint16_t DevicePort() const { return device_port_; }  // where devices connect to
  // PointDevicesAt makes the devices connect to another job server.
  void PointDevicesAt(std::uint16_t port);
  std::string Folder() const { return scratch_.Path(""); }
  std::size_t TemporaryFiles() const;  // files left behind in the private folder, the lock aside

  // Close ends everything; the destructor does it too.
  void Close();

 private:
  Scratch scratch_;
  Variable root_;
  Variable temporary_;
  std::optional<JobServer> server_;
  std::uint16_t device_port_ = 0;  // 0 none yet
  std::vector<std::unique_ptr<sim::VirtualDevice>> devices_;
  std::unique_ptr<Client> scanner_;
  tagNWWAITS waits_;
};

// ShortWaits makes every wait of the library shorter while it lives: as short as a test needs that
// waits for nothing, and long enough for answers that do come, on a busy machine too.
class ShortWaits {
 public:
  static constexpr std::chrono::milliseconds kCommand{200};  // for the answer to a command or query
  static constexpr std::chrono::milliseconds kChannels{400};
  explicit ShortWaits(Road& road, std::chrono::milliseconds channels = kChannels);
  ~ShortWaits();
  ShortWaits(const ShortWaits&) = delete;
  ShortWaits& operator=(const ShortWaits&) = delete;

 private:
  Road& road_;
};

}  // namespace vox::test
