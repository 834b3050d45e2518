#include "tools/vox/OpenedDevice.h"

#include <array>

#include "tools/vox/CancelWatch.h"
#include "tools/vox/Failure.h"
#include "tools/vox/NetworkName.h"
#include "tools/vox/VirtualSetup.h"
#include "vox/drivers/net/TwImgIFNW.h"
#include "vox/drivers/net/search.h"

namespace vox::cli {

OpenedDevice::OpenedDevice(const DeviceOptions& options, bool both_sides, CancelWatch& watch)
    : label_(options.with.on ? "the virtual device" : options.name) {
  if (options.with.on) {
    watch.Prepare([&]() -> CancelWatch::Action {
      virtual_ = std::make_unique<VirtualSetup>(options.with, both_sides);
      return [root = virtual_->Root()] { PrivateFolder::Remove(root); };
    });
    address_ = virtual_->Address();
  } else {
    address_ = NetworkAddress(options.name);
  }
  ReadName();
  interface_ = std::make_unique<CTwImgIFNW>(name_.c_str(), address_.c_str());
  ReadAbilities();
}

OpenedDevice::~OpenedDevice() = default;

void OpenedDevice::ReadName() {
  std::array<char, 256> name{};
  if (get_name(address_.c_str(), name.data(), static_cast<std::int32_t>(name.size())) != 0)
    throw DeviceFailure("ask for the name", label_, IF_ERR_STS_DEVICE_COMM_ERR);
  name_ = name.data();
}

void OpenedDevice::ReadAbilities() {
  if (!interface_->GetDevInfo(&abilities_.common))
    throw DeviceFailure("ask what can be done", label_, interface_->GetIfErrorStatus());
  tagSCANDEVINFO unit{};
  for (std::uint32_t i = 0; interface_->GetUnitInfo(i, &unit); ++i)
    abilities_.units.push_back(unit);
}

}  // namespace vox::cli
