// The man pages and the completions know the options that the programs have, verb by verb, and no
// others; the pages are free of what man and mandoc warn of.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/unit/core/Scratch.h"
#include "tests/unit/packaging/ManPage.h"
#include "tests/unit/packaging/ProgramHelp.h"
#include "tests/unit/packaging/Said.h"

namespace vox::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

constexpr char kPages[] = VOX_SOURCE_DIR "/docs/man/";
constexpr char kCompletions[] = VOX_SOURCE_DIR "/packaging/completions/";

TEST(ReadHelpTest, OptionsAndVerbsAreReadAndTextIsNot) {
  const ProgramHelp help = ReadHelp(
      "What it does -x\nUsage: p [OPTIONS]\n\nOptions:\n  -h,--help     Help\n  --raw Excludes: "
      "--jbig\n                about --other\n\nSubcommands:\n  scan   A page\n  add    One\n");
  EXPECT_THAT(help.options, UnorderedElementsAre("-h", "--help", "--raw"));
  EXPECT_THAT(help.verbs, ElementsAre("scan", "add"));
}

TEST(ReadManPageTest, SynopsesTagsAndWhatIsMentionedAreToldApart) {
  const ManPage page = ReadManPage(
      ".\\\" no \\-\\-comment\n.SH SYNOPSIS\n.SY \"p scan\"\n.OP \\-\\-a\\-b FILE\n.YS\n.TP\n"
      ".BR \\-o \", \" \\-\\-output \" \\fIFILE\\fP\"\nas \\-100 of \\-\\-text, a-b, and "
      "set\\-user\\-id\n");
  EXPECT_THAT(page.synopses, ElementsAre(testing::Pair("p scan", ElementsAre("--a-b"))));
  EXPECT_THAT(page.explained, UnorderedElementsAre("-o", "--output"));
  EXPECT_THAT(page.mentioned, UnorderedElementsAre("-o", "--output", "--a-b", "--text"));
}

struct Program {
  const char* name;
  const char* path;
  const char* page;
  const char* completion;
};

void PrintTo(const Program& program, std::ostream* out) {
  *out << program.name;
}

class Programs : public testing::TestWithParam<Program> {
 protected:
  void SetUp() override { help_ = HelpByVerb(GetParam().name, GetParam().path); }
  std::map<std::string, Options> help_;  // by "vox", "vox scan", ...
};

TEST_P(Programs, TheSynopsisOfEachVerbHasItsOptionsAndNoOthers) {
  const ManPage page = ReadManPage(TextOf(std::string(kPages) + GetParam().page));
  std::map<std::string, Options> expected;
  for (const auto& [verb, options] : help_) {
    expected[verb] = LongOnly(options);
    if (verb != GetParam().name) expected[verb].erase("--help");
  }
  EXPECT_EQ(page.synopses, expected);
}

TEST_P(Programs, ThePageExplainsEveryOptionAndMentionsNoOther) {
  const ManPage page = ReadManPage(TextOf(std::string(kPages) + GetParam().page));
  Options all;
  for (const auto& [verb, options] : help_) all.insert(options.begin(), options.end());
  ASSERT_GE(all.size(), 4U);
  EXPECT_EQ(page.explained, all);
  EXPECT_EQ(page.mentioned, all);
}

// What bash offers behind the words, of which the last is the one that grows.
std::vector<std::string> Offered(const Program& program, const std::string& words) {
  const std::string script =
      ". \"$1\"; shift; COMP_WORDS=(\"$@\"); COMP_CWORD=$(($# - 1)); declare -a COMPREPLY; "
      "spec=$(complete -p \"${1##*/}\"); spec=${spec##*-F }; \"${spec%% *}\"; "
      "printf \"%s\\n\" \"${COMPREPLY[@]}\"";
  int status = -1;
  const std::string said =
      Said("bash -c '" + script + "' bash '" + kCompletions + program.completion + "' " + words,
           &status);
  EXPECT_EQ(status, 0);
  std::vector<std::string> offered;
  std::istringstream lines(said);
  for (std::string line; std::getline(lines, line);) {
    if (!line.empty()) offered.push_back(line);
  }
  return offered;
}

