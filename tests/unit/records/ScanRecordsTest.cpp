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

TEST(ScanInfo, ThereAndBackIsIdentical) {
  const _SCANINFO from = Numbered();
  _SCANINFO wire{};
  _SCANINFO back = from;
  scaninfo2le(&wire, &from);
  scaninfo2cpu(&back, &wire);
  EXPECT_EQ(BytesOf(back), BytesOf(from));
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
