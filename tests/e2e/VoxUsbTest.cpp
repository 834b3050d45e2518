// The vox program with scanners on an emulated USB bus, which libusb takes for the machine's:
// found, shown, scanned pixel for pixel, held by somebody else, unplugged, cancelled.
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include <nlohmann/json.hpp>

#include "tests/e2e/VoxFixture.h"
#include "tests/support/Sanitized.h"
#include "vox/drivers/net/searchping.h"

namespace vox::cli::test {
namespace {

using nlohmann::json;
using testing::AllOf;
using testing::AnyOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr char kNoPings[] =
    "vox: note: pings are not permitted here (see net.ipv4.ping_group_range); devices are asked "
    "over SNMP alone\n";
constexpr char kName[] = "Veltronix QD7200 (A7K0123 at USB)";

class VoxUsb : public VoxScan {
 protected:
  VoxUsb() {
    std::filesystem::create_directories(root_.File("root/var/lib/Veltronix Vox"));
    ::setenv("VOX_ROOT", root_.File("root").c_str(), 1);
    ::setenv("XDG_CONFIG_HOME", root_.File("config").c_str(), 1);
  }

  // Vox runs a command line while a scanner of this description is attached.
  Outcome Vox(const std::string& arguments, const std::string& scanner = "") {
    return vox_.Run(Line(VOX_ITSELF " " + arguments, scanner));
  }
  static std::string Line(const std::string& program, const std::string& scanner) {
    return "--serial A7K0123 " + scanner + " -- " + program;
  }
  std::string Good(const std::string& arguments, const std::string& scanner = "") {
    const Outcome outcome = Vox(arguments, scanner);
    EXPECT_EQ(outcome.status, 0) << arguments << "\n" << outcome.err;
    EXPECT_THAT(outcome.err, AnyOf("", network_ping_permitted() ? "" : kNoPings)) << arguments;
    return outcome.out;
  }
  void ExpectFailure(const std::string& arguments, const std::string& scanner, int status,
                     const std::string& words) {
    const Outcome outcome = Vox(arguments, scanner);
    EXPECT_EQ(outcome.status, status) << arguments << "\n" << outcome.err;
    EXPECT_THAT(outcome.err, AllOf(StartsWith("vox: "), HasSubstr(words))) << arguments;
    EXPECT_EQ(outcome.err.find('\n'), outcome.err.size() - 1) << "one line:\n" << outcome.err;
    EXPECT_EQ(outcome.out, "");
  }
  // Runs a shell script while a scanner is attached; $VOX is the program.
  Outcome Script(const std::string& text, const std::string& scanner = "") {
    std::ofstream(root_.File("script")) << "VOX=" VOX_ITSELF "\n" << text;
    return vox_.Run(Line("sh " + root_.File("script"), scanner));
  }

