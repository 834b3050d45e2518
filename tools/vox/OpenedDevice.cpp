#include "tools/vox/OpenedDevice.h"

#include <array>

#include "tools/vox/Failure.h"
#include "tools/vox/Identity.h"
#include "vox/drivers/net/TwImgIFNW.h"
#include "vox/drivers/net/search.h"

namespace vox::cli {

namespace {

DeviceTarget Target(const std::string& name, const Premises& premises) {
  if (premises.IsVirtual()) return {"the virtual device", premises.Address(), nullptr};
  return FindDevice(name);
}

}  // namespace

OpenedDevice::OpenedDevice(const std::string& name, const Premises& premises)
    : premises_(premises), target_(Target(name, premises)) {
  if (target_.remembered != nullptr) {
    CheckIdentity();
    name_ = target_.remembered->String(kDeviceNameKey).value_or("");
  } else {
    ReadName();
  }
  interface_ = std::make_unique<CTwImgIFNW>(name_.c_str(), Address().c_str());
  ReadAbilities();
}

void OpenedDevice::CheckIdentity() const {
  const Identity identity = AskIdentity(target_);
  if (identity.who == Who::kSilent)
    throw Failure(ExitStatus::kIoError,
                  Label() + " does not answer: it was asked over SNMP at " + CleanText(Address()) +
                      ", where it was found last; check that it is on, or find it again with vox "
                      "discover");
  if (identity.who == Who::kOther)
    throw Failure(ExitStatus::kIoError,
                  "cannot use " + Label() + ": " + OtherDeviceReason(identity.mac, Address()));
}

void OpenedDevice::ReadName() {
  std::array<char, NET_NAME_SIZE> name{};
  if (get_name(Address().c_str(), name.data(), static_cast<std::int32_t>(name.size())) != 0)
    throw DeviceFailure("ask for the name", Label(), IF_ERR_STS_DEVICE_COMM_ERR);
  name_ = name.data();
}

void OpenedDevice::ReadAbilities() {
  if (!interface_->GetDevInfo(&abilities_.common))
    throw DeviceFailure("ask what can be done", Label(), interface_->GetIfErrorStatus());
  tagSCANDEVINFO unit{};
  for (std::uint32_t i = 0; interface_->GetUnitInfo(i, &unit); ++i)
    abilities_.units.push_back(unit);
}

}  // namespace vox::cli
