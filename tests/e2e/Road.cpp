#include "tests/e2e/Road.h"

#include <filesystem>
#include <stdexcept>
#include <utility>

#include "vox/drivers/net/NetworkComm/NetworkCommEntry.h"
#include "vox/drivers/net/NetworkComm/tvr302udp.h"

namespace vox::test {
namespace {

namespace fs = std::filesystem;

_SCANINFO PipelineInfo(const sim::ScanInfo& info) {
  _SCANINFO record{};
  record.DataType = info.data_type;
  record.Xresolution = info.x_resolution;
  record.Yresolution = info.y_resolution;
  record.Window = {info.x_pos, info.y_pos, info.x_extent, info.y_extent};
  record.DitherPattern = info.dither_pattern;
  record.dwLeftCutMargin = info.left_cut_margin;
  record.dwRightCutMargin = info.right_cut_margin;
  return record;
}

std::vector<Line> Cut(const std::vector<std::uint8_t>& bytes, const sim::ScanInfo& info) {
  const auto line_bytes = static_cast<std::ptrdiff_t>(sim::LineBytes(info));
  std::vector<Line> lines;
  for (auto at = bytes.begin(); lines.size() < info.y_extent; at += line_bytes) {
    lines.emplace_back(at, at + line_bytes);
  }
  return lines;
}

}  // namespace

Client::Client(const std::string& address)
    : interface_(std::make_unique<CTwImgIFNW>("client", address.c_str())) {
  tagSCANDEVINFO capabilities{};
  knows_device_ = interface_->GetDevInfo(&capabilities);
}

ResolutionRange Client::Range() {
  ResolutionRange range;
  interface_->GetDeviceResolution(&range.x_min, &range.y_min, &range.x_max, &range.y_max);
  return range;
}

bool Client::Start(const tagTWSCANPARAM& request, bool preview) {
  request_ = request;
  started_ = interface_->PrepareScan(request, std::exchange(first_, false), preview);
  if (!started_) return false;
  interface_->GetScanParam();
  return started_ = interface_->StartScan(preview);
}

std::optional<Line> Client::ReadLine() {
  Line line(request_.dwLineSize, 0xA5);
  if (interface_->ReadLine(line.data()) != 0) return std::nullopt;
  return line;
}

Page Client::Finish() {
  Page page;
  page.started = started_;
  while (started_ && page.lines.size() < request_.dwImageLength) {
    std::optional<Line> line = ReadLine();
    if (!line) break;
    page.lines.push_back(std::move(*line));
  }
  interface_->EndScan();
  page.status = interface_->GetIfErrorStatus();
  page.more = interface_->IsNextPageExist();
  first_ = !page.more;
  return page;
}

Page Client::Scan(const tagTWSCANPARAM& request, bool preview) {
  Start(request, preview);
  return Finish();
}

std::vector<Page> Client::ScanJob(const tagTWSCANPARAM& request) {
  std::vector<Page> pages;
  do {
    pages.push_back(Scan(request));
  } while (pages.back().started && pages.back().more);
  return pages;
}

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
  return ExpectedLines(FirstDevice(), request, Request(request, preview), page);
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

sim::DeviceOptions SmallDevice() {
  sim::UnitOptions unit;
  unit.x_resolution_min = unit.y_resolution_min = 100;
  unit.x_resolution_max = unit.y_resolution_max = 200;
  unit.physical_width = 30000;
  unit.physical_height = 25000;
  sim::DeviceOptions options;
  options.flatbed = unit;
  return options;
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

std::vector<Line> ExpectedLines(const sim::VirtualDevice& device, const tagTWSCANPARAM& request,
                                const sim::ScanInfo& device_request, std::size_t page) {
  const sim::ScanInfo info = device.PageInfo(device_request, page);
  std::vector<Line> lines = Cut(device.PageLines(device_request, page), info);
  if (info.angle == 180 && info.preview == 0) {
    lines = TurnedPage(lines, sim::BitsPerPixel(info.data_type));
  }
  return ClientLines(request, PipelineInfo(info), lines);
}

}  // namespace vox::test
