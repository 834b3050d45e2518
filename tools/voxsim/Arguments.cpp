#include "tools/voxsim/Arguments.h"

#include <cstdio>
#include <utility>

namespace vox {
namespace {

constexpr std::uint64_t kPreparedBytes = std::uint64_t{256} << 20;
constexpr std::size_t kLongestName = 255;  // RFC 1213 DisplayString

// Options that need a second look once all are read.
struct Raw {
  std::vector<std::string> objects;
  std::string mac;
};

void AddNetwork(CLI::App& app, SimArguments& arguments, Raw& raw) {
  sim::DeviceOptions& device = arguments.device;
  app.add_option("--address", device.address, "IPv4 address to be reached at");
  app.add_option("--snmp-port", device.snmp_port, "SNMP port (0: any free one)");
  app.add_option("--command-port", device.command_port, "UDP command port (0: any free one)");
  app.add_option("--device-port", device.job_server_port, "job server's device port on hosts");
  app.add_option("--model", device.model, "model name, without the maker's");
  app.add_option("--name", device.name, "device name");
  app.add_option("--mac", raw.mac, "hardware address, xx:xx:xx:xx:xx:xx");
  app.add_flag("--broadcast", device.hears_broadcasts, "hear queries to 255.255.255.255 as well");
  app.add_option("--other-address", device.other_address, "a second address to be asked at");
}

void AddBehaviour(CLI::App& app, SimArguments& arguments, Raw& raw) {
  app.add_option("--object", raw.objects, "say or miss an object: OBJECT=none, OBJECT=TYPE:VALUE");
  app.add_option("--prepare", arguments.prepare,
                 "code a bilevel page of the whole bed at this resolution before starting")
      ->check(Between(1, sim::kMaxResolution));
}

bool ReadMac(const std::string& text, std::array<std::uint8_t, 6>& mac) {
  char behind = 0;
  return std::sscanf(text.c_str(), "%2hhx:%2hhx:%2hhx:%2hhx:%2hhx:%2hhx%c", &mac[0], &mac[1],
                     &mac[2], &mac[3], &mac[4], &mac[5], &behind) == 6;
}

// Settle applies what was read raw; an empty text, or what is wrong.
std::string Settle(const Raw& raw, SimArguments& arguments) {
  sim::DeviceOptions& device = arguments.device;
  if (!raw.mac.empty() && !ReadMac(raw.mac, device.mac))
    return "--mac " + raw.mac + ": give six bytes, as in 02:56:58:00:00:01";
  if (device.name.size() > kLongestName) return "--name: 255 bytes at the most";
  for (const std::string& text : raw.objects) {
    const std::string error = sim::ParseObject(text, device.objects.emplace_back());
    if (!error.empty()) return "--object " + error;
  }
  if (arguments.prepare != 0 && device.cache_bytes == 0) device.cache_bytes = kPreparedBytes;
  return {};
}

}  // namespace

int ParseArguments(int argc, char** argv, SimArguments& arguments) {
  CLI::App app(
      "A virtual multi-function device on the network.\n"
      "Prints its ports as one line of JSON and runs until SIGTERM or SIGINT.",
      "voxsim");
  app.set_version_flag("--version", VOX_VERSION);
  Raw raw;
  DeviceArguments device(arguments);
  AddNetwork(app, arguments, raw);
  device.AddTo(app);
  AddBehaviour(app, arguments, raw);
  return ReadCommandLine(app, argc, argv, [&] {
    const std::string error = device.Settle();
    return error.empty() ? Settle(raw, arguments) : error;
  });
}

}  // namespace vox
