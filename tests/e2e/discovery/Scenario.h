// Scenario is a text of steps, one a line: a verb, then words. Words are parted by blanks; quotes
// hold blanks together, \xNN stands for a byte. A line that begins with # says nothing.
// Player.h has the verbs.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>

namespace vox::test {

struct Step {
  std::size_t line = 0;  // 1 is the file's first
  std::string verb;
  std::vector<std::string> words;

  // Options gives the words from `first` on as NAME=VALUE; a name may come more than once.
  std::multimap<std::string, std::string> Options(std::size_t first) const;
};

// ReadScenario throws std::runtime_error for a text that cannot be read.
std::vector<Step> ReadScenario(const std::string& path);

}  // namespace vox::test
