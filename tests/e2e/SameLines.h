// SameLines says where two pages differ first.
//
// Thread rule: pure function.
#pragma once

#include <vector>

#include <gtest/gtest.h>

#include "tests/support/PlainKernels.h"

namespace vox::test {

testing::AssertionResult SameLines(const std::vector<Line>& got, const std::vector<Line>& expected);

}  // namespace vox::test
