#include "tools/voxsim/Arguments.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <utility>

#include "sim/JobPlan.h"

namespace vox {
namespace {

constexpr int kUsageError = 64;
constexpr std::uint32_t kMostSheets = 10000;
constexpr std::uint32_t kLowestPageDpi = 10;
constexpr std::uint32_t kMostCache = 1 << 20;  // MiB
constexpr std::uint64_t kMebibyte = 1 << 20;
constexpr std::size_t kLongestName = 255;  // RFC 1213 DisplayString

// Options that need a second look once all are read.
struct Raw {
  std::vector<std::string> faults, objects;
  std::string mac, image_header;
  std::vector<std::uint32_t> margins;  // left, right
  std::vector<std::uint32_t> range;    // lowest, highest dpi
  std::vector<double> bed;             // width, height in inches
  bool raw_lines = false;
  bool no_typical_prediction = false;
  std::uint64_t cache = 0;  // MiB
};

// Without the words that CLI11 puts into the help text.
CLI::Validator Between(std::uint32_t low, std::uint32_t high) {
  return CLI::Range(low, high).description("");
}

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

void AddPaper(CLI::App& app, SimArguments& arguments, Raw& raw) {
  app.add_option("pages", arguments.page_files,
                 "PNM, PNG or TIFF files; none: a test chart. Several make a feeder");
  app.add_option("--feeder", arguments.sheets, "so many sheets in the feeder, pages in turn")
      ->check(Between(1, kMostSheets));
  app.add_flag("--duplex", arguments.duplex, "a duplex feeder: two pages make one sheet");
  app.add_flag("--reload", arguments.device.reload_feeder, "the sheets are back after each job");
  app.add_flag("--empty", arguments.device.empty_glass, "nothing lies on the glass");
  app.add_option("--page-dpi", arguments.page_limits.force_dpi,
                 "resolution of the page files, whatever they say")
      ->check(Between(kLowestPageDpi, sim::kMaxResolution));
  app.add_option("--bed", raw.bed, "width and height in inches")->expected(2)->delimiter(',');
  app.add_option("--range", raw.range, "lowest and highest resolution, dpi")
      ->expected(2)
      ->delimiter(',');
}

void AddCoding(CLI::App& app, SimArguments& arguments, Raw& raw) {
  sim::DeviceOptions& device = arguments.device;
  auto* jbig = app.add_flag("--jbig", device.coding.jbig, "bilevel pages as JBIG blocks (usual)");
  app.add_flag("--raw", raw.raw_lines, "bilevel pages as raw lines")->excludes(jbig);
  app.add_option("--lines-per-block", device.coding.lines_per_block, "lines of a JBIG block")
      ->check(Between(1, 65535));
  app.add_option("--template", device.coding.line_template, "template lines, 2 or 3")
      ->check(Between(2, 3));
  app.add_flag("--no-typical-prediction", raw.no_typical_prediction, "JBIG without TPBON");
  app.add_option("--image-header", raw.image_header,
                 "where a block's image header is: data, header or none");
  app.add_option("--margins", raw.margins, "left and right cut margin, pixels")
      ->expected(2)
      ->delimiter(',');
  app.add_option("--plane-order", device.plane_order, "order of the colour planes, 0 to 5")
      ->check(Between(0, 5));
  app.add_option("--threshold", device.threshold, "grey that is white on bilevel pages, 1 to 255")
      ->check(Between(1, 255));
}

void AddBehaviour(CLI::App& app, SimArguments& arguments, Raw& raw) {
  app.add_option("--object", raw.objects, "say or miss an object: OBJECT=none, OBJECT=TYPE:VALUE");
  app.add_option("--fault", raw.faults, "make something go wrong (docs/virtual-device.md)");
  app.add_option("--cache", raw.cache, "MiB of coded pages kept for the next request")
      ->check(Between(0, kMostCache));
  app.add_option("--prepare", arguments.prepare,
                 "code a bilevel page of the whole bed at this resolution before starting")
      ->check(Between(1, sim::kMaxResolution));
  app.add_flag("--trace", arguments.trace, "write what happens to standard error");
}

bool ReadMac(const std::string& text, std::array<std::uint8_t, 6>& mac) {
  char behind = 0;
  return std::sscanf(text.c_str(), "%2hhx:%2hhx:%2hhx:%2hhx:%2hhx:%2hhx%c", &mac[0], &mac[1],
                     &mac[2], &mac[3], &mac[4], &mac[5], &behind) == 6;
}

bool ReadImageHeader(const std::string& text, sim::ImageHeader& place) {
  if (text == "data") place = sim::ImageHeader::kInData;
  if (text == "header") place = sim::ImageHeader::kInHeader;
  if (text == "none") place = sim::ImageHeader::kNone;
  return text == "data" || text == "header" || text == "none";
}

void SetReach(const Raw& raw, sim::UnitOptions& unit) {
  if (raw.range.size() == 2) {
    unit.x_resolution_min = unit.y_resolution_min = raw.range[0];
    unit.x_resolution_max = unit.y_resolution_max = raw.range[1];
  }
  if (raw.bed.size() == 2) {
    unit.physical_width = static_cast<std::uint32_t>(raw.bed[0] * 10000 + 0.5);
    unit.physical_height = static_cast<std::uint32_t>(raw.bed[1] * 10000 + 0.5);
  }
}

// Settle applies what was read raw; an empty text, or what is wrong.
std::string Settle(const Raw& raw, SimArguments& arguments) {
  sim::DeviceOptions& device = arguments.device;
  if (!raw.mac.empty() && !ReadMac(raw.mac, device.mac))
    return "--mac " + raw.mac + ": give six bytes, as in 02:56:58:00:00:01";
  if (!raw.image_header.empty() && !ReadImageHeader(raw.image_header, device.coding.image_header))
    return "--image-header " + raw.image_header + ": choose data, header or none";
  if (device.name.size() > kLongestName) return "--name: 255 bytes at the most";
  for (const double side : raw.bed) {
    if (!(side >= 0.1 && side <= 100)) return "--bed: 0.1 to 100 inches";
  }
  for (const std::string& words : raw.faults) {
    const std::string error = sim::ParseFault(words, device.faults);
    if (!error.empty()) return "--fault: " + error;
  }
  for (const std::string& text : raw.objects) {
    const std::string error = sim::ParseObject(text, device.objects.emplace_back());
    if (!error.empty()) return "--object " + error;
  }
  if (raw.margins.size() == 2) {
    device.left_cut_margin = raw.margins[0];
    device.right_cut_margin = raw.margins[1];
  }
  if (raw.raw_lines) device.coding.jbig = false;
  if (raw.no_typical_prediction) device.coding.typical_prediction = false;
  device.cache_bytes = raw.cache * kMebibyte;
  if (arguments.prepare != 0 && device.cache_bytes == 0) device.cache_bytes = 256 * kMebibyte;
  SetReach(raw, *device.flatbed);
  sim::DeviceOptions trial = device;
  return sim::SettleOptions(trial);
}

int Complain(std::string line) {
  std::replace(line.begin(), line.end(), '\n', ' ');
  std::fprintf(stderr, "voxsim: %s\n", line.c_str());
  return kUsageError;
}

}  // namespace

int ParseArguments(int argc, char** argv, SimArguments& arguments) {
  CLI::App app(
      "A virtual multi-function device on the network.\n"
      "Prints its ports as one line of JSON and runs until SIGTERM or SIGINT.",
      "voxsim");
  app.set_version_flag("--version", VOX_VERSION);
  Raw raw;
  AddNetwork(app, arguments, raw);
  AddPaper(app, arguments, raw);
  AddCoding(app, arguments, raw);
  AddBehaviour(app, arguments, raw);
  try {
    app.parse(argc, argv);
  } catch (const CLI::Success& answer) {
    return app.exit(answer);
  } catch (const CLI::ParseError& error) {
    return Complain(std::string(error.what()) + "; see voxsim --help");
  }
  const std::string error = Settle(raw, arguments);
  return error.empty() ? -1 : Complain(error);
}

}  // namespace vox
