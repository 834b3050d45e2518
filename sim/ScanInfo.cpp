#include "sim/ScanInfo.h"

#include "vox/platform/Bytes.h"

namespace vox::sim {
namespace {

// ForEachWord calls f(offset, word) for every 32-bit field of the block, in wire order.
template <typename Info, typename F>
void ForEachWord(Info& info, F f) {
  f(0, info.data_type);
  f(4, info.intensity);
  f(8, info.contrast);
  f(12, info.x_resolution);
  f(16, info.y_resolution);
  f(20, info.x_pos);
  f(24, info.y_pos);
  f(28, info.x_extent);
  f(32, info.y_extent);
  f(36, info.data_alignment);
  f(40, info.unit_mode);
  f(44, info.preview);
  f(48, info.encode_type);
  for (std::size_t i = 0; i < info.host_reserved.size(); ++i) f(52 + 4 * i, info.host_reserved[i]);
  f(80, info.feeder);
  f(84, info.dither_pattern);
  f(88, info.negative);
  f(92, info.mirror);
  f(96, info.max_buffer_size);
  f(100, info.left_cut_margin);
  f(104, info.right_cut_margin);
  f(108, info.angle);
  f(116, info.device_reserved);
  f(120, info.firmware_switch);
  f(124, info.private_size);
}

}  // namespace

std::array<std::uint8_t, kScanInfoSize> BuildScanInfo(const ScanInfo& info) {
  std::array<std::uint8_t, kScanInfoSize> bytes{};
  ForEachWord(info, [&](std::size_t offset, std::uint32_t word) {
    StoreLe32(bytes.data() + offset, word);
  });
  bytes[112] = info.jbig_line_template;
  bytes[113] = info.jbig_typical_prediction;
  bytes[114] = info.encode_header_size;
  bytes[115] = info.device_reserved_byte;
  return bytes;
}

std::optional<ScanInfo> ParseScanInfo(std::span<const std::uint8_t> bytes) {
  if (bytes.size() != kScanInfoSize) return std::nullopt;
  ScanInfo info;
  ForEachWord(info, [&](std::size_t offset, std::uint32_t& word) {
    word = LoadLe32(bytes.data() + offset);
  });
  info.jbig_line_template = bytes[112];
  info.jbig_typical_prediction = bytes[113];
  info.encode_header_size = bytes[114];
  info.device_reserved_byte = bytes[115];
  return info;
}

std::uint32_t BitsPerPixel(std::uint32_t data_type) {
  switch (data_type) {
    case kBilevel:
      return 1;
    case kGrey:
      return 8;
    case kColour:
      return 24;
    default:
      return 0;
  }
}

std::uint64_t LineBytes(const ScanInfo& info) {
  return std::uint64_t{info.x_extent} * BitsPerPixel(info.data_type) / 8;
}

}  // namespace vox::sim
