#include "frontends/sane/Scanner.h"

#include <array>

#include "frontends/sane/Log.h"
#include "tools/vox/Failure.h"
#include "tools/vox/Identity.h"
#include "tools/vox/NetworkName.h"
#include "tools/vox/UsbDevice.h"
#include "vox/drivers/net/TwImgIFNW.h"
#include "vox/drivers/net/search.h"
#include "vox/drivers/usb/TwImgIFUsb.h"

namespace vox::sane {

namespace {

using cli::ExitStatus;
using cli::Failure;

[[noreturn]] void FailGone(const std::string& name) {
  throw Failure(ExitStatus::kCannot, name + " is not there");
}

bool IsAt(const DeviceInfo& device) {
  const std::string address = device->String(kDeviceIpKey).value_or("");
  return cli::IsDottedAddress(address) &&
         cli::AskIdentity({{}, address, device}).who == cli::Who::kSame;
}

}  // namespace

Scanner::Scanner(const std::string& name, Devices& devices) {
  if (cli::IsUsbName(name)) {
    OpenUsb(cli::UsbSerial(name), devices);
  } else if (IsMacName(name)) {
    OpenByMac(name, devices);
  } else if (cli::IsNetworkName(name) || cli::IsDottedAddress(name)) {
    OpenAt(cli::NetworkAddress(name));
  } else {
    FailGone(name);
  }
  ReadAbilities();
}

void Scanner::OpenUsb(const std::string& serial, Devices& devices) {
  usb_ = devices.AtUsb(serial);
  if (usb_ == nullptr) FailGone("usb:" + serial);
  if (const auto trouble = cli::FindUsbTrouble(*usb_)) {
    const bool gone = trouble->status == ExitStatus::kIoError;
    throw Failure(gone ? ExitStatus::kCannot : trouble->status, trouble->reason);
  }
  interface_ = std::make_unique<CTwImgIFUsb>(usb_->String(kDeviceModelNameKey).value_or("").c_str(),
                                             serial.c_str());
}

void Scanner::OpenByMac(const std::string& name, Devices& devices) {
  DeviceInfo device = devices.Remembered(name);
  if (device == nullptr || !IsAt(device)) {
    Log(2, "%s is %s; vox.conf's devices are asked, then the network where vox.conf allows it",
        name.c_str(), device == nullptr ? "not remembered" : "not where it was");
    device = devices.SearchFor(name);
    if (device == nullptr || !IsAt(device)) FailGone(name);
  }
  OpenAt(device->String(kDeviceIpKey).value_or(""));
}

void Scanner::OpenAt(const std::string& address) {
  std::array<char, NET_NAME_SIZE> name{};
  if (get_name(address.c_str(), name.data(), static_cast<std::int32_t>(name.size())) != 0)
    FailGone(address);
  interface_ = std::make_unique<CTwImgIFNW>(name.data(), address.c_str());
}

void Scanner::ReadAbilities() {
  if (!interface_->GetDevInfo(&what_.common))
    throw Failure(ExitStatus::kIoError, "it does not say what it can do");
  what_.units.clear();
  tagSCANDEVINFO unit{};
  for (std::uint32_t i = 0; interface_->GetUnitInfo(i, &unit); ++i) what_.units.push_back(unit);
}

bool Scanner::PaperInFeeder() {
  if (AtUsb()) return true;
  tagSCANDEVINFO now{};
  if (!interface_->GetDevInfo(&now))
    throw Failure(ExitStatus::kIoError, "it does not say whether paper lies in its feeder");
  return now.byAdfPaper != 0;
}

void Scanner::CheckUsb() const {
  if (!AtUsb()) return;
  if (const auto trouble = cli::FindUsbTrouble(*usb_))
    throw Failure(trouble->status, trouble->reason);
}

}  // namespace vox::sane
