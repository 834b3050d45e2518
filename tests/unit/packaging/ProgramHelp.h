// What programs say of themselves with --help: their options and verbs.
#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

namespace vox::test {

using Options = std::set<std::string>;  // as they are given: "--json", "-o"

struct ProgramHelp {
  Options options;
  std::vector<std::string> verbs;
};

// ReadHelp takes the text apart that CLI11 makes.
ProgramHelp ReadHelp(const std::string& text);

// HelpOf asks the program, with the verb behind it where there is one.
ProgramHelp HelpOf(const std::string& program, const std::string& verb);

// HelpByVerb asks the program about itself, under its name, and about each verb that has no verbs
// of its own, under both names: "vox", "vox scan", "vox settings get".
std::map<std::string, Options> HelpByVerb(const std::string& name, const std::string& program);

// LongOnly gives the options that begin with two hyphens.
Options LongOnly(const Options& options);

}  // namespace vox::test
