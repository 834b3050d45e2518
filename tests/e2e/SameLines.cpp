#include "tests/e2e/SameLines.h"

#include <algorithm>

namespace vox::test {

testing::AssertionResult SameLines(const std::vector<Line>& got,
                                   const std::vector<Line>& expected) {
  if (got.size() != expected.size()) {
    return testing::AssertionFailure() << got.size() << " lines instead of " << expected.size();
  }
  for (std::size_t i = 0; i < got.size(); ++i) {
    if (got[i] == expected[i]) continue;
    if (got[i].size() != expected[i].size()) {
      return testing::AssertionFailure() << "line " << i << " has " << got[i].size()
                                         << " bytes instead of " << expected[i].size();
    }
    const auto at = std::mismatch(got[i].begin(), got[i].end(), expected[i].begin());
    return testing::AssertionFailure()
           << "line " << i << " of " << got.size() << ", byte " << at.first - got[i].begin()
           << " of " << got[i].size() << ": " << unsigned{*at.first} << " instead of "
           << unsigned{*at.second};
  }
  return testing::AssertionSuccess();
}

}  // namespace vox::test
