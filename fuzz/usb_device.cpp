// What a hostile host does to the virtual device's pipes: transfers of any bytes, reads of any
// size, cleared halts, unplugging. The input is a list of steps; a step that ends it early is left
// out. Properties: no read gives more than it has room for, and once unplugged nothing comes.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <span>

#include "sim/UsbDevice.h"
#include "vox/platform/Bytes.h"

namespace {

using namespace vox::sim;

void Expect(bool holds) {
  if (!holds) std::abort();
}

void Read(UsbScanner& scanner, std::size_t room) {
  for (int i = 0; i < 8; ++i) {
    const UsbIn in = scanner.OnBulkIn(room);
    Expect(in.bytes.size() <= room);
    Expect(in.bytes.empty() || in.status == UsbStatus::kOk || in.status == UsbStatus::kOverflow);
    Expect(scanner.IsPlugged() || i > 0 || in.status == UsbStatus::kGone || !in.bytes.empty());
    if (in.status != UsbStatus::kOk) return;
  }
}

DeviceOptions Options(std::uint8_t choice) {
  DeviceOptions options;
  options.flatbed->physical_width = options.flatbed->physical_height = 5000;
  options.usb.block_bytes = {choice, 1000};
  options.usb.joined_headers = (choice & 1) != 0;
  options.usb.information_in_two = (choice & 2) != 0;
  if ((choice & 4) != 0) options.faults.every.headers = 2;
  if ((choice & 8) != 0) options.faults.halt_in = {Stage::kData, choice};
  if ((choice & 16) != 0) options.faults.check_error = choice;
  if ((choice & 32) != 0) options.sheets = {{MakeBlankPage({5000, 5000}), nullptr}};
  return options;
}

// The 128-byte block of a command could ask for more lines than a fuzzer has time for.
bool IsSmall(std::span<const std::uint8_t> packet) {
  return packet.size() < 56 || vox::LoadLe32(&packet[52]) < 2000;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  UsbDevice device(Options(data[0]));
  if (!device.Error().empty()) return 0;
  vox::ByteReader steps(data + 1, size - 1);
  while (const auto step = steps.TakeU8()) {
    UsbScanner& scanner = device.Scanner();
    const auto count = steps.TakeU8().value_or(0);
    if (*step % 6 == 0) {
      const auto bytes = steps.Take(count);
      if (bytes && IsSmall(*bytes)) scanner.OnBulkOut(*bytes);
      scanner.OnBulkOut({});
    }
    if (*step % 6 == 1) Read(scanner, std::size_t{count} * 64);
    if (*step % 6 == 2) Read(scanner, count);
    if (*step % 6 == 3) scanner.ClearHalt((count & 1) != 0 ? UsbPipe::kIn : UsbPipe::kOut);
    if (*step % 6 == 4) (count & 1) != 0 ? scanner.Plug() : scanner.Unplug();
    if (*step % 6 == 5) scanner.Reset();
  }
  return 0;
}
