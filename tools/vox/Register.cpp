// vox register and vox unregister: devices are asked at the same time, and told of in their order.
#include <algorithm>
#include <cmath>
#include <memory>
#include <optional>
#include <string>
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

// One device of the command, and what came of it.
struct Outcome {
  DeviceTarget target;
  Registration registration;
  DeviceInfo record;  // remembered of whom answered; null: nothing

  bool IsAccepted() const { return registration.state == RegistrationState::kAccepted; }
};

class RegisterJob {
 public:
  explicit RegisterJob(const RegisterOptions& options) : options_(options) {}

  // Remember keeps what was accepted, in one piece. What cannot be saved is not kept in memory
  // either.
  void Remember(const std::vector<Outcome>& outcomes) {
    std::vector<std::string> ids;
    std::vector<std::pair<DeviceInfo, std::optional<PropertyValue>>> former;
    for (const Outcome& outcome : outcomes) {
      if (!outcome.IsAccepted() || outcome.record == nullptr) continue;
      ids.push_back(outcome.record->String(kDeviceIdKey).value_or(""));
      former.emplace_back(outcome.record, outcome.record->Value(kDevicePushKey));
    }
    if (ids.empty()) return;
    try {
      BeforeSharedChange();
      for (const auto& [record, value] : former) record->Set(kDevicePushKey, options_.wanted);
      OpenRegistry().saveDevices(ids);
      AfterChange();
    } catch (const Failure& failure) {
      for (const auto& [record, value] : former) {
        if (value) {
          record->Set(kDevicePushKey, *value);
        } else {
          record->Remove(kDevicePushKey);
        }
      }
      unsaved_ = failure;
    }
  }

  void Tell(const Outcome& outcome) {
    const bool done = outcome.IsAccepted();
    if (done && outcome.record != nullptr && unsaved_) {
      Fail(*unsaved_);
      unsaved_.reset();  // is told of once
    }
    if (options_.json) PrintOut(JsonLine(Record(outcome)));
    if (!done)
      return Fail(RegistrationFailure(options_.wanted, outcome.target, outcome.registration));
    if (!options_.json) PrintOut(CleanText(outcome.target.label) + ": " + Done() + "\n");
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

  void Fail(const Failure& failure) {
    if (last_) PrintError(last_->what());
    if (!status_ || failure.Status() == ExitStatus::kCancelled) status_ = failure.Status();
    last_ = failure;
  }

  static Json Record(const Outcome& outcome) {
    const Registration& registration = outcome.registration;
    Json record = outcome.record != nullptr ? DeviceRecord(*outcome.record)
                                            : Json{{kDeviceTypeKey, kDeviceTypeNetwork},
                                                   {kDeviceIpKey, outcome.target.address}};
    record["result"] = StateName(registration.state);
    record["reply"] = registration.reply >= 0 ? Json(registration.reply) : Json(nullptr);
    const char* const asked = QuestionName(registration.question);
    record["asked"] = asked != nullptr ? Json(asked) : Json(nullptr);
    record["from"] = registration.from.empty() ? Json(nullptr) : Json(registration.from);
    record["seconds"] = std::round(registration.seconds * 1000) / 1000;
    return record;
  }

  const RegisterOptions& options_;
  std::optional<Failure> last_;       // not told yet
  std::optional<ExitStatus> status_;  // to exit with
  std::optional<Failure> unsaved_;    // why what was accepted could not be saved; not told yet
};

// Ask gives an answer that comes within kGraceMs of a cancel its due.
Registration Ask(const DeviceTarget& target, bool wanted, const CancelWatch& watch) {
  Registration outcome;
  outcome.state = RegistrationState::kCancelled;
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
  std::vector<Outcome> outcomes;
  for (DeviceTarget& target : options.all ? AllRemembered() : Named(options.names))
    outcomes.push_back({std::move(target), {}, nullptr});
  {
    const CancelWatch::Attachment waits(watch, [] {});  // they end by the watch's descriptor
    RunTogether(outcomes.size(), kAtOnce, [&](std::size_t i) {
      outcomes[i].registration = Ask(outcomes[i].target, options.wanted, watch);
    });
  }
  watch.Finish();  // what was accepted is remembered and told, cancelled or not
  for (Outcome& outcome : outcomes) outcome.record = RecordOf(outcome.target, outcome.registration);
  RegisterJob job(options);
  job.Remember(outcomes);
  for (const Outcome& outcome : outcomes) job.Tell(outcome);
  job.Finish();
}

}  // namespace vox::cli
