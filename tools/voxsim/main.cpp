// voxsim: the virtual device as a program. It prints its ports as one line of JSON, runs in the
// foreground and ends on SIGTERM or SIGINT. SIGUSR1 puts the device to sleep, SIGUSR2 wakes it.
#include <csignal>
#include <cstdio>
#include <exception>
#include <string>

#include <nlohmann/json.hpp>

#include "sim/VirtualDevice.h"
#include "tools/voxsim/Arguments.h"

namespace vox {
namespace {

// The signals wait for sigwait in the main thread; all threads inherit the mask.
sigset_t BlockStopSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : {SIGTERM, SIGINT, SIGHUP, SIGUSR1, SIGUSR2}) sigaddset(&signals, signal);
  ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  return signals;
}

std::string MacText(const std::array<std::uint8_t, 6>& mac) {
  char text[18];
  std::snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3],
                mac[4], mac[5]);
  return text;
}

void PrintPorts(const sim::VirtualDevice& device, const sim::DeviceOptions& options) {
  const nlohmann::ordered_json ports = {{"address", device.Address()},
                                        {"snmpPort", device.SnmpPort()},
                                        {"commandPort", device.CommandPort()},
                                        {"devicePort", options.job_server_port},
                                        {"model", options.model},
                                        {"name", options.name},
                                        {"mac", MacText(options.mac)}};
  const auto replace = nlohmann::ordered_json::error_handler_t::replace;
  std::printf("%s\n", ports.dump(-1, ' ', false, replace).c_str());
  std::fflush(stdout);
}

int Fail(int status, const std::string& text) {
  std::fprintf(stderr, "voxsim: %s\n", text.c_str());
  return status;
}

// Takes one signal; false when it is one that ends the program.
bool Awaits(const sigset_t& signals, sim::VirtualDevice& device, const sim::Faults& faults) {
  int signal = 0;
  ::sigwait(&signals, &signal);
  if (signal != SIGUSR1 && signal != SIGUSR2) return false;
  sim::Faults asleep = faults;
  asleep.silence = {sim::Stage::kAlways, 0, true};
  device.SetFaults(signal == SIGUSR1 ? asleep : faults);
  return true;
}

int Serve(SimArguments& arguments) {
  const std::string paper = LoadPaper(arguments);
  if (!paper.empty()) return Fail(kInvalid, paper);
  const sigset_t signals = BlockStopSignals();
  sim::VirtualDevice device(arguments.device);
  if (arguments.trace) device.Events().SetListener(TraceEvent);
  if (arguments.prepare != 0 &&
      !device.Prepare(device.WholeBed(arguments.prepare, sim::kBilevel))) {
    return Fail(kInvalid, "the pages to be prepared do not fit (--cache)");
  }
  if (!device.Start()) return Fail(kIoError, device.Error());
  PrintPorts(device, arguments.device);
  while (Awaits(signals, device, arguments.device.faults)) {
  }
  device.Stop();
  return 0;
}

}  // namespace
}  // namespace vox

int main(int argc, char** argv) {
  try {
    vox::SimArguments arguments;
    const int status = vox::ParseArguments(argc, argv, arguments);
    return status >= 0 ? status : vox::Serve(arguments);
  } catch (const std::bad_alloc&) {
    return vox::Fail(vox::kNoMemory, "out of memory");
  } catch (const std::exception& error) {
    return vox::Fail(vox::kIoError, error.what());
  }
}
