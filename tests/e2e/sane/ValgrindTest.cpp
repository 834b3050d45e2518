// scanimage with the backend under valgrind: no access that is wrong, and no memory of the
// backend's or the library's is lost, whether it lists, scans, is cancelled or loses its device.
#include <csignal>

#include "tests/e2e/sane/SaneFixture.h"
#include "tests/support/SmallDevice.h"

namespace vox::cli::test {
namespace {

using testing::AnyOf;
using testing::HasSubstr;
using testing::Not;

class SaneValgrind : public Sane {
 protected:
  void SetUp() override {
    Sane::SetUp();
    if (IsSkipped()) return;
    if (std::system("command -v valgrind >/dev/null") != 0)
      GTEST_SKIP() << "valgrind (Debian package of that name) is not installed";
    sim::DeviceOptions options = vox::test::SmallFeeder(2);
    options.reload_feeder = true;
    options.address = "127.0.0.2";
    options.snmp_port = 161;
    options.command_port = 3892;
    Put(std::move(options));
    place_->Configure({"device net:127.0.0.2"});
  }
  // A process that is forked to start the job server is none of those that are looked at: it ends
  // with all of its parent's memory.
  static std::string Arguments(const std::string& arguments) {
    return "--error-exitcode=99 --leak-check=full --show-leak-kinds=definite "
           "--errors-for-leak-kinds=none --trace-children=no --child-silent-after-fork=yes "
           "--log-file=log scanimage " +
           arguments;
  }
  void ExpectClean(const std::string& arguments, int status) {
    const Outcome outcome = Run("valgrind", Arguments(arguments));
    EXPECT_EQ(outcome.status, status) << arguments << "\n" << outcome.err << Text("log");
    ExpectNothingLost();
  }
  // scanimage and libsane have leaks of their own, which do not count.
  void ExpectNothingLost() {
    const std::string text = Text("log");
    EXPECT_THAT(text, HasSubstr("HEAP SUMMARY")) << "it looked";
    std::istringstream log(text);
    std::string record;
    for (std::string line; std::getline(log, line);) {
      const std::string words = line.substr(std::min(line.rfind("== ") + 3, line.size()));
      if (words.find("definitely lost in loss record") != std::string::npos) record = "lost\n";
      if (words.empty()) record.clear();  // behind a record
      if (record.empty()) continue;
      record += line + "\n";
      EXPECT_THAT(line, Not(AnyOf(HasSubstr("libsane-vox.so"), HasSubstr("libvox.so")))) << record;
    }
  }
};

TEST_F(SaneValgrind, AListIsClean) {
  ExpectClean("-L", 0);
}

TEST_F(SaneValgrind, ABatchIsClean) {
  ExpectClean(std::string("-d ") + kAt2 +
                  " --source ADF --mode Gray --resolution 100 --format=pnm --batch=p%d.pnm",
              0);
  EXPECT_EQ(Files("p").size(), 2U);
}

TEST_F(SaneValgrind, ADeviceInTroubleIsClean) {
  sim::Faults faults;
  faults.close_after = 1000;
  devices_[0]->SetFaults(faults);
  ExpectClean(std::string("-d ") + kAt2 + " --resolution 100 --format=pnm -o a.pnm", kIoError);
}

TEST_F(SaneValgrind, ACancelIsClean) {
  sim::Faults faults;
  ASSERT_EQ(sim::ParseFault("stall=data:20000", faults), "");
  devices_[0]->SetFaults(faults);
  vox_.StartCommand(Judge(
      "valgrind", Arguments(std::string("-d ") + kAt2 + " --mode Gray --format=pnm -o a.pnm")));
  ASSERT_TRUE(
      devices_[0]->Events().WaitFor(sim::EventKind::kScanInfoSent, 1, std::chrono::seconds(100)));
  vox_.Signal(SIGINT);
  const Outcome outcome = vox_.Wait();
  EXPECT_EQ(outcome.status, kCancelled) << outcome.err << Text("log");
  ExpectNothingLost();
}

}  // namespace
}  // namespace vox::cli::test
