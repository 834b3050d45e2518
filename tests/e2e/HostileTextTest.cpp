// Devices, files and command lines whose texts would steer a terminal, through every stream that
// vox writes to.
#include <fstream>

#include "tests/e2e/VoxDevices.h"
#include "tools/vox/CleanText.h"

namespace vox::cli::test {
namespace {

using nlohmann::json;
using testing::AllOf;
using testing::HasSubstr;

// Control Sequence Introducer (U+009B), right-to-left override, line separator.
constexpr char kHostile[] = "Off\xC2\x9B\x32J\xE2\x80\xAEice\xE2\x80\xA8\xC3\xBCx";
constexpr char kClean[] = "Off?2J?ice?\xC3\xBCx";

class HostileText : public VoxDevices {
 protected:
  void SetUp() override {
    VoxDevices::SetUp();
    if (IsSkipped()) return;
    Put(2, kHostile);
    ExpectClean(Vox("add 127.0.0.2"));
  }

  // Neither stream has a raw control character, a mark of direction or bytes that are no UTF-8.
  static void ExpectClean(const Outcome& outcome) {
    for (const std::string& text : {outcome.out, outcome.err})
      EXPECT_EQ(CleanLines(text), text) << testing::PrintToString(text);
  }
  Outcome Clean(const std::string& arguments) {
    const Outcome outcome = Vox(arguments);
    ExpectClean(outcome);
    return outcome;
  }
};

TEST_F(HostileText, ADevicesNameIsCleanInWordsAndEscapedInJson) {
  for (const char* verb : {"list", "list --online", "info 127.0.0.2", "info net:127.0.0.2",
                           "add 127.0.0.2", "register 127.0.0.2", "unregister 127.0.0.2"}) {
    const Outcome words = Clean(verb);
    EXPECT_EQ(words.status, 0) << verb << "\n" << words.err;
    if (std::string(verb) != "info net:127.0.0.2") {
      EXPECT_THAT(words.out, HasSubstr(kClean)) << verb;
    }
    const Outcome line = Clean(std::string(verb) + " --json");
    EXPECT_EQ(json::parse(line.out)["name"], kHostile) << verb;
  }
}

TEST_F(HostileText, ErrorLinesAreClean) {
  devices_[0]->Stop();
  const Outcome silent = Clean("info 127.0.0.2");
  EXPECT_EQ(silent.status, 9);
  EXPECT_THAT(silent.err, HasSubstr(kClean));
  for (const char* line : {"info \xC2\x9B\x32J", "list \xC2\x85", "\xFF\xFE",
                           "scan 127.0.0.2 -o \xC2\x9B/\xC0\xAF.png", "scan --frame \xE2\x80\xAE,1",
                           "settings get \xED\xA0\x80", "settings set showComputerName \xC2\x9B"}) {
    const Outcome outcome = Clean(line);
    EXPECT_NE(outcome.status, 0) << line;
    EXPECT_EQ(outcome.err.find('\n'), outcome.err.size() - 1) << "one line:\n" << outcome.err;
  }
}

TEST_F(HostileText, ARecordThatSomebodyElseWroteIsClean) {
  std::ifstream in(SharedFile());
  std::string text(std::istreambuf_iterator<char>(in), {});
  for (const std::string model = "Veltronix QD7200";;) {
    const auto at = text.find(model);
    if (at == std::string::npos) break;
    text.replace(at, model.size(), "QD\xE2\x81\xA6\xC2\x9B");
  }
  std::ofstream(SharedFile()) << text;
  EXPECT_THAT(Clean("list").out, AllOf(HasSubstr(kClean), HasSubstr("QD??")));
  EXPECT_EQ(json::parse(Clean("list --json").out)["modelName"], "QD\xE2\x81\xA6\xC2\x9B");
}

TEST_F(HostileText, AComputersNameIsClean) {
  Good("settings set computerName \xC2\x9B\x32J\xE2\x80\xAE");
  EXPECT_EQ(Clean("settings get computerName").out, "?2J?\n");
  EXPECT_EQ(json::parse(Clean("settings get computerName --json").out)["value"],
            "\xC2\x9B\x32J\xE2\x80\xAE");
  EXPECT_THAT(Clean("register 127.0.0.2").out, HasSubstr("as ?2J?\n"));
}

}  // namespace
}  // namespace vox::cli::test