TEST_P(Programs, BashOffersTheOptionsOfEachVerbAndNoOthers) {
  for (const auto& [verb, options] : help_) {
    Options expected = LongOnly(options);
    for (const std::string& option : LongOnly(help_.at(GetParam().name))) {
      if (option != "--version") expected.insert(option);  // before or after the verb
    }
    EXPECT_THAT(Offered(GetParam(), verb + " --"), testing::UnorderedElementsAreArray(expected))
        << verb;
  }
}

const Program kVox{"vox", VOX_PROGRAM, "vox.1", "vox"};

std::vector<Program> AllPrograms() {
  return {kVox,
          {"voxjobd", VOXJOBD, "voxjobd.8", "voxjobd"},
#ifdef VOXSIM_USB
          {"voxsim-usb", VOXSIM_USB, "voxsim-usb.1", "voxsim"},
#endif
          {"voxsim", VOXSIM, "voxsim.1", "voxsim"}};
}

std::string TestName(const testing::TestParamInfo<Program>& program) {
  std::string name = program.param.name;
  name.erase(std::remove(name.begin(), name.end(), '-'), name.end());
  return name;
}

INSTANTIATE_TEST_SUITE_P(All, Programs, testing::ValuesIn(AllPrograms()), TestName);

TEST(VoxCompletionTest, VerbsAreOfferedAndTheVerbsOfSettings) {
  EXPECT_THAT(Offered(kVox, "vox ''"),
              testing::UnorderedElementsAreArray(HelpOf(VOX_PROGRAM, "").verbs));
  EXPECT_THAT(Offered(kVox, "vox --virtual settings ''"),
              testing::UnorderedElementsAreArray(HelpOf(VOX_PROGRAM, "settings").verbs));
}

TEST(VoxCompletionTest, ValuesAreOfferedWithASignOfEqualityToo) {
  EXPECT_THAT(Offered(kVox, "vox scan --mode g"), ElementsAre("gray"));
  EXPECT_THAT(Offered(kVox, "vox scan --mode = g"), ElementsAre("gray"));
  EXPECT_THAT(Offered(kVox, "vox scan --mode ="), ElementsAre("lineart", "gray", "color"));
  EXPECT_THAT(Offered(kVox, "vox scan --brightness ''"), IsEmpty());
}

TEST(VoxCompletionTest, EveryPaperIsInTheTable) {
  const std::string table = TextOf(VOX_SOURCE_DIR "/Resources/PaperSizes.plist");
  const std::vector<std::string> papers = Offered(kVox, "vox scan --paper ''");
  EXPECT_GT(papers.size(), 5U);
  for (const std::string& paper : papers) {
    if (paper == "default") continue;
    EXPECT_NE(table.find("<string>" + paper + "</string>"), std::string::npos) << paper;
  }
}

TEST(VoxCompletionTest, EverySettingIsOfferedAndNoOther) {
  int status = -1;
  const std::string said = Said(VOX_PROGRAM " settings list --json --virtual", &status);
  ASSERT_EQ(status, 0);
  std::vector<std::string> keys;
  const std::string before = "\"key\":\"";
  for (std::size_t at = said.find(before); at != said.npos; at = said.find(before, at + 1))
    keys.push_back(
        said.substr(at + before.size(), said.find('"', at + before.size()) - at - before.size()));
  EXPECT_THAT(Offered(kVox, "vox settings get ''"), testing::UnorderedElementsAreArray(keys));
  EXPECT_THAT(Offered(kVox, "vox settings set ''"), testing::UnorderedElementsAreArray(keys));
  EXPECT_THAT(Offered(kVox, "vox settings set computerName ''"), IsEmpty());
}