  TestFolder root_;
};

TEST_F(VoxUsb, ADeviceIsFoundRememberedShownAndForgotten) {
  const json found = json::parse(Good("add usb:A7K0123 --json"));
  EXPECT_EQ(found, json::parse(R"({"deviceId":"A7K0123","type":"usb","location":"USB",
                                   "modelName":"Veltronix QD7200","serialNumber":"A7K0123"})"));
  EXPECT_EQ(Good("list --online"),
            "at USB          -                       Veltronix QD7200        A7K0123            "
            "online\n");
  const json info = json::parse(Good("info qd72 --json"));
  EXPECT_EQ(info["serialNumber"], "A7K0123");
  EXPECT_EQ(info["virtual"], false);
  EXPECT_EQ(info["modes"], json::parse(R"(["lineart","gray","color"])"));
  EXPECT_THAT(Good("info"), HasSubstr("Address       usb:A7K0123\n"));
  const Outcome discover = Vox("discover --json", "--serial B2");
  EXPECT_THAT(discover.out, AllOf(StartsWith(R"({"deviceId":"A7K0123","type":"usb",)"),
                                  HasSubstr(R"("state":"known")"), HasSubstr(R"("state":"new")")));
  EXPECT_EQ(discover.status, 0) << discover.err;
  EXPECT_EQ(Good("remove usb:B2"), "forgotten: Veltronix QD7200 (B2 at USB)\n");
}

TEST_F(VoxUsb, EveryModeGivesThePageBackPixelForPixel) {
  for (const unsigned bits : {1U, 8U, 24U}) {
    const std::string page = PutPage(bits);
    const std::string said = Good("scan usb:A7K0123 -o scan.png --resolution 300 --mode " +
                                      std::string(ModeOf(bits)) + PageFrame(),
                                  page);
    EXPECT_EQ(said,
              std::string("scan.png: page 1, 320 x 240 pixels, ") + ModeOf(bits) + ", 300 dpi\n");
    ExpectPage(ReadPng(vox_.File("scan.png")), bits, 0);
  }
}

TEST_F(VoxUsb, APipeHoldsThePageAloneAndNoJobServerIsStarted) {
  const std::string page = PutPage(8);
  const Outcome outcome = Vox("scan usb:A7K0123 -o - --mode gray" + PageFrame(), page);
  ASSERT_EQ(outcome.status, 0) << outcome.err;
  const auto pictures = ReadPnm(Bytes(outcome.out.begin(), outcome.out.end()));
  ASSERT_EQ(pictures.size(), 1U);
  ExpectPage(pictures[0], 8, 0);
  EXPECT_FALSE(std::filesystem::exists(root_.File("root/var/tmp"))) << "nor its lock file";
}

TEST_F(VoxUsb, AFeederGivesTenPagesInTheirOrder) {
  std::string pages = "--feeder 10";
  for (unsigned seed = 0; seed < 10; ++seed) pages += " " + PutPage(8, seed);
  std::istringstream lines(
      Good("scan usb:A7K0123 --batch page%d.png --json --mode gray" + PageFrame(), pages));
  unsigned page = 0;
  for (std::string line; std::getline(lines, line); ++page) {
    EXPECT_EQ(json::parse(line)["page"], page + 1);
    ExpectPage(ReadPng(Numbered("page", page + 1)), 8, page);
  }
  EXPECT_EQ(page, 10U);
}

TEST_F(VoxUsb, WhatTheDeviceSaysHasItsStatus) {
  const std::string scan = "scan usb:A7K0123 -o a.png";
  ExpectFailure(scan, "--fault busy", 3, "it is busy");
  ExpectFailure(scan, "--empty", 7, "there is no document");
  ExpectFailure(scan, "--fault check-error=1000", 9, "it reports a fault; look at its panel");
  ExpectFailure("scan usb:B2 -o a.png", "", 9, "the serial number B2 is attached; check its cable");
}

// A superuser has to do without what makes the modes of files nothing to it.
TEST_F(VoxUsb, WhoMayNotOpenTheDeviceIsToldHowToBeAdmitted) {
  const Outcome outcome = Script(
      "chmod 000 $UMOCKDEV_DIR/dev/bus/usb/001/*\n"
      "[ $(id -u) != 0 ] || as='setpriv --bounding-set -dac_override,-dac_read_search'\n"
      "$as $VOX scan usb:A7K0123 -o a.png; echo $?\n"
      "chmod 600 $UMOCKDEV_DIR/dev/bus/usb/001/*\n"
      "$as $VOX scan usb:A7K0123 -o b.png --resolution 75 --frame 0,0,20,20\n");
  EXPECT_THAT(outcome.err, AllOf(StartsWith(std::string("vox: cannot use ") + kName +
                                            ": this user may not open /dev/bus/usb/001/"),
                                 HasSubstr("/60-vox.rules"), HasSubstr("plug it in again"),
                                 HasSubstr("the group scanner")));
  EXPECT_THAT(outcome.out, StartsWith("11\nb.png: page 1, "));
  EXPECT_EQ(outcome.status, 0);
}

// However few there are, nobody says that the device is away, or that its cable may be.
TEST_F(VoxUsb, WithTooFewFileDescriptorsThatIsSaid) {
  if (vox::test::kSanitized) GTEST_SKIP() << "a sanitizer opens descriptors of its own";
  const Outcome outcome = Script(
      "$VOX add usb:A7K0123 >log\n"
      "for most in 4 6 10 12 14 16 18 20 24 32 64; do\n"
      "  for verb in 'info usb:A7K0123' 'list --online' 'add usb:A7K0123'; do\n"
      "    (ulimit -n $most; exec $VOX $verb) >said 2>&1; status=$?\n"
      "    echo $status; echo $most $verb: $status >>log; cat said >>log\n"
      "  done\n"
      "done\n"
      "(ulimit -n 8; exec $VOX info usb:A7K0123) 2>>log; echo $?; cat log >&2; rm log said\n");
  EXPECT_THAT(outcome.err,
              AllOf(Not(HasSubstr("attached")), Not(HasSubstr("cable")),
                    HasSubstr("too few file descriptors; raise their limit (see ulimit -n)"),
                    HasSubstr("64 list --online: 0\n")))
      << outcome.out;
  std::istringstream statuses(outcome.out);
  int ended_so = 0;
  for (std::string status; std::getline(statuses, status); ended_so += status == "10") {
    EXPECT_THAT(status, testing::AnyOf("0", "10", "127")) << outcome.err;
  }
  EXPECT_GT(ended_so, 3);
}

TEST_F(VoxUsb, ADeviceThatIsUnpluggedLeavesNoFile) {
  ExpectFailure("scan usb:A7K0123 -o a.png", "--fault unplug=data:500000", 9,
                "it was unplugged, or switched off; plug it in");
  EXPECT_FALSE(std::filesystem::exists(vox_.File("a.png")));
}

TEST_F(VoxUsb, ADeviceThatAnotherProgramScansFromIsBusy) {
  const Outcome outcome = Script(
      "$VOX scan usb:A7K0123 -o a.png --resolution 75 2>first & first=$!\n"
      "until ls -a | grep -q '^[.]a.png'; do sleep 0.05; done; sleep 0.5\n"
      "$VOX info usb:A7K0123; echo $?\n"
      "wait $first; echo $?; rm -f first\n",
      "--block-bytes 65536 --fault delay=data:200");
  EXPECT_THAT(outcome.err, StartsWith(std::string("vox: cannot use ") + kName +
                                      ": another program holds it (fuser -v /dev/bus/usb/"));
  EXPECT_THAT(outcome.out, AllOf(StartsWith("3\n"), testing::EndsWith("0\n")));
}

TEST_F(VoxUsb, CtrlCInTheMiddleOfAPageLeavesTheDeviceReady) {
  const Outcome outcome = Script(
      "$VOX scan usb:A7K0123 -o a.png 2>said & scan=$!\n"
      "until ls -a | grep -q '^[.]a.png'; do sleep 0.05; done; sleep 0.5\n"
      "kill -TERM $scan; wait $scan; echo $?; cat said; rm said; ls -a | grep a.png\n"
      "$VOX scan usb:A7K0123 -o b.png --resolution 75 --frame 0,0,20,20\n",
      "--block-bytes 65536 --fault delay=data:100");
  EXPECT_THAT(outcome.out, StartsWith("2\nvox: cancelled; the device was told to stop\nb.png: "));
  EXPECT_EQ(outcome.status, 0) << outcome.err;
}

}  // namespace
}  // namespace vox::cli::test
