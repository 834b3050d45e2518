#include "tools/voxsim-usb/Arguments.h"

#include <algorithm>
#include <string_view>

namespace vox {
namespace {

constexpr std::size_t kMostDevices = 15;          // ports of the bus's hub
constexpr std::uint32_t kLongestPause = 600'000;  // ms

struct Raw {
  std::string vendor, product_id;
  std::uint32_t replug = 0;
  CLI::Option* replug_given = nullptr;
};

void AddUsb(CLI::App& app, UsbArguments& arguments, Raw& raw) {
  sim::DeviceOptions& device = arguments.sim.device;
  sim::UsbOptions& usb = device.usb;
  app.add_option("--serial", arguments.serials, "serial number; several: a device each")
      ->expected(1)
      ->take_all()
      ->allow_extra_args(false);  // what follows is a page
  app.add_option("--model", device.model, "model name, without the maker's");
  app.add_option("--vendor-id", raw.vendor, "as 0x5658");
  app.add_option("--product-id", raw.product_id, "as 0x1520, which is the QD7200's");
  app.add_option("--maker", usb.maker, "the maker's name");
  app.add_option("--product", usb.product, "the product's name");
  app.add_option("--block-bytes", usb.block_bytes,
                 "bytes of a page's blocks in turn, the last again and again; 0: the rest")
      ->delimiter(',')
      ->allow_extra_args(false);
  app.add_flag("--joined-headers", usb.joined_headers, "blocks in one packet with their headers");
  app.add_flag("--information-in-two", usb.information_in_two,
               "device information: first its header, then the record");
  raw.replug_given =
      app.add_option("--replug", raw.replug, "plug it in again, ms after a fault unplugged it")
          ->check(Between(0, kLongestPause));
}

bool ReadId(const std::string& text, std::uint16_t& id) {
  if (text.empty()) return true;
  std::size_t end = 0;
  try {
    const unsigned long value = std::stoul(text, &end, 0);
    id = static_cast<std::uint16_t>(value);
    return end == text.size() && value <= 0xFFFF && text[0] != '-';
  } catch (const std::logic_error&) {
    return false;
  }
}

std::string Settle(const Raw& raw, UsbArguments& arguments) {
  sim::UsbOptions& usb = arguments.sim.device.usb;
  if (!ReadId(raw.vendor, usb.vendor_id)) return "--vendor-id " + raw.vendor + ": no USB id";
  if (!ReadId(raw.product_id, usb.product_id))
    return "--product-id " + raw.product_id + ": no USB id";
  if (*raw.replug_given) arguments.replug = std::chrono::milliseconds(raw.replug);
  if (arguments.serials.empty()) arguments.serials = {usb.serial};
  if (arguments.serials.size() > kMostDevices) return "--serial: 15 devices at the most";
  if (arguments.program.empty()) return "no program to run; put it behind --";
  return {};
}

}  // namespace

int ParseArguments(int argc, char** argv, UsbArguments& arguments) {
  CLI::App app(
      "Runs PROGRAM on a machine whose USB has virtual scanners, and nothing else.\n"
      "usage: voxsim-usb [options] [pages] -- PROGRAM [arguments]\n"
      "SIGUSR1 unplugs the scanners, SIGUSR2 plugs them in again. Returns PROGRAM's exit status.",
      "voxsim-usb");
  app.set_version_flag("--version", VOX_VERSION);
  char** const end = argv + argc;
  char** const split = std::find(argv, end, std::string_view("--"));
  if (split != end) arguments.program.assign(split + 1, end);
  Raw raw;
  DeviceArguments device(arguments.sim);
  device.AddTo(app);
  AddUsb(app, arguments, raw);
  return ReadCommandLine(app, static_cast<int>(split - argv), argv, [&] {
    const std::string error = device.Settle();
    return error.empty() ? Settle(raw, arguments) : error;
  });
}

}  // namespace vox
