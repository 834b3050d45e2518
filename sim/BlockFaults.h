// What a broken device does to a JBIG block.
//
// Thread rule: pure function.
#pragma once

#include <cstddef>

#include "sim/Ber.h"
#include "sim/Faults.h"

namespace vox::sim {

// SpoilBlock changes a whole block (header and data) as the fault says; header_size is where the
// coded data begin. True: the channel is to be closed behind it.
bool SpoilBlock(BlockFault fault, std::size_t header_size, Bytes& block);

}  // namespace vox::sim
