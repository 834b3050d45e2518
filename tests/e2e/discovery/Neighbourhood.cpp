#include "tests/e2e/discovery/Neighbourhood.h"

#include <cstdio>
#include <fstream>
#include <stdexcept>
#include <utility>

#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "vox/drivers/net/NetworkComm/tvr302udp.h"

namespace vox::test {
namespace {

std::string MacOf(std::size_t number) {
  char text[18];
  std::snprintf(text, sizeof text, "02:00:00:00:00:%02x", static_cast<unsigned>(number & 0xFF));
  return text;
}

}  // namespace

SnmpdDevice::SnmpdDevice(const Machine& machine, const std::string& folder,
                         const std::string& objects) {
  const std::string configuration = folder + "/agent.conf", log = folder + "/agent.log";
  std::ofstream(configuration) << "rocommunity public\n" << objects << std::flush;
  const Inside inside(machine);
  const pid_t parent = ::getpid();
  process_ = ::fork();
  if (process_ != 0) return;
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (::getppid() != parent) ::_exit(1);
  const std::string persistent = "SNMP_PERSISTENT_DIR=" + folder, path = "SNMPCONFPATH=" + folder;
  const char* const environment[] = {"MIBS=", persistent.c_str(), path.c_str(), nullptr};
  ::execle("/usr/sbin/snmpd", "snmpd", "-f", "-r", "-C", "-c", configuration.c_str(), "-Lf",
           log.c_str(), "-p", (folder + "/agent.pid").c_str(), "udp:161", nullptr,
           const_cast<char* const*>(environment));
  ::_exit(127);
}

SnmpdDevice::~SnmpdDevice() {
  if (process_ <= 0) return;
  ::kill(process_, SIGKILL);
  ::waitpid(process_, nullptr, 0);
}

Neighbourhood::Plot& Neighbourhood::House(const std::string& id) {
  const auto at = plots_.find(id);
  if (at == plots_.end()) throw std::runtime_error("no device " + id);
  return at->second;
}

Neighbourhood::Plot& Neighbourhood::NextPlot(const std::string& id) {
  const std::size_t number = plots_.size() + 1;
  if (number >= lan_.Size() || plots_.contains(id)) throw std::runtime_error("no room for " + id);
  return plots_.emplace(id, Plot{&lan_[number], number, {}, nullptr, nullptr}).first->second;
}

void Neighbourhood::Start(Plot& plot) {
  const Inside inside(*plot.machine);
  plot.device.reset();  // its ports are free before they are taken again
  plot.device = std::make_unique<sim::VirtualDevice>(plot.options);
  if (!plot.device->Start()) throw std::runtime_error(plot.device->Error());
}

void Neighbourhood::Add(const std::string& id, sim::DeviceOptions options) {
  Plot& plot = NextPlot(id);
  options.address = plot.machine->Address();
  options.hears_broadcasts = true;
  options.snmp_port = snmpPort;
  options.command_port = udpCommandPort;
  options.mac = {2, 0, 0, 0, 0, static_cast<std::uint8_t>(plot.number)};
  if (!options.other_address.empty()) plot.machine->AddAddress(options.other_address);
  plot.options = std::move(options);
  Start(plot);
}

void Neighbourhood::AddSnmpd(const std::string& id, const std::string& folder,
                             const std::string& objects) {
  Plot& plot = NextPlot(id);
  plot.agent = std::make_unique<SnmpdDevice>(*plot.machine, folder, objects);
}

std::string Neighbourhood::MacText(const std::string& id) {
  return MacOf(House(id).number);
}

std::string Neighbourhood::IdOf(const std::string& mac) {
  for (const auto& [id, plot] : plots_) {
    if (MacOf(plot.number) == mac) return id;
  }
  return mac;
}

void Neighbourhood::Sleep(const std::string& id) {
  sim::Faults asleep;
  asleep.silence.at = sim::Stage::kAlways;
  Device(id).SetFaults(asleep);
}

void Neighbourhood::Wake(const std::string& id) {
  Device(id).SetFaults(House(id).options.faults);
}

void Neighbourhood::Move(const std::string& id, const std::string& address) {
  Plot& plot = House(id);
  plot.machine->SetAddress(address);
  plot.options.address = address;
  Start(plot);
}

void Neighbourhood::Rename(const std::string& id, const std::string& name) {
  Plot& plot = House(id);
  plot.options.name = name;
  Start(plot);
}

}  // namespace vox::test
