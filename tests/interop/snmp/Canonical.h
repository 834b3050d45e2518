// BER allows several forms of a length, and this system writes some headers with a fixed width.
// Canonical gives a message with every length in its shortest form; what is left then has one form
// only, so two encoders of one message must agree byte for byte.
#pragma once

#include "tests/support/Hex.h"

namespace vox::test {

// Canonical rewrites a well-formed message; empty when it is not well-formed.
Bytes Canonical(const Bytes& message);

}  // namespace vox::test
