// The vox program when something goes wrong, or somebody presses Ctrl-C: one line, the right
// status, no half file; and over a network that is not its own process.
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <thread>

#include <nlohmann/json.hpp>

#include "tests/e2e/VoxFixture.h"

namespace vox::cli::test {
namespace {

using testing::AnyOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

TEST_F(VoxScan, MistakesInOptionsAreSixtyFour) {
  ExpectFailure("-o a.png --mode sepia", 64, "--mode sepia");
  ExpectFailure("-o a.xyz", 64, "a.xyz");
  ExpectFailure("-o a.png --virtual-fault nonsense", 64, "nonsense");
  EXPECT_EQ(vox_.Run("").status, 64);
  EXPECT_EQ(vox_.Run("add").status, 64);
  EXPECT_EQ(vox_.Run("--help").status, 0);
}

TEST_F(VoxScan, WhatTheDeviceCannotDoIsFour) {
  ExpectFailure("-o a.png --frame 500,0,600,100", 4, "beside the bed");
  EXPECT_EQ(vox_.Run("scan net:no-such-host.invalid -o a.png").status, 4);
  EXPECT_EQ(vox_.Run("scan usb:not-attached -o a.png").status, 9);
}

struct Fault {
  const char* words;
  int status;
  const char* line;
};

TEST_F(VoxScan, ADeviceInTroubleIsOneLineAndNoFile) {
  const Fault faults[] = {
      {"busy", 3, "it is busy"},
      {"no-document", 7, "no document"},
      {"scan-reply=81", 9, "it refused"},
      {"block=width:1", 9, "does not answer, or what it sends arrives broken"},
      {"block=hostile", 9, "does not answer"},
      {"block=cut-data:1", 9, "does not answer"},
      {"close-after=10000", 9, "does not answer"},
      {"close-after=10000,reset", 9, "does not answer"},
      {"info-cut=100", 9, "does not answer"},
  };
  for (const Fault& fault : faults) {
    SCOPED_TRACE(fault.words);
    ExpectFailure(
        std::string("--mode lineart --resolution 200 -o a.png --virtual-fault ") + fault.words,
        fault.status, fault.line);
    EXPECT_THAT(vox_.Folder().Leaves(), IsEmpty());
  }
}

TEST_F(VoxScan, AnEmptyFeederAndGlassAreSeven) {
  ExpectFailure("--virtual-feeder 0 -o a.png", 7, "put one in the feeder");
}

TEST_F(VoxScan, PagesBeforeABadOneAreKept) {
  const std::string options =
      "--virtual-feeder 3 --mode gray --resolution 100 --virtual-fault close-after=1000,page=3 ";
  EXPECT_EQ(Scan(options + "--batch p%d.png").status, 9);
  EXPECT_EQ(ReadPng(vox_.File("p1.png")).width, 850U);
  EXPECT_THAT(vox_.Folder().Leaves(), ElementsAre("p1.png", "p2.png"));
  const Outcome outcome = Scan(options + "--batch all.pdf");
  EXPECT_EQ(outcome.status, 9);
  EXPECT_THAT(outcome.err, HasSubstr("cannot scan page 3 on the virtual device"));
  EXPECT_THAT(outcome.err, HasSubstr("the 2 page(s) before are in all.pdf"));
  EXPECT_EQ(ReadPdf(vox_.File("all.pdf")).size(), 2U);
}

TEST_F(VoxScan, AFileThatCannotBeWrittenIsSaidBeforeTheScan) {
  ExpectFailure("-o no/such/folder/a.png", 9, "create the folder first");
  ExpectFailure("-o /", 64, "tells no format");
  ExpectFailure("--virtual-fault silent=scan -o /proc/a.png", 9, "cannot write /proc/a.png");
}

TEST_F(VoxScan, AFullDiskIsOneLine) {
  for (const char* format : {"png", "tiff", "pnm", "pdf"})
    ExpectFailure(std::string("-o /dev/full --resolution 100 --format ") + format, 9,
                  "No space left on device");
}

TEST_F(VoxScan, AnOldFileSurvivesAFailure) {
  std::ofstream(vox_.File("a.png")) << "old";
  ExpectFailure("-o a.png --mode lineart --virtual-fault block=cut-data", 9, "cannot scan");
  EXPECT_EQ(ReadFile(vox_.File("a.png")), (Bytes{'o', 'l', 'd'}));
}

TEST_F(VoxScan, CtrlCInAStalledPageEndsAtOnceWithoutAFile) {
  for (const int signal : {SIGINT, SIGTERM}) {
    for (const char* output : {"-o a.png", "-o a.tif", "--batch a.pdf", "--rotate 180 -o a.pnm"}) {
      vox_.Start(std::string("scan --virtual --virtual-fault stall=data:20000 --mode gray ") +
                 output);
      ASSERT_TRUE(vox_.WaitForLeaf(".a."));
      const auto when = std::chrono::steady_clock::now();
      vox_.Signal(signal);
      const Outcome outcome = vox_.Wait();
      EXPECT_EQ(outcome.status, 2) << outcome.err;
      EXPECT_EQ(outcome.err, "vox: cancelled; the device was told to stop\n");
      EXPECT_LT(std::chrono::steady_clock::now() - when, std::chrono::seconds(2));
      EXPECT_THAT(vox_.Folder().Leaves(), IsEmpty());
    }
  }
}

TEST_F(VoxScan, CtrlCInABatchKeepsTheFilesThatWereFinished) {
  vox_.Start(
      "scan --virtual --virtual-feeder 2 --mode gray --resolution 100 --batch p%d.png "
      "--virtual-fault stall=data:1000,page=2");
  ASSERT_TRUE(vox_.WaitForLeaf("p1.png"));
  ASSERT_TRUE(vox_.WaitForLeaf(".p2.png"));
  vox_.Signal(SIGINT);
  EXPECT_EQ(vox_.Wait().status, 2);
  EXPECT_THAT(vox_.Folder().Leaves(), ElementsAre("p1.png"));
}

TEST_F(VoxScan, CtrlCAtAnyMomentLeavesAllOrNothing) {
  int cancelled = 0;
  for (int moment = 0; moment < 40; ++moment) {
    vox_.Start("scan --virtual --resolution 100 --mode gray --virtual-feeder 3 --batch p%d.png");
    std::this_thread::sleep_for(std::chrono::milliseconds(moment * 4));  // a place to hit, no wait
    vox_.Signal(SIGINT);
    const Outcome outcome = vox_.Wait();
    // Before the program has looked at signals at all, the system ends it.
    EXPECT_THAT(outcome.status, AnyOf(0, 2, -1)) << outcome.err;
    cancelled += outcome.status == 2;
    const std::vector<std::string> files = vox_.Folder().Leaves();
    if (outcome.status == 0) {
      EXPECT_THAT(files, ElementsAre("p1.png", "p2.png", "p3.png"));
    }
    for (const std::string& file : files) {
      // A process that has hardly begun leaves its sanitizer's own file.
      if (!file.starts_with("tsan.")) {
        EXPECT_EQ(ReadPng(vox_.File(file)).height, 1170U) << file << ", moment " << moment;
      }
      std::filesystem::remove(vox_.File(file));
    }
  }
  EXPECT_GT(cancelled, 0);
}

// Nothing is known of the device yet: the program leaves at once and tidies up.
TEST_F(VoxScan, CtrlCBeforeTheDeviceHasAnsweredEndsAtOnce) {
  for (const char* verb : {"info", "scan -o a.png"}) {
    vox_.Start(std::string("--virtual --virtual-fault silent=always ") + verb);
    ASSERT_TRUE(vox_.WaitForLeaf("vox-virtual-"));
    const auto when = std::chrono::steady_clock::now();
    vox_.Signal(SIGINT);
    const Outcome outcome = vox_.Wait();
    EXPECT_EQ(outcome.status, 2) << outcome.err;
    EXPECT_EQ(outcome.err, "vox: cancelled\n");
    EXPECT_LT(std::chrono::steady_clock::now() - when, std::chrono::seconds(2));
    EXPECT_THAT(vox_.Folder().Leaves(), IsEmpty());
  }
}

TEST_F(VoxScan, ADeviceThatNeverAnswersIsNine) {
  ExpectFailure("-o a.png --virtual-fault silent=always", 9, "does not answer");
}

// A network of its own, in which voxsim has the protocol's own ports; no job server runs there, so
// that vox has to start one.
class VoxOnANetwork : public VoxScan {
 protected:
  void SetUp() override {
    if (std::system("unshare -rn ip link set lo up 2>/dev/null") != 0)
      GTEST_SKIP() << "no network namespace can be made here";
  }
  // Runs a shell script there, with a device on 127.0.0.1 that is made up as `device` says, whose
  // process is $device and whose events are in the file "trace".
  void Run(const std::string& device, const std::string& script) {
    std::ofstream(vox_.File("script")) << R"(
    set -e
    ip link set lo up
    mkdir -p root/var/tmp
    export VOX_ROOT=$PWD/root TMPDIR=$PWD/root PATH=$JOBD:$PATH
    mkfifo ready
    "$SIM/voxsim" --snmp-port 161 --command-port 3892 --trace )"
                                       << device << R"( >ready 2>trace &
    device=$!
    read -r line <ready
    )" << script;
    const std::string folders = "VOX=" VOX_PROGRAM " SIM=" VOX_SIM_FOLDER " JOBD=" VOX_JOBD_FOLDER;
    ASSERT_EQ(std::system(("cd " + vox_.Folder().Path() + " && " + folders +
                           " timeout 60 unshare -rn bash script >said 2>&1")
                              .c_str()),
              0)
        << Said();
  }
};

