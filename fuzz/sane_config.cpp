// vox.conf of anybody: what was understood, written down again, is understood as the same.
#include <cstdlib>

#include "frontends/sane/Config.h"

namespace {

std::string Written(const vox::sane::Config& config) {
  std::string text;
  for (const std::string& device : config.devices) text += "device " + device + "\n";
  text += std::string("discovery ") + (config.discovery ? "on" : "off") + "\n";
  return text + "network-when-local-only " + (config.network_when_local_only ? "on" : "off") + "\n";
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  const vox::sane::Config config =
      vox::sane::ParseConfig({reinterpret_cast<const char*>(data), size});
  if (config.devices.size() > vox::sane::kMostConfigDevices) std::abort();
  if (vox::sane::ParseConfig(Written(config)) != config) std::abort();
  return 0;
}
