// A hostile device at USB: the input is all that it sends. An even first byte: transfers, each
// behind its length (two bytes), that answer whatever a client asks: the capabilities, a scan, the
// page's information, headers and blocks. Property: every call ends, and nothing of the device
// stays claimed. An odd one: the bytes of a page, headers and blocks, read in lines of as many
// bytes as the second byte says. Property: the lines are the blocks' bytes one after the other,
// white once the page has ended.
#include <algorithm>
#include <cstdlib>

#include "tests/support/FakeTransport.h"
#include "tests/support/FakeUsbPort.h"
#include "vox/drivers/SessionSystem.h"
#include "vox/drivers/usb/TwImgIFUsb.h"
#include "vox/platform/Bytes.h"

namespace {

using vox::ByteReader, vox::test::Bytes, vox::test::FakeUsbAnswer, vox::test::FakeUsbTransfer;
constexpr std::size_t kGreatestBlock = 1 << 20;
constexpr int kLines = 40;

FakeUsbAnswer Sends(std::optional<std::span<const std::uint8_t>> bytes) {
  if (!bytes) return {vox::kIOReturnNotResponding, {}};
  return {vox::kIOReturnSuccess, Bytes(bytes->begin(), bytes->end())};
}

// Session plays a client: capabilities, two pages, and the end of the job.
void Session(vox::CTwImgIFUsb& scanner) {
  vox::tagSCANDEVINFO info{};
  scanner.GetDevInfo(&info);
  vox::test::PageShape shape;
  shape.width = 64;
  shape.length = kLines;
  Bytes line(shape.width);
  for (int page = 0; page < 2; ++page) {
    scanner.PrepareScan(vox::test::RequestFor(shape), true, false);
    if (!scanner.StartScan(false)) continue;
    for (int i = 0; i < kLines && scanner.ReadLine(line.data()) == 0; ++i) {
    }
    scanner.EndScan();
  }
}

// Lines reads the page and holds it against its blocks.
void Lines(vox::CTwImgIFUsb& scanner, ByteReader page, unsigned line_size) {
  Bytes data;
  bool ended = false;
  while (const auto header = page.Take(8)) {
    const std::uint32_t length = vox::LoadLe32(header->data());
    if ((*header)[4] == 0x32 && (*header)[5] == 4) continue;
    ended = length == 0;
    const auto block = page.Take(length);
    if (ended || length > kGreatestBlock || !block) break;
    data.insert(data.end(), block->begin(), block->end());
  }
  Bytes line(line_size);
  const Bytes white(line_size, 0xFF);
  scanner.Open();
  for (std::size_t at = 0; at < line_size * kLines; at += line_size) {
    unsigned got = 0;
    if (scanner.ReadScanData(line.data(), line_size, &got) != 0) continue;
    const bool whole = at + line_size <= data.size();
    const std::uint8_t* const expected = whole ? data.data() + at : white.data();
    if (got != line_size || (!whole && !ended) || !std::equal(line.begin(), line.end(), expected))
      std::abort();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  if (size < 2) return 0;
  vox::SessionSystem system = vox::CurrentSessionSystem();
  system.line_memory = [](std::size_t wanted) {
    return wanted <= kGreatestBlock ? std::malloc(wanted) : nullptr;
  };
  system.pause = [](std::chrono::milliseconds) {};
  vox::SetSessionSystem(system);
  const bool lines = bytes[0] % 2 != 0;
  ByteReader left(bytes + (lines ? 2 : 1), size - (lines ? 2 : 1));
  vox::test::FakeUsbPort port;
  vox::test::FakeUsbDevice device = vox::test::StillImageDevice("SN1");
  device.on_read = [&left, lines](std::uint32_t wanted, const FakeUsbTransfer&) {
    if (lines) return Sends(left.Take(std::min<std::size_t>(wanted, left.Left())));
    const auto length = left.Take(2);
    return Sends(length
                     ? left.Take(std::min<std::size_t>(vox::LoadLe16(length->data()), left.Left()))
                     : std::nullopt);
  };
  port.Attach(device);
  {
    vox::CTwImgIFUsb scanner("Veltronix QD7200", "SN1");
    const ByteReader page = left;
    if (lines) {
      Lines(scanner, page, bytes[1]);
    } else {
      Session(scanner);
    }
  }
  if (port.Held() != 0 || port.OpenDevices() != 0 || port.OpenInterfaces() != 0) std::abort();
  return 0;
}
