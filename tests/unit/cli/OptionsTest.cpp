// What the command line means, and what is refused with which words.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <sstream>

#include "tests/support/OptionsIn.h"
#include "tools/vox/Failure.h"
#include "tools/vox/Options.h"
#include "vox/UserPreferences.h"

namespace vox::cli::test {
namespace {

using testing::DoubleNear;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

std::vector<std::string> Words(const std::string& line) {
  std::istringstream in(line);
  return {std::istream_iterator<std::string>(in), {}};
}

Command Parse(const std::string& line, bool terminal = false) {
  return ParseCommandLine(Words(line), terminal);
}

ScanOptions Scan(const std::string& line, bool terminal = false) {
  return std::get<ScanOptions>(Parse("scan net:10.0.0.1 " + line, terminal));
}

std::string Refusal(const std::string& line, bool terminal = false) {
  try {
    Parse(line, terminal);
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.Status(), ExitStatus::kUsage) << line;
    EXPECT_THAT(failure.what(), Not(HasSubstr("\n"))) << line;
    return failure.what();
  }
  return "accepted: " + line;
}

TEST(OptionsTest, LeftOutOptionsLeaveTheChoiceToTheDevice) {
  const ScanOptions scan = Scan("-o a.png");
  EXPECT_EQ(scan.device.name, "net:10.0.0.1");
  EXPECT_EQ(scan.output, "a.png");
  EXPECT_EQ(scan.format, ImageFormat::kPng);
  EXPECT_FALSE(scan.mode || scan.resolution || scan.frame || scan.threshold);
  EXPECT_FALSE(scan.batch || scan.preview || scan.duplex || scan.turned || scan.json ||
               scan.halftone || scan.device.with.on);
}

TEST(OptionsTest, EveryOptionArrives) {
  const ScanOptions scan = Scan(
      "-o a.pdf --mode lineart --resolution 600x300 --frame 10,20,110,170 --preview "
      "--brightness -20 --contrast 35 --threshold 99 --duplex --rotate 180 --json");
  EXPECT_EQ(scan.format, ImageFormat::kPdf);
  EXPECT_EQ(scan.mode, Mode::kLineart);
  EXPECT_EQ(scan.resolution->x, 600U);
  EXPECT_EQ(scan.resolution->y, 300U);
  EXPECT_THAT(scan.frame->bottom, DoubleNear(170 / 25.4, 1e-9));
  EXPECT_EQ(scan.brightness, -20);
  EXPECT_EQ(scan.contrast, 35);
  EXPECT_EQ(scan.threshold, 99);
  EXPECT_TRUE(scan.preview && scan.duplex && scan.turned && scan.json);
}

TEST(OptionsTest, VirtualStandsBeforeOrAfterTheVerb) {
  for (const char* line : {"--virtual scan -o a.png", "scan --virtual -o a.png",
                           "scan -o a.png --virtual", "--virtual info", "info --virtual --json"}) {
    const Command command = Parse(line);
    const auto* scan = std::get_if<ScanOptions>(&command);
    EXPECT_TRUE(scan != nullptr ? scan->device.with.on
                                : std::get<InfoOptions>(command).device.with.on)
        << line;
  }
}

TEST(OptionsTest, VirtualDevicesAreShaped) {
  const auto scan = std::get<ScanOptions>(
      Parse("scan --virtual --virtual-page a.png --virtual-page b.tif --virtual-feeder 3 "
            "--virtual-fault busy -o x.png"));
  EXPECT_THAT(scan.device.with.page_files, ElementsAre("a.png", "b.tif"));
  EXPECT_EQ(scan.device.with.feeder, 3U);
  EXPECT_EQ(scan.device.with.faults, "busy");
  EXPECT_EQ(
      std::get<ScanOptions>(Parse("scan --virtual --virtual-feeder 0 -o x.png")).device.with.feeder,
      0U);
}

TEST(OptionsTest, AnImageGoesToStandardOutputAsPnmUnlessToldOtherwise) {
  EXPECT_EQ(Scan("").output, "-");
  EXPECT_EQ(Scan("").format, ImageFormat::kPnm);
  EXPECT_EQ(Scan("-o -").format, ImageFormat::kPnm);
  EXPECT_EQ(Scan("-o - --format png").format, ImageFormat::kPng);
  EXPECT_EQ(Scan("-o page --format tif").format, ImageFormat::kTiff);
}

TEST(OptionsTest, BatchTakesAPatternOrAFileThatHoldsManyPages) {
  for (const char* pattern : {"p-%03d.png", "p%d.pnm", "%d/100%%.tif", "all.pdf", "all.tiff", "-"})
    EXPECT_TRUE(Scan(std::string("--batch ") + pattern).batch) << pattern;
}

TEST(OptionsTest, BothSpellingsOfGrey) {
  EXPECT_EQ(Scan("--mode grey").mode, Mode::kGray);
  EXPECT_EQ(Scan("--mode gray").mode, Mode::kGray);
  EXPECT_EQ(Scan("--mode colour").mode, Mode::kColor);
}

TEST(OptionsTest, HelpAndVersionAreAnswers) {
  EXPECT_THAT(std::get<TextAnswer>(Parse("--version")).text, HasSubstr("vox "));
  EXPECT_THAT(std::get<TextAnswer>(Parse("--help")).text, HasSubstr("info"));
  EXPECT_THAT(std::get<TextAnswer>(Parse("scan --help")).text, HasSubstr("--resolution"));
}

TEST(OptionsTest, TheManualTellsOfEveryOptionAndOfNoOther) {
  std::ifstream stream(VOX_SOURCE_DIR "/docs/vox.md");
  const std::string manual{std::istreambuf_iterator<char>(stream), {}};
  std::string help;
  for (const char* line : {"--help", "scan --help", "info --help", "trace --help", "list --help",
                           "register --help", "settings set --help"})
    help += std::get<TextAnswer>(Parse(line)).text;
  EXPECT_EQ(vox::test::OptionsIn(manual), vox::test::OptionsIn(help));
}

struct BadLine {
  const char* line;
  const char* words;  // that the refusal must hold
};

TEST(OptionsTest, MistakesGetOneLineThatNamesThem) {
  const BadLine lines[] = {
      {"", "say what to do"},
      {"--virtual", "say what to do"},
      {"scan info --virtual", "info"},
      {"scann", "scann"},
      {"add", "which device?"},
      {"remove", "which device shall be forgotten?"},
      {"register", "which devices?"},
      {"unregister", "which devices?"},
      {"register a --all", "leave the names out"},
      {"register a --virtual", "leave a out"},
      {"discover a", "a"},
      {"list --virtual-feeder 2", "go with --virtual"},
      {"settings", "subcommand"},
      {"settings get", "KEY"},
      {"settings set computerName", "what shall computerName be?"},
      {"settings set computerName a --default", "exclude each other"},
      {"trace -o a.png", "-o"},
      {"scan net:a --virtual -o a.png", "leave net:a out"},
      {"scan net:a -o a.png --virtual-feeder 2", "go with --virtual"},
      {"scan net:a net:b -o a.png", "net:b"},
      {"scan net:a -o a.png --bogus", "--bogus"},
      {"scan net:a -o a.png --batch b%d.png", "give one of the two"},
      {"scan net:a -o a.jpg", "tells no format"},
      {"scan net:a -o a", "tells no format"},
      {"scan net:a -o a.png --format jpeg", "--format jpeg"},
      {"scan net:a -o a.png --mode sepia", "choose lineart, gray or color"},
      {"scan net:a -o a.png --resolution 0", "--resolution 0"},
      {"scan net:a -o a.png --resolution 300dpi", "--resolution 300dpi"},
      {"scan net:a -o a.png --resolution 300x", "--resolution 300x"},
      {"scan net:a -o a.png --resolution 299.6", "--resolution 299.6"},
      {"scan net:a -o a.png --resolution 99999", "from 1 to 9600"},
      {"scan net:a -o a.png --resolution -300", "--resolution -300"},
      {"scan net:a -o a.png --frame 1,2,3", "four numbers"},
      {"scan net:a -o a.png --frame 0,0,10,10cm", "mm or in"},
      {"scan net:a -o a.png --paper A11", "choose default or one of"},
      {"scan net:a -o a.png --paper A4 --frame 0,0,1,1", "give one of the two"},
      {"scan net:a -o a.png --brightness 101", "brightness"},
      {"scan net:a -o a.png --contrast x", "contrast"},
      {"scan net:a -o a.png --mode lineart --threshold 0", "threshold"},
      {"scan net:a -o a.png --mode lineart --threshold 256", "threshold"},
      {"scan net:a -o a.png --mode gray --threshold 10", "--mode lineart alone"},
      {"scan net:a -o a.png --halftone", "--mode lineart alone"},
      {"scan net:a -o a.png --mode lineart --halftone --threshold 9", "exclude each other"},
      {"scan net:a -o a.png --rotate 90", "by 180 degrees"},
      {"scan net:a -o - --json", "both want standard output"},
      {"scan net:a --batch page.png", "holds one page"},
      {"scan net:a --batch page.pnm", "holds one page"},
      {"scan net:a --batch p%d-%d.png", "only one %d"},
      {"scan net:a --batch p%s.png", "only one %d"},
      {"scan net:a --batch p%.png", "only one %d"},
      {"scan net:a --batch - --format png", "holds one page"},
      {"scan net:a -o", "--output"},
      {"scan net:a -o a.png --virtual-page", "--virtual-page"},
  };
  for (const BadLine& row : lines) EXPECT_THAT(Refusal(row.line), HasSubstr(row.words)) << row.line;
}

TEST(OptionsTest, ATerminalGetsNoImage) {
  EXPECT_THAT(Refusal("scan net:a", true), HasSubstr("Name a file"));
  EXPECT_THAT(Refusal("scan net:a -o -", true), HasSubstr("nothing for a terminal"));
  EXPECT_EQ(Scan("-o a.png", true).output, "a.png");
}

TEST(OptionsTest, ADeviceMayBeLeftOutOfAScan) {
  EXPECT_EQ(std::get<ScanOptions>(Parse("scan -o a.png")).device.name, "");
  EXPECT_EQ(std::get<InfoOptions>(Parse("info")).device.name, "");
}

TEST(OptionsTest, VerbsOfDevicesCarryWhatWasAsked) {
  EXPECT_TRUE(std::get<DiscoverOptions>(Parse("discover --json")).json);
  EXPECT_TRUE(std::get<ListOptions>(Parse("list --online")).online);
  EXPECT_EQ(std::get<AddOptions>(Parse("add 10.0.0.1")).device.name, "10.0.0.1");
  EXPECT_TRUE(std::get<AddOptions>(Parse("add --virtual")).device.with.on);
  EXPECT_EQ(std::get<RemoveOptions>(Parse("remove office --json")).device.name, "office");
  const auto both = std::get<RegisterOptions>(Parse("register a b"));
  EXPECT_TRUE(both.wanted && !both.all);
  EXPECT_THAT(both.names, ElementsAre("a", "b"));
  const auto all = std::get<RegisterOptions>(Parse("unregister --all --json"));
  EXPECT_TRUE(!all.wanted && all.all && all.json);
}

TEST(OptionsTest, SettingsAreReadChangedForgottenAndListed) {
  using Action = SettingsOptions::Action;
  const auto get = std::get<SettingsOptions>(Parse("settings get computerName"));
  EXPECT_TRUE(get.action == Action::kGet && get.key == "computerName");
  const auto set = std::get<SettingsOptions>(Parse("settings set computerName desk --json"));
  EXPECT_TRUE(set.action == Action::kSet && set.value == "desk" && set.json);
  EXPECT_EQ(std::get<SettingsOptions>(Parse("settings set computerName --default")).action,
            Action::kReset);
  EXPECT_EQ(std::get<SettingsOptions>(Parse("settings list --virtual")).action, Action::kList);
}

TEST(OptionsTest, ATraceNeedsNoFile) {
  const auto trace = std::get<ScanOptions>(Parse("trace net:a --mode gray --json", true));
  EXPECT_TRUE(trace.trace && trace.trace_only && trace.json);
  EXPECT_TRUE(Scan("-o a.png --trace").trace);
  EXPECT_FALSE(Scan("-o a.png --trace").trace_only);
}

// As a script's empty variable gives them: -o "$FILE".
TEST(OptionsTest, AnEmptyValueIsNoMissingOption) {
  for (const char* option :
       {"--output", "--batch", "--format", "--mode", "--resolution", "--frame", "--paper",
        "--rotate", "--virtual-page", "--virtual-fault", "--brightness", "--threshold"}) {
    std::vector<std::string> words{"scan", "--virtual", option, ""};
    if (std::string(option) != "--output") words.insert(words.end(), {"-o", "a.pdf"});
    try {
      ParseCommandLine(words, false);
      ADD_FAILURE() << option << " accepted";
    } catch (const Failure& failure) {
      EXPECT_EQ(failure.Status(), ExitStatus::kUsage) << option;
      EXPECT_THAT(failure.what(), HasSubstr(option));
    }
  }
  EXPECT_THROW(ParseCommandLine({"scan", "", "-o", "a.png"}, false), Failure) << "DEVICE";
}

TEST(OptionsTest, ControlCharactersDoNotReachTheTerminal) {
  try {
    ParseCommandLine({"scan", "net:a", "-o", "a\033[2J\n.xyz"}, false);
    FAIL();
  } catch (const Failure& failure) {
    EXPECT_THAT(failure.what(), HasSubstr("a?[2J?.xyz"));
  }
}

TEST(FrameTest, MillimetresUnlessInchesAreSaid) {
  const Frame metric = ParseFrame("0,12.7,25.4,50.8");
  EXPECT_DOUBLE_EQ(metric.top, 0.5);
  EXPECT_DOUBLE_EQ(metric.right, 1);
  EXPECT_DOUBLE_EQ(metric.Height(), 1.5);
  EXPECT_DOUBLE_EQ(ParseFrame("0,0,8.5,11in").bottom, 11);
  EXPECT_DOUBLE_EQ(ParseFrame("0,0,25.4,25.4mm").right, 1);
}

TEST(FrameTest, WhatIsNoAreaIsRefused) {
  for (const char* text : {"", "1", "1,2,3", "1,2,3,4,5", "1;2;3;4", "a,b,c,d", "0,0,10,10 mm",
                           "10,0,10,10", "20,0,10,10", "0,30,10,10", "-1,0,10,10", "0,0,nan,10",
                           "0,0,inf,10", "0,0,1e999,10", "0,0,10,10inches", ",,,"})
    EXPECT_THROW(ParseFrame(text), Failure) << text;
}

TEST(FrameTest, PapersHaveTheirStandardSizes) {
  EXPECT_DOUBLE_EQ(PaperFrame("A4")->bottom, 297 / 25.4);
  EXPECT_DOUBLE_EQ(PaperFrame("a3")->right, 297 / 25.4);
  EXPECT_DOUBLE_EQ(PaperFrame("LETTER")->bottom, 11);
  EXPECT_DOUBLE_EQ(PaperFrame("legal")->bottom, 14);
  EXPECT_DOUBLE_EQ(PaperFrame("B5")->bottom, 257 / 25.4);
  EXPECT_FALSE(PaperFrame("A11"));
  const bool metric = UserPreferences::instance().isMetricMeasurementUnits();
  EXPECT_DOUBLE_EQ(PaperFrame("default")->right, PaperFrame(metric ? "A4" : "Letter")->right);
  for (const std::string& name : PaperNames()) {
    ASSERT_TRUE(PaperFrame(name)) << name;
    EXPECT_LT(PaperFrame(name)->Width(), PaperFrame(name)->Height()) << name << " stands upright";
  }
}

}  // namespace
}  // namespace vox::cli::test
