#include "sim/VirtualDevice.h"

#include <algorithm>
#include <thread>
#include <utility>

#include "sim/CommandResponder.h"
#include "sim/DatagramServer.h"
#include "sim/DeviceMib.h"
#include "sim/FaultBox.h"
#include "sim/JobDesk.h"
#include "sim/PageSender.h"
#include "sim/PageStream.h"

namespace vox::sim {
namespace {

DeviceOptions Settled(DeviceOptions options, std::string& error) {
  error = SettleOptions(options);
  return options;
}

}  // namespace

class VirtualDevice::Impl {
 public:
  explicit Impl(DeviceOptions given)
      : options(Settled(std::move(given), error)),
        faults(options.faults),
        desk(options, events),
        agent(options.community),
        responder(desk, faults, events),
        server(agent, responder, faults, events),
        cache(options.cache_bytes, options.coding) {}

  bool Start() {
    std::uint32_t address = 0;
    if (!error.empty()) return false;
    if (!ParseAddress(options.address, address)) {
      error = options.address + " is no IPv4 address";
      return false;
    }
    error = server.Open(address, options);
    if (!error.empty()) return false;
    AddDeviceObjects(agent, options, {[this] { return desk.SheetsLeft() > 0; }});
    sender = std::make_unique<PageSender>(options, address, desk, faults, cache, events);
    sender->SetJobServerPort(job_server_port);
    snmp_port = server.SnmpPort();
    command_port = server.CommandPort();
    datagrams = std::thread([this] { server.Run(); });
    pages = std::thread([this] { sender->Run(); });
    return true;
  }

  void Stop() {
    server.Stop();
    desk.Stop();
    if (datagrams.joinable()) datagrams.join();
    if (pages.joinable()) pages.join();
  }

  // Constant after construction, but for `error` until Start returns.
  std::string error;
  const DeviceOptions options;
  std::uint16_t snmp_port = 0, command_port = 0, job_server_port = options.job_server_port;

  // Each with synchronisation of its own.
  EventLog events;
  FaultBox faults;
  JobDesk desk;
  SnmpAgent agent;
  CommandResponder responder;
  DatagramServer server;
  PageCache cache;
  std::unique_ptr<PageSender> sender;
  std::thread datagrams, pages;
};

VirtualDevice::VirtualDevice(DeviceOptions options)
    : impl_(std::make_unique<Impl>(std::move(options))) {}
VirtualDevice::~VirtualDevice() {
  Stop();
}

bool VirtualDevice::Start() {
  return impl_->Start();
}
void VirtualDevice::Stop() {
  impl_->Stop();
}
const std::string& VirtualDevice::Error() const {
  return impl_->error;
}
const std::string& VirtualDevice::Address() const {
  return impl_->options.address;
}
std::uint16_t VirtualDevice::SnmpPort() const {
  return impl_->snmp_port;
}
std::uint16_t VirtualDevice::CommandPort() const {
  return impl_->command_port;
}
EventLog& VirtualDevice::Events() {
  return impl_->events;
}
std::size_t VirtualDevice::SheetsLeft() const {
  return impl_->desk.SheetsLeft();
}

void VirtualDevice::SetJobServerPort(std::uint16_t port) {
  impl_->job_server_port = port;
  if (impl_->sender) impl_->sender->SetJobServerPort(port);
}

void VirtualDevice::SetFaults(const Faults& faults) {
  impl_->faults.Set(faults);
  if (impl_->sender && impl_->sender->IsHolding()) impl_->desk.DropPage();
}

void VirtualDevice::LoadFeeder(std::vector<Sheet> sheets) {
  std::erase_if(sheets, [](const Sheet& sheet) { return !sheet.front; });
  impl_->desk.LoadFeeder(std::move(sheets));
}

std::vector<ClientRegistration> VirtualDevice::Registrations() const {
  return impl_->responder.Registrations();
}

Forecast VirtualDevice::Foretell() const {
  return {impl_->options, impl_->desk.LoadedSheets()};
}

std::size_t VirtualDevice::PagesOf(const ScanInfo& request) const {
  return Foretell().PagesOf(request);
}

ScanInfo VirtualDevice::PageInfo(const ScanInfo& request, std::size_t page) const {
  return Foretell().PageInfo(request, page);
}

std::vector<std::uint8_t> VirtualDevice::PageLines(const ScanInfo& request,
                                                   std::size_t page) const {
  return Foretell().PageLines(request, page);
}

bool VirtualDevice::Prepare(const ScanInfo& request) {
  const auto pages = Foretell().Plan(request);
  return !pages.empty() && std::all_of(pages.begin(), pages.end(), [&](const PlannedPage& page) {
    return impl_->cache.Prepare({page.source, CompleteScanInfo(impl_->options, request, page),
                                 RenderOptionsOf(impl_->options, page)});
  });
}

ScanInfo VirtualDevice::WholeBed(std::uint32_t resolution, std::uint32_t data_type) const {
  return Foretell().WholeBed(resolution, data_type);
}

}  // namespace vox::sim
