// The records' conversions and texts; their sizes and offsets are asserted in the header.
#include "vox/drivers/ScanRecords.h"

#include <array>
#include <cstring>

#include <gtest/gtest.h>

#include "vox/platform/Bytes.h"

namespace vox {
namespace {

using Block = std::array<std::uint8_t, 128>;

bool IsReserved(std::size_t offset) {
  return (offset >= 52 && offset < 80) || offset == 115 || (offset >= 116 && offset < 120);
}

Block BytesOf(const _SCANINFO& info) {
  Block bytes;
  std::memcpy(bytes.data(), &info, bytes.size());
  return bytes;
}

_SCANINFO Numbered() {
  Block bytes;
  for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<std::uint8_t>(i + 1);
  _SCANINFO info;
  std::memcpy(&info, bytes.data(), bytes.size());
  return info;
}

_SCANINFO Filled(int byte) {
  _SCANINFO info;
  std::memset(&info, byte, sizeof info);
  return info;
}

TEST(ScanInfo, WireOrderIsLittleEndian) {
  _SCANINFO info{};
  info.Xresolution = 0x01020304;
  info.dwAngle = 180;
  _SCANINFO wire{};
  scaninfo2le(&wire, &info);
  const Block bytes = BytesOf(wire);
  EXPECT_EQ(LoadLe32(&bytes[12]), 0x01020304u);
  EXPECT_EQ(bytes[12], 0x04);
  EXPECT_EQ(LoadLe32(&bytes[108]), 180u);
}

TEST(ScanInfo, ReservedAreasOfTheDestinationStayUntouched) {
  const _SCANINFO from = Numbered();
  for (auto convert : {scaninfo2le, scaninfo2cpu}) {
    _SCANINFO to = Filled(0xA5);
    convert(&to, &from);
    const Block bytes = BytesOf(to);
    int untouched = 0;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
      if (IsReserved(i)) {
        EXPECT_EQ(bytes[i], 0xA5) << "offset " << i;
        ++untouched;
      } else {
        EXPECT_NE(bytes[i], 0xA5) << "offset " << i;
      }
    }
    EXPECT_EQ(untouched, 33);
  }
}

// Neither end starts with anything of the block that is sent, so that a field which either way
// leaves out, or puts elsewhere, shows.
TEST(ScanInfo, ThereAndBackIsIdentical) {
  const _SCANINFO from = Numbered();
  _SCANINFO wire = Filled(0xA5);
  _SCANINFO back = Filled(0x5A);
  scaninfo2le(&wire, &from);
  scaninfo2cpu(&back, &wire);
  const Block sent = BytesOf(from), arrived = BytesOf(back);
  for (std::size_t i = 0; i < sent.size(); ++i) {
    EXPECT_EQ(arrived[i], IsReserved(i) ? 0x5A : sent[i]) << "offset " << i;
  }
}

// Every u32 goes over the wire with its low byte first, at the place that the block has for it.
TEST(ScanInfo, EveryFieldIsLittleEndianAtItsPlace) {
  const _SCANINFO from = Numbered();
  const Block held = BytesOf(from);
  _SCANINFO wire = Filled(0);
  scaninfo2le(&wire, &from);
  const Block sent = BytesOf(wire);
  for (std::size_t i = 0; i < sent.size(); i += 4) {
    std::uint32_t value = 0;
    std::memcpy(&value, &held[i], sizeof value);
    if (!IsReserved(i) && i != 112) {
      EXPECT_EQ(LoadLe32(&sent[i]), value) << "offset " << i;
    }
  }
  for (std::size_t i = 112; i < 115; ++i) EXPECT_EQ(sent[i], held[i]) << "offset " << i;
}

TEST(ScanInfo, ConvertsInPlace) {
  _SCANINFO info = Numbered();
  _SCANINFO expected = info;
  scaninfo2le(&expected, &info);
  scaninfo2le(&info, &info);
  EXPECT_EQ(BytesOf(info), BytesOf(expected));
}

TEST(IfErrorText, BeginsWithABlankAndKeepsItsSpelling) {
  const char* const texts[] = {" no error",
                               " internal error",
                               " memory error",
                               " communication error",
                               " device busy error",
                               " device responded with error",
                               " device responded  cancel",
                               " check error",
                               " no document"};
  for (std::uint32_t status = 0; status < 9; ++status) {
    EXPECT_EQ(IfErrorText(status), texts[status]);
  }
}

}  // namespace
}  // namespace vox
