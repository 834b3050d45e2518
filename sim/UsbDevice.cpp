#include "sim/UsbDevice.h"

#include <utility>

#include "sim/FaultBox.h"
#include "sim/JobDesk.h"
#include "sim/PageStream.h"

namespace vox::sim {
namespace {

std::string Settle(DeviceOptions& options) {
  std::string error = SettleOptions(options);
  if (!error.empty()) return error;
  if (options.usb.max_packet != 64 && options.usb.max_packet != 512) {
    return "largest packet: 64 or 512 bytes";
  }
  if (options.usb.block_bytes.empty()) return "no size of blocks";
  if (options.usb.product.empty()) options.usb.product = options.model;
  return {};
}

DeviceOptions SettledUsb(DeviceOptions options, std::string& error) {
  error = Settle(options);
  return options;
}

}  // namespace

class UsbDevice::Impl {
 public:
  Impl(DeviceOptions given, std::function<UsbScanner::Clock::time_point()> now)
      : options(SettledUsb(std::move(given), error)),
        faults(options.faults),
        desk(options, events),
        cache(options.cache_bytes, options.coding),
        scanner(options, desk, faults, cache, events, std::move(now)) {}

  std::string error;
  const DeviceOptions options;
  EventLog events;
  FaultBox faults;
  JobDesk desk;
  PageCache cache;
  UsbScanner scanner;
};

UsbDevice::UsbDevice(DeviceOptions options, std::function<UsbScanner::Clock::time_point()> now)
    : impl_(std::make_unique<Impl>(std::move(options), std::move(now))) {}
UsbDevice::~UsbDevice() = default;

const std::string& UsbDevice::Error() const {
  return impl_->error;
}
const DeviceOptions& UsbDevice::Options() const {
  return impl_->options;
}
UsbScanner& UsbDevice::Scanner() {
  return impl_->scanner;
}
EventLog& UsbDevice::Events() {
  return impl_->events;
}
std::size_t UsbDevice::SheetsLeft() const {
  return impl_->desk.SheetsLeft();
}
Forecast UsbDevice::Foretell() const {
  return {impl_->options, impl_->desk.LoadedSheets()};
}

void UsbDevice::SetFaults(const Faults& faults) {
  impl_->faults.Set(faults);
  impl_->scanner.GoOn();
}

void UsbDevice::LoadFeeder(std::vector<Sheet> sheets) {
  std::erase_if(sheets, [](const Sheet& sheet) { return !sheet.front; });
  impl_->desk.LoadFeeder(std::move(sheets));
}

}  // namespace vox::sim
