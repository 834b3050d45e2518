#include "tests/support/UsbShape.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <sstream>
#include <stdexcept>
#include <vector>

#include "tests/support/SmallDevice.h"

namespace vox::test {
namespace {

const char* const kKnown[] = {"blocks",     "packet", "joined", "in-two", "sheets",
                              "both-sides", "reload", "empty",  "serial"};

std::map<std::string, std::string> Parse(const std::string& words) {
  std::map<std::string, std::string> values;
  std::istringstream in(words);
  for (std::string word; in >> word;) {
    const std::size_t equals = std::min(word.find('='), word.size());
    const std::string name = word.substr(0, equals);
    if (std::find(std::begin(kKnown), std::end(kKnown), name) == std::end(kKnown)) {
      throw std::runtime_error("no such word of a scanner: " + word);
    }
    values[name] = word.substr(std::min(equals + 1, word.size()));
  }
  return values;
}

std::uint32_t Number(const std::string& text) {
  return static_cast<std::uint32_t>(std::stoul(text));
}

std::vector<std::uint32_t> Numbers(const std::string& text) {
  std::vector<std::uint32_t> numbers;
  std::istringstream in(text);
  for (std::string number; std::getline(in, number, ',');) numbers.push_back(Number(number));
  return numbers;
}

}  // namespace

sim::DeviceOptions UsbShape(const std::string& words) {
  auto values = Parse(words);
  sim::DeviceOptions options =
      values.contains("sheets")
          ? SmallFeeder(Number(values["sheets"]), values.contains("both-sides"))
          : SmallDevice();
  options.reload_feeder = values.contains("reload");
  options.empty_glass = values.contains("empty");
  options.usb.joined_headers = values.contains("joined");
  options.usb.information_in_two = values.contains("in-two");
  if (values.contains("blocks")) options.usb.block_bytes = Numbers(values["blocks"]);
  if (values.contains("packet")) {
    options.usb.max_packet = static_cast<std::uint16_t>(Number(values["packet"]));
  }
  if (values.contains("serial")) options.usb.serial = values["serial"];
  return options;
}

}  // namespace vox::test