TEST_F(VoxOnANetwork, ADeviceIsNamedByItsAddress) {
  Run("", R"(
    "$VOX" info net:localhost --json >info
    "$VOX" scan net:127.0.0.1 -o a.png --mode gray --resolution 100
    "$VOX" scan net:127.0.0.1 --resolution 100 --mode lineart >b.pbm
    kill $device
  )");
  EXPECT_EQ(nlohmann::json::parse(ReadFile(vox_.File("info")))["ip"], "127.0.0.1");
  EXPECT_EQ(ReadPng(vox_.File("a.png")).height, 1170U);
  EXPECT_EQ(ReadPnm(ReadFile(vox_.File("b.pbm"))).at(0).bits, 1U);
  EXPECT_EQ(Said(), "a.png: page 1, 850 x 1170 pixels, gray, 100 dpi\n");
}

// The device may see first that nobody takes its data any more; the command comes all the same.
TEST_F(VoxOnANetwork, ACancelledJobIsOverOnTheDeviceToo) {
  Run("--fault stall=data:20000", R"(
    "$VOX" scan net:127.0.0.1 -o a.png --mode gray --resolution 100 &
    until grep -q scan-info-sent trace; do sleep 0.01; done
    kill -TERM $!
    wait $! || echo "status $?"
    until grep -q cancel-command trace && grep -Eq 'job-(cancelled|lost)' trace; do sleep 0.01; done
    grep -Eo 'job-started|cancel-command' trace | uniq
    kill $device
  )");
  EXPECT_EQ(Said(),
            "vox: cancelled; the device was told to stop\nstatus 2\njob-started\ncancel-command\n");
  EXPECT_FALSE(std::filesystem::exists(vox_.File("a.png")));
}

