// Compares the decoder with the oracle on one coded image.
#pragma once

#include <span>
#include <string>

#include "tests/support/JbigDriver.h"

namespace vox::test {

// CompareWithOracle decodes the same data with both: the decoder with line buffers and pieces of
// the sizes given (without `piece`, all data at once). After every call it compares the status, the
// lines, the registers, the whole state, the contexts and the reference lines.
// Returns: what differed first; empty when nothing did.
std::string CompareWithOracle(const JbigShape& shape, std::span<const std::uint8_t> coded,
                              const Sizes& buffer_lines, const Sizes& piece);

}  // namespace vox::test
