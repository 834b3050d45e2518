#include "tests/unit/packaging/ProgramHelp.h"

#include <algorithm>
#include <iterator>
#include <sstream>

#include <gtest/gtest.h>

#include "tests/unit/packaging/Said.h"

namespace vox::test {
namespace {

// The first word of an entry, "  -o,--output FILE     ...", in two.
void AddOptions(const std::string& line, Options& options) {
  std::istringstream words(line);
  std::string names;
  words >> names;
  std::istringstream each(names);
  for (std::string name; std::getline(each, name, ',');) options.insert(name);
}

std::string FirstWord(const std::string& line) {
  std::istringstream words(line);
  std::string word;
  words >> word;
  return word;
}

void AddVerbs(const std::string& name, const std::string& program, const std::string& verb,
              std::map<std::string, Options>& all) {
  const ProgramHelp help = HelpOf(program, verb);
  const std::string whole = verb.empty() ? name : name + " " + verb;
  if (verb.empty() || help.verbs.empty()) all[whole] = help.options;
  for (const std::string& below : help.verbs)
    AddVerbs(name, program, verb.empty() ? below : verb + " " + below, all);
}

}  // namespace

ProgramHelp ReadHelp(const std::string& text) {
  ProgramHelp help;
  std::istringstream lines(text);
  std::string heading;
  for (std::string line; std::getline(lines, line);) {
    if (line.empty() || line[0] != ' ') heading = line;
    if (line.size() < 3 || line.compare(0, 2, "  ") != 0 || line[2] == ' ') continue;
    if (heading == "Options:" && line[2] == '-') AddOptions(line, help.options);
    if (heading == "Subcommands:") help.verbs.push_back(FirstWord(line));
  }
  return help;
}

ProgramHelp HelpOf(const std::string& program, const std::string& verb) {
  int status = -1;
  const std::string text = Said("'" + program + "' " + verb + " --help", &status);
  EXPECT_EQ(status, 0) << program;
  return ReadHelp(text);
}

std::map<std::string, Options> HelpByVerb(const std::string& name, const std::string& program) {
  std::map<std::string, Options> all;
  AddVerbs(name, program, "", all);
  return all;
}

Options LongOnly(const Options& options) {
  Options longs;
  std::copy_if(options.begin(), options.end(), std::inserter(longs, longs.end()),
               [](const std::string& option) { return option.compare(0, 2, "--") == 0; });
  return longs;
}

}  // namespace vox::test
