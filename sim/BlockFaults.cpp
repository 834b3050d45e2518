#include "sim/BlockFaults.h"

#include "sim/JbigBlock.h"
#include "vox/platform/Bytes.h"

namespace vox::sim {
namespace {

// Noise that holds no marker: no byte is 0xFF.
void FillWithNoise(Bytes& block, std::size_t from) {
  std::uint32_t state = 12345;
  for (std::size_t i = from; i < block.size(); ++i) {
    state = state * 1664525 + 1013904223;
    block[i] = static_cast<std::uint8_t>((state >> 24) % 255);
  }
}

}  // namespace

bool SpoilBlock(BlockFault fault, std::size_t header_size, Bytes& block) {
  std::uint8_t* const width = block.data();
  std::uint8_t* const lines = block.data() + 2;
  std::uint8_t* const length = block.data() + 4;
  switch (fault) {
    case BlockFault::kNone:
      return false;
    case BlockFault::kWidth:
      StoreLe16(width, static_cast<std::uint16_t>(LoadLe16(width) + 8));
      return false;
    case BlockFault::kTooLong:
      StoreLe32(length, static_cast<std::uint32_t>(kMaxBlock + 1 - header_size));
      block.resize(kMaxBlock + 1);
      return false;
    case BlockFault::kHostile:
      StoreLe32(length, 0xFFFFFFF8);
      return false;
    case BlockFault::kHuge:
      StoreLe16(width, 0xFFFF);
      StoreLe16(lines, 0xFFFF);
      return false;
    case BlockFault::kNoLines:
      StoreLe16(lines, 0);
      return false;
    case BlockFault::kMoreLines:
      StoreLe16(lines, static_cast<std::uint16_t>(LoadLe16(lines) + 1));
      return false;
    case BlockFault::kGarbage:
      FillWithNoise(block, header_size);
      return false;
    case BlockFault::kCutHeader:
      block.resize(5);
      return true;
    case BlockFault::kCutData:
      block.resize(header_size + (block.size() - header_size) / 2);
      return true;
  }
  return false;
}

}  // namespace vox::sim
