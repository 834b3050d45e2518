#include "tests/e2e/Road.h"

#include <filesystem>
#include <stdexcept>
#include <utility>

#include "vox/drivers/net/NetworkComm/NetworkCommEntry.h"
#include "vox/drivers/net/NetworkComm/tvr302udp.h"

namespace vox::test {
namespace {

namespace fs = std::filesystem;

}  // namespace

Road::Road(Server server)
    : root_("VOX_ROOT", scratch_.Path("root")), temporary_("TMPDIR", scratch_.Path("tmp")) {
  fs::create_directories(scratch_.Path("root"));
  fs::create_directories(scratch_.Path("tmp"));
  if (server == Server::kInThread && !StartServer()) throw std::runtime_error(server_->Error());
}

Road::~Road() {
  Close();
}

bool Road::StartServer(const JobServerTimes& times) {
  JobServerOptions options;
  options.times = times;
  options.device_port = 0;
  options.device_address = "127.0.0.1";
  server_.reset();  // the old one lets the lock file go first
  server_.emplace();
  if (!server_->Start(options)) return false;
  PointDevicesAt(server_->Ports().device);
  return true;
}

void Road::PointDevicesAt(std::uint16_t port) {
  device_port_ = port;
  for (const auto& device : devices_) device->SetJobServerPort(port);
}

sim::VirtualDevice& Road::Device(sim::DeviceOptions options) {
  if (device_port_ != 0) options.job_server_port = device_port_;
  if (!devices_.empty()) {
    options.snmp_port = FirstDevice().SnmpPort();
    options.command_port = FirstDevice().CommandPort();
  }
  auto device = std::make_unique<sim::VirtualDevice>(std::move(options));
  if (!device->Start()) throw std::runtime_error(device->Error());
  snmpPort = device->SnmpPort();
  SetUdpCommandPort(device->CommandPort());
  devices_.push_back(std::move(device));
  return *devices_.back();
}

Client& Road::Scanner() {
  if (!scanner_) {
    scanner_ = NewClient();
    if (!scanner_->KnowsDevice()) throw std::runtime_error("the device gives no capabilities");
  }
  return *scanner_;
}

std::unique_ptr<Client> Road::NewClient(std::size_t device) {
  auto client = std::make_unique<Client>(devices_.at(device)->Address());
  client->Interface().SetWaits(waits_);
  return client;
}

void Road::SetWaits(const tagNWWAITS& waits) {
  waits_ = waits;
  if (scanner_) scanner_->Interface().SetWaits(waits);
}

sim::ScanInfo Road::Request(const tagTWSCANPARAM& request, bool preview) {
  return DeviceRequest(request, Scanner().Range(), preview);
}

std::vector<Line> Road::Expected(const tagTWSCANPARAM& request, std::size_t page, bool preview) {
  return ExpectedLines(FirstDevice().Foretell(), request, Request(request, preview), page);
}

std::size_t Road::TemporaryFiles() const {
  std::size_t files = 0;
  for (const auto& entry : fs::recursive_directory_iterator(scratch_.Path(""))) {
    if (!entry.is_directory() && entry.path().extension() != ".lock") ++files;
  }
  return files;
}

void Road::Close() {
  scanner_.reset();
  devices_.clear();
  server_.reset();
}

ShortWaits::ShortWaits(Road& road, std::chrono::milliseconds channels) : road_(road) {
  constexpr int kCommandSeconds = 3;
  netMsPerSecond = kCommand.count() / kCommandSeconds;
  const auto ms = static_cast<int>(channels.count());
  road_.SetWaits({.nFirstData = ms, .nData = ms, .nRegistration = ms, .nCancel = 100});
}

ShortWaits::~ShortWaits() {
  netMsPerSecond = 1000;
  road_.SetWaits({});
}

}  // namespace vox::test
