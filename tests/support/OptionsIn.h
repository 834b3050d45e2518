// The options that a text names, so that a program's help and its manual can be held together.
#pragma once

#include <iterator>
#include <regex>
#include <set>
#include <string>

namespace vox::test {

// OptionsIn gives the long options in `text`, but those that every program has.
inline std::set<std::string> OptionsIn(const std::string& text) {
  static const std::regex option("--[a-z][a-z-]*");
  std::set<std::string> names;
  for (std::sregex_iterator it(text.begin(), text.end(), option), end; it != end; ++it)
    names.insert(it->str());
  names.erase("--help");
  names.erase("--version");
  return names;
}

}  // namespace vox::test
