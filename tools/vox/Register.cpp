// vox register and vox unregister: devices are asked at the same time, and told of in their order.
#include <algorithm>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "tools/vox/CancelWatch.h"
#include "tools/vox/DeviceChoice.h"
#include "tools/vox/DeviceText.h"
#include "tools/vox/KnownDevices.h"
#include "tools/vox/NetworkName.h"
#include "tools/vox/Output.h"
#include "tools/vox/Premises.h"
#include "tools/vox/Registration.h"
#include "tools/vox/Verbs.h"
#include "vox/UserPreferences.h"
#include "vox/drivers/net/NetworkComm/tvr302udp.h"
#include "vox/platform/Threads.h"

namespace vox::cli {

namespace {

constexpr std::size_t kAtOnce = 64;
constexpr int kGraceMs = 100;

// Of devices none of which can be asked.
std::string NobodyToAsk(const DeviceInfoArray& known) {
  const bool network = std::any_of(known.begin(), known.end(), [](const DeviceInfo& device) {
    return is_device_of_type(*device, kDeviceTypeNetwork);
  });
  if (network)
    return "no network device is remembered with an address; find them again with vox discover, or "
           "name their addresses with vox add";
  return "no network device is remembered, and devices at USB need no registration; find others "
         "with vox discover";
}

std::vector<DeviceTarget> AllRemembered() {
  std::vector<DeviceTarget> targets;
  const DeviceInfoArray known = SortedDevices(OpenRegistry());
  for (const DeviceInfo& device : known) {
    const auto address = device->String(kDeviceIpKey);
    if (is_device_of_type(*device, kDeviceTypeNetwork) && address)
      targets.push_back({DeviceName(*device), *address, device});
  }
  if (known.empty())
    throw Failure(ExitStatus::kCannot, "no device is remembered; find some with vox discover");
  if (targets.empty()) throw Failure(ExitStatus::kCannot, NobodyToAsk(known));
  return targets;
}

DeviceTarget Target(const std::string& name) {
  if (IsNetworkName(name)) return FindDevice(name);
  const DeviceInfo device = FindRemembered(name).remembered;
  if (is_device_of_type(*device, kDeviceTypeUsb))
    throw Failure(ExitStatus::kCannot,
                  DeviceName(*device) + ": devices at USB need no registration");
  return TargetOf(device);
}

bool IsSame(const DeviceTarget& a, const DeviceTarget& b) {
  if (a.remembered == nullptr || b.remembered == nullptr) return a.address == b.address;
  return a.remembered->String(kDeviceIdKey) == b.remembered->String(kDeviceIdKey);
}

// A device that was named twice counts once. net:ADDRESS means whoever is there; where a remembered
// device is named as well, that one.
std::vector<DeviceTarget> Named(const std::vector<std::string>& names) {
  std::vector<DeviceTarget> targets;
  for (const std::string& name : names) {
    DeviceTarget target = Target(name);
    const auto known = std::find_if(targets.begin(), targets.end(),
                                    [&](const DeviceTarget& t) { return IsSame(t, target); });
    if (known == targets.end()) {
      targets.push_back(std::move(target));
    } else if (target.remembered != nullptr) {
      *known = std::move(target);
    }
  }
  return targets;
}

// RecordOf gives the remembered record of the device that answered; null: there is none.
DeviceInfo RecordOf(const DeviceTarget& target, const Registration& outcome) {
  if (target.remembered != nullptr) return target.remembered;
  for (const DeviceInfo& device : RememberedAt(target.address)) {
    if (device->String(kDeviceMacKey) == outcome.mac) return device;
  }
  return nullptr;
}

class RegisterJob {
 public:
  explicit RegisterJob(const RegisterOptions& options) : options_(options) {}

  void Tell(const DeviceTarget& target, const Registration& outcome) {
    const bool done = outcome.state == RegistrationState::kAccepted;
    const DeviceInfo record = RecordOf(target, outcome);
    if (done && record != nullptr) Remember(*record);
    if (options_.json) PrintOut(JsonLine(Record(record, target.address, outcome)));
    if (!done) return Fail(RegistrationFailure(options_.wanted, target, outcome));
    if (!options_.json) PrintOut(CleanText(target.label) + ": " + Done() + "\n");
  }

  // Throws the failure that has not been told yet, with the status of the first one, or that of a
  // cancel.
  void Finish() const {
    if (last_) throw Failure(*status_, last_->what());
  }

 private:
  std::string Done() const {
    return options_.wanted
               ? "lists this computer as " + CleanText(UserPreferences::instance().computerName())
               : "was asked to strike this computer from its list";
  }

  void Remember(Dictionary& device) {
    device.Set(kDevicePushKey, options_.wanted);
    try {
      BeforeSharedChange();
      OpenRegistry().saveDeviceInfo(device.String(kDeviceIdKey));
      AfterChange();
    } catch (const Failure& failure) {
      if (!unsaved_) Fail(failure);
      unsaved_ = true;
    }
  }

  void Fail(const Failure& failure) {
    if (last_) PrintError(last_->what());
    if (!status_ || failure.Status() == ExitStatus::kCancelled) status_ = failure.Status();
    last_ = failure;
  }

  static Json Record(const DeviceInfo& device, const std::string& address,
                     const Registration& outcome) {
    Json record = device != nullptr
                      ? DeviceRecord(*device)
                      : Json{{kDeviceTypeKey, kDeviceTypeNetwork}, {kDeviceIpKey, address}};
    record["result"] = StateName(outcome.state);
    record["reply"] = outcome.reply >= 0 ? Json(outcome.reply) : Json(nullptr);
    return record;
  }

  const RegisterOptions& options_;
  std::optional<Failure> last_;       // not told yet
  std::optional<ExitStatus> status_;  // to exit with
  bool unsaved_ = false;
};

// Ask gives an answer that comes within kGraceMs of a cancel its due.
Registration Ask(const DeviceTarget& target, bool wanted, const CancelWatch& watch) {
  Registration outcome{RegistrationState::kCancelled, -1, {}};
  if (watch.Requested()) return outcome;
  const NetInterrupt hurry(watch.Fd(), kGraceMs);
  outcome = wanted ? Register(target) : Unregister(target);
  if (outcome.state == RegistrationState::kNoAnswer && watch.Requested())
    outcome.state = RegistrationState::kCancelled;
  return outcome;
}

}  // namespace

void RunRegister(const RegisterOptions& options) {
  CancelWatch watch;
  const Premises premises(options.with, false, watch);
  premises.RememberVirtual();
  const std::vector<DeviceTarget> targets = options.all ? AllRemembered() : Named(options.names);
  std::vector<Registration> outcomes(targets.size());
  {
    const CancelWatch::Attachment waits(watch, [] {});  // they end by the watch's descriptor
    RunTogether(targets.size(), kAtOnce,
                [&](std::size_t i) { outcomes[i] = Ask(targets[i], options.wanted, watch); });
  }
  watch.Finish();  // what was accepted is remembered and told, cancelled or not
  RegisterJob job(options);
  for (std::size_t i = 0; i < targets.size(); ++i) job.Tell(targets[i], outcomes[i]);
  job.Finish();
}

}  // namespace vox::cli
