#include "tests/e2e/discovery/Scenario.h"

#include <fstream>
#include <stdexcept>

namespace vox::test {
namespace {

// A byte at text[place], which moves behind it.
char TakeByte(const std::string& text, std::size_t& place) {
  if (text.compare(place, 2, "\\x") != 0) return text[place++];
  place += 4;
  return static_cast<char>(std::stoul(text.substr(place - 2, 2), nullptr, 16));
}

std::vector<std::string> Words(const std::string& line) {
  std::vector<std::string> words;
  bool quoted = false, inside = false;
  for (std::size_t place = 0; place < line.size();) {
    if (line[place] == '"') {
      quoted = !quoted;
      if (!inside) words.emplace_back();
      inside = true;
      ++place;
    } else if (line[place] == ' ' && !quoted) {
      inside = false;
      ++place;
    } else {
      if (!inside) words.emplace_back();
      inside = true;
      words.back() += TakeByte(line, place);
    }
  }
  if (quoted) throw std::runtime_error("a quote without its end: " + line);
  return words;
}

}  // namespace

std::multimap<std::string, std::string> Step::Options(std::size_t first) const {
  std::multimap<std::string, std::string> options;
  for (std::size_t i = first; i < words.size(); ++i) {
    const std::size_t sign = words[i].find('=');
    if (sign == std::string::npos) throw std::runtime_error("no NAME=VALUE: " + words[i]);
    options.emplace(words[i].substr(0, sign), words[i].substr(sign + 1));
  }
  return options;
}

std::vector<Step> ReadScenario(const std::string& path) {
  std::ifstream file(path);
  if (!file) throw std::runtime_error("no scenario " + path);
  std::vector<Step> steps;
  std::size_t number = 0;
  for (std::string line; std::getline(file, line);) {
    ++number;
    if (line.empty() || line[0] == '#') continue;
    std::vector<std::string> words = Words(line);
    if (words.empty()) continue;
    steps.push_back({number, words[0], {words.begin() + 1, words.end()}});
  }
  return steps;
}

}  // namespace vox::test
