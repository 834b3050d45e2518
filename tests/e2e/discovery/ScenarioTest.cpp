// Every scenario file of this folder is a test. Where the machine does not permit networks of its
// own they are skipped, and say so.
#include <algorithm>
#include <filesystem>

#include "tests/e2e/discovery/Player.h"

namespace vox {
namespace {

std::vector<std::string> Scenarios() {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(VOX_SCENARIOS)) {
    if (entry.path().extension() == ".scenario") names.push_back(entry.path().stem());
  }
  std::sort(names.begin(), names.end());
  return names;
}

class Scenario : public Player, public ::testing::WithParamInterface<std::string> {};

TEST_P(Scenario, Plays) {
  Play(test::ReadScenario(VOX_SCENARIOS "/" + GetParam() + ".scenario"));
}

INSTANTIATE_TEST_SUITE_P(Of, Scenario, ::testing::ValuesIn(Scenarios()),
                         [](const auto& scenario) { return scenario.param; });

}  // namespace
}  // namespace vox
