// One block of a JBIG page: an 8-byte header, its numbers little-endian, and a bi-level image
// entity of its own (ITU-T T.82).
//
//   0  2  width, pixels
//   2  2  lines
//   4  4  bytes of coded data that follow the header
//
// Thread rule: pure functions.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "sim/Ber.h"
#include "sim/DeviceOptions.h"

namespace vox::sim {

inline constexpr std::size_t kBlockHeaderSize = 8;
inline constexpr std::size_t kImageHeaderSize = 20;
inline constexpr std::size_t kMaxBlock = 0x100000;  // header and coded data
inline constexpr std::uint32_t kMaxJbigWidth = 65528;

// BuildBlock codes `lines` lines of `width` pixels, line_bytes apart (at least (width + 7) / 8,
// bits beyond the width 0). Nothing: the block would pass kMaxBlock.
std::optional<Bytes> BuildBlock(std::span<const std::uint8_t> bitmap, std::uint32_t width,
                                std::uint32_t lines, std::size_t line_bytes,
                                const CodingOptions& coding);

}  // namespace vox::sim
