// vox register and vox unregister: devices are asked at the same time, and told of in their order.
#include <cstdio>
#include <memory>
#include <optional>
#include <set>
#include <vector>

#include "tools/vox/CancelWatch.h"
#include "tools/vox/DeviceChoice.h"
#include "tools/vox/DeviceText.h"
#include "tools/vox/KnownDevices.h"
#include "tools/vox/Output.h"
#include "tools/vox/Premises.h"
#include "tools/vox/Registration.h"
#include "tools/vox/Verbs.h"
#include "vox/UserPreferences.h"
#include "vox/platform/Threads.h"

namespace vox::cli {

namespace {

constexpr std::size_t kAtOnce = 64;

std::vector<DeviceTarget> AllRemembered() {
  std::vector<DeviceTarget> targets;
  for (const DeviceInfo& device : SortedDevices(OpenRegistry())) {
    const auto address = device->String(kDeviceIpKey);
    if (is_device_of_type(*device, kDeviceTypeNetwork) && address)
      targets.push_back({DeviceName(*device), *address, device});
  }
  if (targets.empty())
    throw Failure(ExitStatus::kCannot, "no device is remembered; find some with vox discover");
  return targets;
}

// A device that was named twice counts once.
std::vector<DeviceTarget> Named(const std::vector<std::string>& names) {
  std::vector<DeviceTarget> targets;
  std::set<std::string> addresses;
  for (const std::string& name : names) {
    DeviceTarget target = FindDevice(name);
    if (target.remembered == nullptr) target.remembered = RememberedAt(target.address);
    if (addresses.insert(target.address).second) targets.push_back(std::move(target));
  }
  return targets;
}

class RegisterJob {
 public:
  explicit RegisterJob(const RegisterOptions& options) : options_(options) {}

  void Tell(const DeviceTarget& target, const Registration& outcome) {
    const bool done = outcome.state == RegistrationState::kAccepted;
    if (done) Remember(target);
    if (options_.json) PrintOut(JsonLine(Record(target, outcome)));
    if (!done) return Fail(RegistrationFailure(options_.wanted, target.label, outcome));
    if (!options_.json) PrintOut(CleanText(target.label) + ": " + Done() + "\n");
  }

  // Throws the failure that has not been told yet, with the status of the first one.
  void Finish() const {
    if (last_) throw Failure(*status_, last_->what());
  }

 private:
  std::string Done() const {
    return options_.wanted
               ? "lists this computer as " + CleanText(UserPreferences::instance().computerName())
               : "was asked to strike this computer from its list";
  }

  void Remember(const DeviceTarget& target) {
    if (target.remembered == nullptr) return;
    target.remembered->Set(kDevicePushKey, options_.wanted);
    try {
      BeforeSharedChange();
      OpenRegistry().saveDeviceInfo(target.remembered->String(kDeviceIdKey));
      AfterChange();
    } catch (const Failure& failure) {
      if (!unsaved_) Fail(failure);
      unsaved_ = true;
    }
  }

  void Fail(const Failure& failure) {
    if (last_) std::fprintf(stderr, "vox: %s\n", last_->what());
    if (!status_) status_ = failure.Status();
    last_ = failure;
  }

  Json Record(const DeviceTarget& target, const Registration& outcome) const {
    Json record = target.remembered != nullptr
                      ? DeviceRecord(*target.remembered)
                      : Json{{kDeviceTypeKey, kDeviceTypeNetwork}, {kDeviceIpKey, target.address}};
    record["result"] = StateName(outcome.state);
    record["reply"] = outcome.reply >= 0 ? Json(outcome.reply) : Json(nullptr);
    return record;
  }

  const RegisterOptions& options_;
  std::optional<Failure> last_;       // not told yet
  std::optional<ExitStatus> status_;  // of the first failure
  bool unsaved_ = false;
};

}  // namespace

void RunRegister(const RegisterOptions& options) {
  CancelWatch watch;
  const Premises premises(options.with, false, watch);
  premises.RememberVirtual();
  const std::vector<DeviceTarget> targets = options.all ? AllRemembered() : Named(options.names);
  std::vector<Registration> outcomes(targets.size());
  RunTogether(targets.size(), kAtOnce, [&](std::size_t i) {
    outcomes[i] = options.wanted ? Register(targets[i].address) : Unregister(targets[i].address);
  });
  watch.Finish();
  RegisterJob job(options);
  for (std::size_t i = 0; i < targets.size(); ++i) job.Tell(targets[i], outcomes[i]);
  job.Finish();
}

}  // namespace vox::cli
