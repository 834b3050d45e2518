#include "tools/vox/OpenedDevice.h"

#include <array>

#include "tools/vox/Identity.h"
#include "tools/vox/KnownDevices.h"
#include "tools/vox/UsbDevice.h"
#include "vox/drivers/net/TwImgIFNW.h"
#include "vox/drivers/net/search.h"
#include "vox/drivers/usb/TwImgIFUsb.h"
#include "vox/platform/DescriptorRefusals.h"

namespace vox::cli {

namespace {

DeviceTarget Target(const std::string& name, const Premises& premises) {
  if (premises.IsVirtual()) return {"the virtual device", premises.Address(), nullptr};
  return FindDevice(name);
}

}  // namespace

OpenedDevice::OpenedDevice(const std::string& name, const Premises& premises)
    : premises_(premises), target_(Target(name, premises)) {
  if (AtUsb() != nullptr) {
    OpenUsb();
  } else {
    OpenNetwork();
  }
  ReadAbilities();
}

void OpenedDevice::OpenUsb() {
  const Dictionary& device = *AtUsb();
  if (const auto trouble = FindUsbTrouble(device))
    throw Failure(trouble->status, "cannot use " + Label() + ": " + trouble->reason);
  name_ = device.String(kDeviceModelNameKey).value_or("");
  interface_ = std::make_unique<CTwImgIFUsb>(
      name_.c_str(), device.String(kDeviceSerialNumberKey).value_or("").c_str());
}

void OpenedDevice::OpenNetwork() {
  if (target_.remembered != nullptr) {
    CheckIdentity();
    name_ = target_.remembered->String(kDeviceNameKey).value_or("");
  } else {
    ReadName();
  }
  interface_ = std::make_unique<CTwImgIFNW>(name_.c_str(), Address().c_str());
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

Failure OpenedDevice::Trouble(const std::string& what, std::uint32_t status) const {
  const bool lost = status == IF_ERR_STS_DEVICE_COMM_ERR && AtUsb() != nullptr;
  if (!lost || !IsUnplugged(*AtUsb())) return DeviceFailure(what, Label(), status);
  return Failure(ExitStatus::kIoError, "cannot " + what + " on " + Label() +
                                           ": it was unplugged, or switched off; plug it in and " +
                                           "try again");
}

void OpenedDevice::ReadAbilities() {
  const std::uint32_t refused = DescriptorRefusalsHere();
  if (!interface_->GetDevInfo(&abilities_.common)) {
    if (DescriptorRefusalsHere() != refused)
      throw Failure(ExitStatus::kNoMemory,
                    "cannot ask what can be done on " + Label() + ": " + kTooFewDescriptors);
    throw Trouble("ask what can be done", interface_->GetIfErrorStatus());
  }
  tagSCANDEVINFO unit{};
  for (std::uint32_t i = 0; interface_->GetUnitInfo(i, &unit); ++i)
    abilities_.units.push_back(unit);
}

}  // namespace vox::cli
