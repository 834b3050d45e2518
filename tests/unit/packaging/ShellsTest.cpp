// The completions for zsh and fish, as they are installed, offer what the programs' help says.
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/unit/core/Scratch.h"
#include "tests/unit/packaging/ProgramHelp.h"
#include "tests/unit/packaging/Said.h"

namespace vox::test {
namespace {

using testing::ElementsAre;

struct Shell {
  const char* name;
  // With the installed folder "share" as first argument, then the words, of which the last one
  // grows: prints each offer on a line, an option with its meaning behind `between`; "files" where
  // a file's name belongs.
  const char* script;
  char between;
};

void PrintTo(const Shell& shell, std::ostream* out) {
  *out << shell.name;
}

// zsh's own functions are replaced by what tells how they were called.
constexpr Shell kZsh{"zsh", R"(zsh -fc '
  fpath=($1/zsh/site-functions $fpath); shift; autoload -Uz _vox
  _describe() { print -rl -- "${(@P)2}" }
  _files() { print files }
  _normal() { [[ "$CURRENT $words" != "2 sub sc" ]] || print scan }
  compset() { :; }
  words=("$@"); CURRENT=$#; PREFIX=$@[-1]; _vox' zsh)",
                     ':'};

constexpr Shell kFish{"fish", R"(HOME="$SCRATCH" XDG_CONFIG_HOME="$SCRATCH" fish --no-config -c '
  for file in $argv[1]/fish/vendor_completions.d/*.fish; source $file; end
  function __fish_complete_path; echo files; end
  complete -c sub -a scan
  complete -C (string join " " -- $argv[2..-1])')",
                      '\t'};

// The completions are installed below a folder of the test's own.
class Shells : public testing::TestWithParam<Shell> {
 protected:
  void SetUp() override {
    if (!IsHere(GetParam().name)) GTEST_SKIP() << GetParam().name << " is not here";
    int status = -1;
    Said(VOX_CMAKE " --install '" VOX_BINARY_DIR "' --component completions --prefix '" +
             scratch_.Path("") + "'",
         &status);
    ASSERT_EQ(status, 0);
  }

  std::vector<std::string> Lines(const std::string& words) const {
    int status = -1;
    const std::string share = scratch_.Path("share");
    std::istringstream said(Said("export SCRATCH='" + scratch_.Path("") + "'; " +
                                     GetParam().script + " '" + share + "' " + words,
                                 &status));
    std::vector<std::string> lines;
    for (std::string line; std::getline(said, line);) lines.push_back(line);
    return lines;
  }

  // What is offered, and what is said of it.
  std::map<std::string, std::string> Offered(const std::string& words) const {
    std::map<std::string, std::string> offered;
    for (const std::string& line : Lines(words)) {
      const std::size_t end = line.find(GetParam().between);
      offered[line.substr(0, end)] = end == line.npos ? "" : line.substr(end + 1);
    }
    return offered;
  }

  Scratch scratch_;
};

TEST_P(Shells, EachVerbsOptionsAreOfferedWithTheirMeaning) {
  const std::map<std::string, std::string> programs{{"vox", VOX_PROGRAM},
                                                    {"voxjobd", VOXJOBD},
#ifdef VOXSIM_USB
                                                    {"voxsim-usb", VOXSIM_USB},
#endif
                                                    {"voxsim", VOXSIM}};
  for (const auto& [name, path] : programs) {
    const auto help = HelpByVerb(name, path);
    for (const auto& [verb, options] : help) {
      Options expected = LongOnly(options);
      for (const std::string& option : LongOnly(help.at(name))) {
        if (option != "--version") expected.insert(option);
      }
      Options found;
      for (const auto& [option, meaning] : Offered(path + verb.substr(name.size()) + " --")) {
        EXPECT_NE(meaning, "") << verb << " " << option;
        found.insert(option);
      }
      EXPECT_EQ(found, expected) << verb;
    }
  }
}

TEST_P(Shells, VerbsAndValuesAreOfferedWithASignOfEqualityToo) {
  const std::string vox = VOX_PROGRAM;
  EXPECT_EQ(
      Offered(vox + " sc"),
      (std::map<std::string, std::string>{{"scan", "Scan a page, or all pages of the feeder"}}));
  EXPECT_EQ(Offered(vox + " settings s").count("set"), 1U);
  EXPECT_EQ(Lines(vox + " scan --mode g"), std::vector<std::string>{"gray"});
  EXPECT_EQ(Lines(vox + " scan --mode=g"), std::vector<std::string>{"--mode=gray"});
}

TEST_P(Shells, FilesAndTheProgramOnTheBusAreLeftToTheShell) {
  EXPECT_THAT(Lines(VOX_PROGRAM " scan -o fi"), ElementsAre("files"));
#ifdef VOXSIM_USB
  EXPECT_THAT(Lines(VOXSIM_USB " page.png -- sub sc"), ElementsAre("scan"));
#endif
}

INSTANTIATE_TEST_SUITE_P(All, Shells, testing::Values(kZsh, kFish),
                         [](const auto& shell) { return std::string(shell.param.name); });

}  // namespace
}  // namespace vox::test