TEST_F(VoxOnANetwork, AJobServerThatCannotStartIsOneLine) {
  Run("", R"(
    mkdir root/var/tmp/com.veltronix.vox.lpd.lock
    "$VOX" scan net:127.0.0.1 -o a.png || echo "status $?"
    kill $device
  )");
  EXPECT_THAT(Said(), StartsWith("vox: cannot start the job server: voxjobd: "));
  EXPECT_THAT(Said(), HasSubstr("; put that right and try again\nstatus 9\n"));
}

TEST_F(VoxOnANetwork, AJobServerThatMayNotOpenItsLockFileIsEleven) {
  Run("", R"(
    : >root/var/tmp/com.veltronix.vox.lpd.lock
    chmod 0444 root/var/tmp/com.veltronix.vox.lpd.lock
    setpriv --bounding-set=-dac_override "$VOX" scan net:127.0.0.1 -o a.png || echo "status $?"
    kill $device
  )");
  EXPECT_THAT(Said(), StartsWith("vox: cannot start the job server: voxjobd: cannot lock "));
  EXPECT_THAT(Said(), HasSubstr("; put that right and try again\nstatus 11\n"));
}

TEST_F(VoxOnANetwork, AMachineRootBelowTheWorkingFolderIsTheJobServersToo) {
  Run("", R"(
    export VOX_ROOT=root
    "$VOX" scan net:127.0.0.1 -o a.png --mode gray --resolution 100
    test -s root/var/tmp/com.veltronix.vox.lpd.lock
    kill $device
  )");
  EXPECT_EQ(Said(), "a.png: page 1, 850 x 1170 pixels, gray, 100 dpi\n");
}

}  // namespace
}  // namespace vox::cli::test
