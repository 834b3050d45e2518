#include "tools/vox/Premises.h"

#include "tools/vox/CancelWatch.h"
#include "tools/vox/Failure.h"
#include "tools/vox/VirtualSetup.h"
#include "vox/DevicesManager.h"
#include "vox/drivers/net/search.h"

namespace vox::cli {

Premises::Premises(const VirtualOptions& with, bool both_sides, CancelWatch& watch) {
  if (!with.on) return;
  watch.Prepare([&]() -> CancelWatch::Action {
    virtual_ = std::make_unique<VirtualSetup>(with, both_sides);
    return [root = virtual_->Root()] {
      PrivateFolder::RemoveAndExit(root, static_cast<int>(ExitStatus::kCancelled));
    };
  });
}

Premises::~Premises() = default;

const std::string& Premises::Address() const {
  return virtual_->Address();
}

void Premises::RememberVirtual() const {
  if (!IsVirtual()) return;
  const DeviceInfo device = getNetworkDeviceInfo(nullptr, Address().c_str());
  if (device == nullptr)
    throw DeviceFailure("ask who it is", "the virtual device", IF_ERR_STS_DEVICE_COMM_ERR);
  DevicesManager::instance().appendOneDeviceInfo(device);
}

}  // namespace vox::cli
