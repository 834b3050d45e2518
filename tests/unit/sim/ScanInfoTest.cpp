#include "sim/ScanInfo.h"

#include <gtest/gtest.h>

#include <vector>

namespace vox::sim {
namespace {

// Every byte of the block has a value of its own.
std::vector<std::uint8_t> Counting() {
  std::vector<std::uint8_t> bytes(kScanInfoSize);
  for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<std::uint8_t>(i);
  return bytes;
}

std::uint32_t LittleEndianAt(std::uint32_t offset) {
  return offset | (offset + 1) << 8 | (offset + 2) << 16 | (offset + 3) << 24;
}

TEST(ScanInfo, EachFieldStandsAtItsOffset) {
  const auto info = ParseScanInfo(Counting());
  ASSERT_TRUE(info);
  EXPECT_EQ(info->data_type, LittleEndianAt(0));
  EXPECT_EQ(info->intensity, LittleEndianAt(4));
  EXPECT_EQ(info->contrast, LittleEndianAt(8));
  EXPECT_EQ(info->x_resolution, LittleEndianAt(12));
  EXPECT_EQ(info->y_resolution, LittleEndianAt(16));
  EXPECT_EQ(info->x_pos, LittleEndianAt(20));
  EXPECT_EQ(info->y_pos, LittleEndianAt(24));
  EXPECT_EQ(info->x_extent, LittleEndianAt(28));
  EXPECT_EQ(info->y_extent, LittleEndianAt(32));
  EXPECT_EQ(info->data_alignment, LittleEndianAt(36));
  EXPECT_EQ(info->unit_mode, LittleEndianAt(40));
  EXPECT_EQ(info->preview, LittleEndianAt(44));
  EXPECT_EQ(info->encode_type, LittleEndianAt(48));
  for (std::uint32_t i = 0; i < 7; ++i) {
    EXPECT_EQ(info->host_reserved[i], LittleEndianAt(52 + 4 * i));
  }
  EXPECT_EQ(info->feeder, LittleEndianAt(80));
  EXPECT_EQ(info->dither_pattern, LittleEndianAt(84));
  EXPECT_EQ(info->negative, LittleEndianAt(88));
  EXPECT_EQ(info->mirror, LittleEndianAt(92));
  EXPECT_EQ(info->max_buffer_size, LittleEndianAt(96));
  EXPECT_EQ(info->left_cut_margin, LittleEndianAt(100));
  EXPECT_EQ(info->right_cut_margin, LittleEndianAt(104));
  EXPECT_EQ(info->angle, LittleEndianAt(108));
  EXPECT_EQ(info->jbig_line_template, 112);
  EXPECT_EQ(info->jbig_typical_prediction, 113);
  EXPECT_EQ(info->encode_header_size, 114);
  EXPECT_EQ(info->device_reserved_byte, 115);
  EXPECT_EQ(info->device_reserved, LittleEndianAt(116));
  EXPECT_EQ(info->firmware_switch, LittleEndianAt(120));
  EXPECT_EQ(info->private_size, LittleEndianAt(124));
}

TEST(ScanInfo, WhatIsParsedBuildsTheSameBytes) {
  const auto bytes = Counting();
  const auto built = BuildScanInfo(*ParseScanInfo(bytes));
  EXPECT_EQ(std::vector<std::uint8_t>(built.begin(), built.end()), bytes);
}

TEST(ScanInfo, OnlyExactly128BytesAreABlock) {
  EXPECT_FALSE(ParseScanInfo(std::vector<std::uint8_t>(127)));
  EXPECT_FALSE(ParseScanInfo(std::vector<std::uint8_t>(129)));
  EXPECT_FALSE(ParseScanInfo({}));
}

TEST(ScanInfo, LineBytesAreTruncatedAndDoNotWrap) {
  ScanInfo info;
  info.x_extent = 15;
  EXPECT_EQ(LineBytes(info), 1u);
  info.data_type = kGrey;
  EXPECT_EQ(LineBytes(info), 15u);
  info.data_type = kColour;
  info.x_extent = 0xFFFFFFFF;
  EXPECT_EQ(LineBytes(info), 3u * 0xFFFFFFFFull);
  info.data_type = 1;
  EXPECT_EQ(LineBytes(info), 0u);
}

}  // namespace
}  // namespace vox::sim
