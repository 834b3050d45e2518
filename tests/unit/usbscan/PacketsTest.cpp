// Packets as bytes: headers of commands, records of device information, headers of blocks.
#include <cstring>

#include <gtest/gtest.h>

#include "tests/support/Hex.h"
#include "vox/drivers/usb/UsbPackets.h"

namespace vox::test {
namespace {

struct CommandRow {
  std::uint8_t command;
  std::uint8_t param_size;
};
class CommandHeader : public testing::TestWithParam<CommandRow> {};

TEST_P(CommandHeader, HasTheSizeOfItsParameter) {
  _MFPPKTHDR hdr;
  std::memset(&hdr, 0xEE, sizeof hdr);
  MakeMfpHeader(&hdr, static_cast<char>(GetParam().command));
  EXPECT_EQ(ToHex(reinterpret_cast<const std::uint8_t*>(&hdr), sizeof hdr),
            ToHex(Hex("4D 46 50 50 30 32 30 30 4D 4C 30 31 00 00 32") +
                  Bytes{GetParam().command, GetParam().param_size, 0, 0, 0}));
}

INSTANTIATE_TEST_SUITE_P(Table, CommandHeader,
                         testing::Values(CommandRow{0x10, 0}, CommandRow{0x22, 4},
                                         CommandRow{0x41, 0x80}, CommandRow{0x50, 8},
                                         CommandRow{0x51, 8}, CommandRow{0x62, 8},
                                         CommandRow{0x00, 0}, CommandRow{0xFF, 0}));

TEST(UsbRecord, NumbersComeWithTheirLowByteFirst) {
  _SCANINF1 record{};
  Bytes wire(sizeof record);
  for (std::size_t i = 0; i < wire.size(); ++i) wire[i] = static_cast<std::uint8_t>(i);
  std::memcpy(&record, wire.data(), wire.size());
  scaninf2cpu(&record);
  EXPECT_EQ(record.source.src[0].dwType, 0x03020100u);
  EXPECT_EQ(record.source.src[0].dwMaxWidth, 0x0B0A0908u);
  EXPECT_EQ(record.source.src[1].dwType, 0x37363534u);
  EXPECT_EQ(record.source.src[1].dwColorPreXReso, 0x67666564u);
}

TEST(BlockHeader, IsTakenApart) {
  const Bytes wire = Hex("10 00 00 00 32 02 01 07");
  const tagUSBSCANDATAHEADER hdr = scandatahdr2cpu(wire.data());
  EXPECT_EQ(hdr.dwLength, 16u);
  EXPECT_EQ(hdr.byAppCode, 0x32);
  EXPECT_EQ(hdr.byCommand, 2);
  EXPECT_EQ(hdr.byParam0, 1);
  EXPECT_EQ(hdr.byParam1, 7);
  EXPECT_EQ(scandatahdr2cpu(Hex("01 02 03 84 00 00 00 00").data()).dwLength, 0x84030201u);
}

TEST(ReplyHeader, HasItsLengthFromTheThirdByteOn) {
  tagUSBSCANINFOHEADER hdr{};
  std::memcpy(&hdr, Hex("FF FF 01 02 03 04 FF FF").data(), sizeof hdr);
  EXPECT_EQ(scaninf_length(hdr), 0x04030201u);
}

}  // namespace
}  // namespace vox::test
