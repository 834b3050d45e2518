// The scan-information block as the device sees it: 128 bytes, every number little-endian. A scan
// command carries it from the host; before each page the device sends it back, completed.
//
// Units: resolutions in dots per inch; positions, extents and margins in pixels at that resolution.
// Thread rule: plain values and pure functions.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace vox::sim {

inline constexpr std::size_t kScanInfoSize = 128;

// Values of ScanInfo::data_type.
inline constexpr std::uint32_t kBilevel = 0;
inline constexpr std::uint32_t kGrey = 2;
inline constexpr std::uint32_t kColour = 3;

struct ScanInfo {
  std::uint32_t data_type = kBilevel;            //   0: kBilevel, kGrey or kColour
  std::uint32_t intensity = 0;                   //   4: brightness, a signed percentage
  std::uint32_t contrast = 0;                    //   8: a signed percentage
  std::uint32_t x_resolution = 0;                //  12
  std::uint32_t y_resolution = 0;                //  16
  std::uint32_t x_pos = 0;                       //  20: the window's left edge
  std::uint32_t y_pos = 0;                       //  24: the window's top edge
  std::uint32_t x_extent = 0;                    //  28: pixels of a line, cut margins included
  std::uint32_t y_extent = 0;                    //  32: lines
  std::uint32_t data_alignment = 0;              //  36: bit 0: the host chose the size itself
  std::uint32_t unit_mode = 0;                   //  40: 0 one side, 0x302 or 0x10302 both sides
  std::uint32_t preview = 0;                     //  44: 1: a preview
  std::uint32_t encode_type = 0;                 //  48: 1: JBIG blocks may come
  std::array<std::uint32_t, 7> host_reserved{};  //  52
  std::uint32_t feeder = 0;                      //  80: 1: the page comes from the feeder
  std::uint32_t dither_pattern = 0;              //  84: threshold of bilevel pages, 0 the default
  std::uint32_t negative = 0;                    //  88: 1: black and white exchanged
  std::uint32_t mirror = 0;                      //  92: 1: left and right exchanged
  std::uint32_t max_buffer_size = 0;             //  96: bytes
  std::uint32_t left_cut_margin = 0;             // 100: pixels that the host cuts off at the left
  std::uint32_t right_cut_margin = 0;            // 104: pixels that the host cuts off at the right
  std::uint32_t angle = 0;                       // 108: 180: the page is sent turned by 180 degrees
  std::uint8_t jbig_line_template = 0;           // 112: 2 or 3
  std::uint8_t jbig_typical_prediction = 0;      // 113: 1: TPBON
  std::uint8_t encode_header_size = 0;           // 114: 0: raw lines; else bytes before coded data
  std::uint8_t device_reserved_byte = 0;         // 115
  std::uint32_t device_reserved = 0;             // 116
  std::uint32_t firmware_switch = 0;             // 120
  std::uint32_t private_size = 0;                // 124: bytes

  bool operator==(const ScanInfo&) const = default;
};

std::array<std::uint8_t, kScanInfoSize> BuildScanInfo(const ScanInfo& info);

// ParseScanInfo refuses anything but exactly 128 bytes; the values are not judged.
std::optional<ScanInfo> ParseScanInfo(std::span<const std::uint8_t> bytes);

// BitsPerPixel gives 1, 8 or 24, and 0 for a data type that no device knows.
std::uint32_t BitsPerPixel(std::uint32_t data_type);

// LineBytes gives the bytes of one line on the wire: x_extent times bits, divided by 8, truncated,
// as hosts count them. 64 bits, since x_extent may be anything.
std::uint64_t LineBytes(const ScanInfo& info);

}  // namespace vox::sim
