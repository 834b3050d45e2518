// devices: finds scanners, remembers them, and says which answer now. An example of the library's
// configuration classes; build it with find_package(Vox) and link Vox::vox.
//
//   devices [ADDRESS [SNMP-PORT]]      ADDRESS is asked instead of everybody in the network
//
// What is remembered goes into the settings that all users of the machine share, whose folder the
// user must be allowed to write; VOX_ROOT=FOLDER puts them elsewhere for a trial.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <vox/vox.h>

namespace {

std::string Text(const vox::Dictionary& device, const char* key) {
  return device.String(key).value_or("-");
}

// Search finds devices and shows each as soon as it is known.
vox::DeviceInfoDictionary Search(const char* address) {
  vox::tagNETSEARCH how;
  if (address != nullptr) how.pszAddress = address;
  // On a thread of the search: the registry, which is the main thread's, is left alone here.
  how.found = [](const vox::DeviceInfo& device) {
    std::printf("found %s at %s\n", Text(*device, vox::kDeviceNameKey).c_str(),
                Text(*device, vox::kDeviceIpKey).c_str());
  };
  bool answered = false;
  auto found = vox::searchNetworkDevices(nullptr, &answered, how);
  if (!answered) std::puts("nobody answered");
  return found;
}

// Remember merges what was found into the registry, which saves what is new or changed.
bool Remember(const vox::DeviceInfoDictionary& found) {
  vox::DevicesManager::instance().appendDevices(found);
  const vox::StoreOutcome outcome = vox::UserPreferences::instance().lastOutcome();
  if (outcome.error != 0)
    std::fprintf(stderr, "%s: %s\n", outcome.path.c_str(), std::strerror(outcome.error));
  return outcome.error == 0;
}

void ShowKnown() {
  const vox::DevicesManager& registry = vox::DevicesManager::instance();
  for (const vox::DeviceInfo& device : registry.knownDevices()) {
    const std::string id = Text(*device, vox::kDeviceIdKey);
    const std::string model = Text(*device, vox::kDeviceModelNameKey);
    std::printf("%s: %s, %s, %s, %s\n", id.c_str(), Text(*device, vox::kDeviceLocationKey).c_str(),
                model.c_str(),
                vox::SupportedDevices::instance().isSupportedModelName(model) ? "supported"
                                                                              : "not supported",
                registry.isDeviceOnline(id) ? "online" : "no answer");
  }
}

void ShowSettings() {
  vox::UserPreferences& preferences = vox::UserPreferences::instance();
  const auto paper =
      vox::PaperSizes::instance().defaultForMeasurementUnits(preferences.measurementUnits());
  std::printf("this computer is %s; its usual paper is %s\n", preferences.computerName().c_str(),
              paper != nullptr ? Text(*paper, "name").c_str() : "not known");
}

}  // namespace

int main(int argc, char** argv) {
  if (argc > 2) vox::snmpPort = static_cast<std::uint16_t>(std::atoi(argv[2]));
  const bool saved = Remember(Search(argc > 1 ? argv[1] : nullptr));
  ShowKnown();
  ShowSettings();
  return saved ? 0 : 1;
}
