#include "tests/unit/packaging/ManPage.h"

#include <regex>
#include <sstream>

namespace vox::test {
namespace {

// A page writes a hyphen that is typed as "\-", and a name in quotes where it has blanks.
std::string Plain(const std::string& line) {
  std::string plain = std::regex_replace(line, std::regex(R"(\\-)"), "-");
  plain = std::regex_replace(plain, std::regex(R"(\\f[BIRP])"), "");
  return std::regex_replace(plain, std::regex("\""), "");
}

// Words such as --json and -o; not the hyphens inside of words, and no negative numbers.
Options OptionsIn(const std::string& line) {
  static const std::regex word(R"((^|[^\w-])(--[a-z][a-z-]*|-[a-z])(?![\w-]))");
  Options options;
  for (std::sregex_iterator i(line.begin(), line.end(), word), end; i != end; ++i)
    options.insert((*i)[2]);
  return options;
}

}  // namespace

ManPage ReadManPage(const std::string& source) {
  ManPage page;
  std::string synopsis;
  bool tag = false;
  std::istringstream lines(source);
  for (std::string line; std::getline(lines, line);) {
    if (line.compare(0, 3, ".\\\"") == 0) continue;
    const std::string plain = Plain(line);
    const Options options = OptionsIn(plain);
    page.mentioned.insert(options.begin(), options.end());
    if (plain.compare(0, 4, ".SY ") == 0) page.synopses[synopsis = plain.substr(4)];
    if (!synopsis.empty()) page.synopses[synopsis].insert(options.begin(), options.end());
    if (plain == ".YS") synopsis.clear();
    if (tag) page.explained.insert(options.begin(), options.end());
    tag = plain == ".TP";
  }
  return page;
}

}  // namespace vox::test
