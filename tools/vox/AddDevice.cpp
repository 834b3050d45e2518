// vox add: asks the device at an address who it is, or looks at USB, and remembers it.
#include <array>

#include "tools/vox/CancelWatch.h"
#include "tools/vox/DeviceChoice.h"
#include "tools/vox/DeviceText.h"
#include "tools/vox/KnownDevices.h"
#include "tools/vox/NetworkName.h"
#include "tools/vox/Output.h"
#include "tools/vox/Premises.h"
#include "tools/vox/UsbDevice.h"
#include "tools/vox/Verbs.h"
#include "vox/SupportedDevices.h"
#include "vox/drivers/net/search.h"

namespace vox::cli {

namespace {

std::string Label(const std::string& given, const std::string& address) {
  return given == address || given.empty() ? address : CleanText(given) + " (" + address + ")";
}

[[noreturn]] void FailSilent(const std::string& label) {
  throw Failure(ExitStatus::kIoError, "no device answers at " + label +
                                          " (asked for its model over SNMP); check that it is on " +
                                          "and reachable, and that the address is right");
}

// It has told its model, and then?
[[noreturn]] void FailToAdd(const std::string& label, const std::string& address) {
  std::array<char, NET_NAME_SIZE> model{};
  if (get_model(model.data(), static_cast<std::int32_t>(model.size()), address.c_str()) != 0)
    FailSilent(label);
  if (!is_qd7xxx(model.data()))
    throw Failure(ExitStatus::kCannot, "the device at " + label + " is a " +
                                           CleanText(model.data()) + ", which is not supported");
  throw Failure(ExitStatus::kIoError, "the device at " + label + " tells its model, " +
                                          CleanText(model.data()) + ", but not who it is; " +
                                          "try again, or look at its panel");
}

DeviceInfo AskWho(const std::string& given, const std::string& address) {
  bool answered = false;
  DeviceInfo device = getNetworkDeviceInfo(&answered, address.c_str());
  if (device != nullptr) return device;
  if (!answered) FailSilent(Label(given, address));
  FailToAdd(Label(given, address), address);
}

DeviceInfo LookAtUsb(const std::string& name) {
  DeviceInfo device = AttachedDevice(UsbSerial(name));
  const auto model = device->String(kDeviceModelNameKey);
  if (!SupportedDevices::instance().isSupportedModelName(model))
    throw Failure(ExitStatus::kCannot, "the device " + CleanText(name) + " is a " +
                                           CleanText(model.value_or("")) +
                                           ", which is not supported");
  return device;
}

DeviceInfo Meet(const std::string& name, const Premises& premises) {
  if (!premises.IsVirtual() && IsUsbName(name)) return LookAtUsb(name);
  return AskWho(name, premises.IsVirtual() ? premises.Address() : NetworkAddress(name));
}

}  // namespace

void RunAdd(const AddOptions& options) {
  CancelWatch watch;
  const Premises premises(options.device.with, false, watch);
  DevicesManager& registry = OpenRegistry();
  BeforeSharedChange();
  const DeviceInfo device = Meet(options.device.name, premises);
  const std::string id = device->String(kDeviceIdKey).value_or("");
  const DeviceInfo before = registry.infoForDevice(id);
  const std::string state = before == nullptr              ? "added: "
                            : HasChanged(*before, *device) ? "changed: "
                                                           : "known already: ";
  watch.Finish();  // what is begun now is done in no time
  registry.appendOneDeviceInfo(device);
  AfterChange();
  const Dictionary& stored = *registry.infoForDevice(id);
  const std::string words = state + DeviceName(stored) + ", " +
                            CleanText(stored.String(kDeviceModelNameKey).value_or("") + ", " + id) +
                            "\n";
  PrintOut(options.json ? JsonLine(DeviceRecord(stored)) : words);
}

}  // namespace vox::cli
