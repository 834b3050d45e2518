// The emulated bus in a process of its own. It prints the bus's root, then answers each line of its
// input with one line; BusProcess.h has the other end. It ends with its input.
#include <cstdint>
#include <exception>
#include <iostream>
#include <map>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "sim/usbbus/UsbBus.h"
#include "tests/interop/usb/BusScanners.h"
#include "tests/interop/usb/ScriptDevice.h"

namespace vox::test {
namespace {

// A text comes as its bytes in hexadecimal, or "-": none.
std::optional<std::string> TextOf(const std::string& word) {
  if (word == "-") return std::nullopt;
  std::string text;
  for (std::size_t at = 1; at + 1 < word.size(); at += 2) {
    text += static_cast<char>(std::stoi(word.substr(at, 2), nullptr, 16));
  }
  return text;
}

std::vector<sim::UsbInterface> Shape(const std::string& shape) {
  const sim::UsbInterface scanner = {
      .endpoints = {{.address = 0x81},
                    {.address = 0x02},
                    {.address = 0x83, .type = 3, .packet = 64, .interval = 8}}};
  sim::UsbInterface printer = {
      .interface_class = 7, .endpoints = {{.address = 0x84}, {.address = 0x05}}, .driver = "usblp"};
  if (shape == "printer") return {printer};
  if (shape == "both") return {printer, scanner};
  if (shape == "driven") {
    sim::UsbInterface driven = scanner;
    driven.driver = "camera";
    return {driven};
  }
  if (shape == "scanner") return {scanner};
  throw std::runtime_error("no such shape: " + shape);
}

class Server {
 public:
  std::string Root() const { return bus_.Root(); }

  std::string Answer(const std::string& line) {
    std::istringstream words(line);
    std::string verb;
    words >> verb;
    if (verb == "plug") return Plug(words);
    if (verb == "scanner") return scanners_.Answer(bus_, words);
    std::string name;
    words >> name;
    if (verb == "unplug") return bus_.Unplug(name), "ok";
    if (verb == "mode") return bus_.SetNodeMode(name, Number(words, 8)), "ok";
    if (verb == "driver") return bus_.HasDriver(name, Number(words)) ? "1" : "0";
    return AnswerOf(*devices_.at(name), verb, words);
  }

 private:
  static unsigned long Number(std::istringstream& words, int base = 10) {
    std::string word;
    words >> word;
    return std::stoul(word, nullptr, base);
  }

  std::string Plug(std::istringstream& words) {
    sim::UsbDescription description;
    std::string ports, manufacturer, product_name, serial, shape;
    words >> description.bus >> ports;
    description.vendor = static_cast<std::uint16_t>(Number(words, 16));
    description.product = static_cast<std::uint16_t>(Number(words, 16));
    words >> manufacturer >> product_name >> serial >> shape;
    description.ports.clear();
    std::istringstream hops(ports);
    for (std::string hop; std::getline(hops, hop, '.');) {
      description.ports.push_back(std::stoi(hop));
    }
    description.manufacturer = TextOf(manufacturer);
    description.product_name = TextOf(product_name);
    description.serial = TextOf(serial);
    description.interfaces = Shape(shape);
    auto device = std::make_unique<ScriptDevice>();
    const std::string name = bus_.Plug(description, *device);
    if (const auto before = devices_.find(name); before != devices_.end()) {
      unplugged_.push_back(std::move(before->second));
    }
    devices_[name] = std::move(device);
    return name;
  }

  static std::string AnswerOf(ScriptDevice& device, const std::string& verb,
                              std::istringstream& words) {
    if (verb == "send") {
      std::string text;
      words >> text;
      const std::string bytes = TextOf(text).value_or("");
      return device.Send({bytes.begin(), bytes.end()}), "ok";
    }
    if (verb == "pattern") return device.Send(Pattern(Number(words))), "ok";
    if (verb == "accept") return device.Accept(Number(words)), "ok";
    if (verb == "stall") return device.Stall(static_cast<std::uint8_t>(Number(words, 16))), "ok";
    if (verb == "cleared") return std::to_string(device.ClearedHalts());
    if (verb == "claims") return std::to_string(device.Claims());
    if (verb == "unsent") return std::to_string(device.Unsent());
    if (verb == "lengths") return Lengths(device);
    if (verb == "received") return device.Received() == Pattern(Number(words)) ? "same" : "other";
    throw std::runtime_error("no such verb: " + verb);
  }

  static std::string Lengths(ScriptDevice& device) {
    std::string text;
    for (const std::size_t length : device.PacketLengths()) {
      text += (text.empty() ? "" : " ") + std::to_string(length);
    }
    return text;
  }

  std::map<std::string, std::unique_ptr<ScriptDevice>> devices_;
  std::vector<std::unique_ptr<ScriptDevice>> unplugged_;
  BusScanners scanners_;
  sim::UsbBus bus_;  // goes first: its threads use the devices
};

}  // namespace
}  // namespace vox::test

int main() {
  try {
    vox::test::Server server;
    std::cout << server.Root() << std::endl;
    for (std::string line; std::getline(std::cin, line);) {
      std::string answer;
      try {
        answer = server.Answer(line);
      } catch (const std::exception& wrong) {
        answer = std::string("error: ") + wrong.what();
      }
      std::cout << answer << std::endl;
    }
  } catch (const std::exception& wrong) {
    std::cerr << wrong.what() << std::endl;
    return 1;
  }
  return 0;
}
