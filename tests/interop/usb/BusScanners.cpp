#include "tests/interop/usb/BusScanners.h"

#include <chrono>
#include <cstdint>
#include <stdexcept>
#include <utility>

#include "sim/UsbDevice.h"
#include "tests/support/UsbShape.h"

namespace vox::test {
namespace {

constexpr std::chrono::seconds kLongestWait{40};

std::string Rest(std::istringstream& words) {
  std::string text;
  std::getline(words >> std::ws, text);
  return text;
}

sim::EventKind Kind(std::istringstream& words) {
  unsigned kind = 0;
  if (!(words >> kind) || kind > static_cast<unsigned>(sim::EventKind::kFault)) {
    throw std::runtime_error("no such event");
  }
  return static_cast<sim::EventKind>(kind);
}

std::uint64_t Unread(sim::UsbDevice& device) {
  std::uint64_t bytes = 0;
  for (const sim::Event& event : device.Events().All()) {
    if (event.kind == sim::EventKind::kHaltCleared) bytes += event.count;
  }
  return bytes;
}

void SetFaults(sim::UsbDevice& device, const std::string& words) {
  sim::Faults faults;
  const std::string error = words == "none" ? "" : sim::ParseFault(words, faults);
  if (!error.empty()) throw std::runtime_error(error);
  device.SetFaults(faults);
}

}  // namespace

struct BusScanners::Scanner {
  Scanner(const std::string& words, int at_port) : device(UsbShape(words)), port(at_port) {
    if (!device.Error().empty()) throw std::runtime_error(device.Error());
  }
  void Plug(sim::UsbBus& bus) {
    if (!name.empty()) return;
    device.Scanner().Plug();
    name = bus.Plug(model.Description(port), model);
  }
  void Unplug(sim::UsbBus& bus) {
    if (name.empty()) return;
    device.Scanner().Unplug();
    bus.Unplug(std::exchange(name, {}));
  }

  sim::UsbDevice device;
  sim::UsbScannerModel model{device};
  const int port;
  std::string name;  // on the bus; empty: not there
};

std::string BusScanners::Answer(sim::UsbBus& bus, std::istringstream& words) {
  int port = 0;
  std::string verb;
  words >> port >> verb;
  if (verb == "make") {
    const auto scanner = std::make_shared<Scanner>(Rest(words), port);
    if (const auto before = std::exchange(scanners_[port], scanner)) {
      before->Unplug(bus);
      gone_.push_back(before);
    }
    scanner->Plug(bus);
    return scanner->name;
  }
  Scanner& scanner = *scanners_.at(port);
  if (verb == "plug") return scanner.Plug(bus), scanner.name;
  if (verb == "unplug") return scanner.Unplug(bus), "ok";
  if (verb == "reset") return scanner.device.Scanner().Reset(), "ok";
  if (verb == "faults") return SetFaults(scanner.device, Rest(words)), "ok";
  if (verb == "count") return std::to_string(scanner.device.Events().Count(Kind(words)));
  if (verb == "unread") return std::to_string(Unread(scanner.device));
  if (verb == "sheets") return std::to_string(scanner.device.SheetsLeft());
  if (verb != "wait") throw std::runtime_error("no such verb: " + verb);
  const sim::EventKind kind = Kind(words);
  std::size_t count = 0;
  words >> count;
  return scanner.device.Events().WaitFor(kind, count, kLongestWait) ? "1" : "0";
}

}  // namespace vox::test