// A stand-in for vox answers, because what a machine remembers is nothing for a test.
class RememberedDevices : public testing::Test {
 protected:
  void SetUp() override {
    std::ofstream(program_) << "#!/bin/sh\ncat \"$0.json\"\n";
    std::filesystem::permissions(program_, std::filesystem::perms::owner_all);
  }
  std::vector<std::string> OfferedOf(const std::string& json, const std::string& words) const {
    std::ofstream(program_ + ".json") << json;
    return Offered(kVox, "'" + program_ + "' " + words);
  }
  Scratch scratch_;
  std::string program_ = scratch_.Path("vox");
};

TEST_F(RememberedDevices, TheyAreOfferedByNameElseById) {
  const std::string two = R"({"deviceId":"0011","modelName":"M","name":"Office 2"})"
                          "\n"
                          R"({"deviceId":"A7K","modelName":"M"})"
                          "\n";
  EXPECT_THAT(OfferedOf(two, "scan ''"), ElementsAre("Office 2", "A7K"));
  EXPECT_THAT(OfferedOf(two, "info A"), ElementsAre("A7K"));
}

TEST_F(RememberedDevices, ANameIsNeverRun) {
  const std::string file = scratch_.Path("ran");
  const std::string name = "$(touch " + file + ")`touch " + file + "`";
  EXPECT_THAT(OfferedOf("{\"name\":\"" + name + "\"}\n{\"name\":\"a\\nb\"}\n", "scan ''"),
              ElementsAre(name));
  EXPECT_FALSE(std::filesystem::exists(file));
}

// The first match of every line that has one.
Options Found(const std::string& text, const std::string& pattern) {
  const std::regex line(pattern, std::regex::ECMAScript | std::regex::multiline);
  Options found;
  for (std::sregex_iterator i(text.begin(), text.end(), line), end; i != end; ++i)
    found.insert((*i)[1]);
  return found;
}

TEST(SanePageTest, ItHasTheWordsOfTheConfigurationFileAndNoOthers) {
  const std::string page = TextOf(std::string(kPages) + "sane-vox.5");
  const std::string file = TextOf(VOX_SOURCE_DIR "/frontends/sane/vox.conf");
  const Options words = Found(file, "^#?([a-z-]+) ");
  EXPECT_THAT(words, testing::Contains("discovery"));
  EXPECT_EQ(Found(std::regex_replace(page, std::regex("\\\\-"), "-"), "^\\.B[IR] \"([a-z-]+) "),
            words);
}

class Pages : public testing::Test {
 protected:
  void SetUp() override {
    for (const auto& entry : std::filesystem::directory_iterator(kPages))
      pages_.push_back(entry.path());
    ASSERT_EQ(pages_.size(), 5U);
  }
  std::vector<std::string> pages_;
};

TEST_F(Pages, ManWarnsOfNothing) {
  if (!IsHere("man")) GTEST_SKIP() << "man is not here (Debian: man-db)";
  for (const std::string& page : pages_) {
    int status = -1;
    EXPECT_EQ(Said("LC_ALL=C.UTF-8 MANROFFSEQ= MANWIDTH=80 man --warnings -E UTF-8 -l -Tutf8 -Z '" +
                       page + "' 2>&1 >/dev/null",
                   &status),
              "");
    EXPECT_EQ(status, 0) << page;
  }
}

TEST_F(Pages, MandocWarnsOfNothing) {
  if (!IsHere("mandoc")) GTEST_SKIP() << "mandoc is not here (Debian: mandoc)";
  for (const std::string& page : pages_) {
    int status = -1;
    EXPECT_EQ(Said("mandoc -T lint -W warning '" + page + "' 2>&1", &status), "");
    EXPECT_EQ(status, 0) << page;
  }
}

}  // namespace
}  // namespace vox::test
