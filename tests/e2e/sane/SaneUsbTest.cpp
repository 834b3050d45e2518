// scanimage with scanners on an emulated USB bus: found under their serial numbers, pages that
// equal those of vox byte for byte, unplugged, held by somebody else, out of reach.
#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "tests/e2e/VoxFixture.h"
#include "tests/e2e/sane/SaneFixture.h"

namespace vox::cli::test {
namespace {

using testing::HasSubstr;
using testing::MatchesRegex;

class SaneUsb : public testing::Test {
 protected:
  SaneUsb() : place_(vox_) {
    std::filesystem::create_directories(vox_.File("root/var/lib/Veltronix Vox"));
    ::setenv("VOX_ROOT", vox_.File("root").c_str(), 1);
    ::setenv("XDG_CONFIG_HOME", vox_.File("config").c_str(), 1);
  }
  // Makes a command of the script's: a program with the backend.
  void MakeCommand(const std::string& name, const std::string& program) const {
    std::ofstream command(vox_.File(name));
    command << "#!/bin/sh\n[ -z '" SANE_JUDGE_PRELOAD "' ] || bus=:$LD_PRELOAD\nexec";
    for (const std::string& word : SanePlace::Judge(program, ""))
      command << " " << word << (word.rfind("LD_PRELOAD=", 0) == 0 ? "$bus" : "");
    command << " \"$@\"\n";
    command.close();
    std::filesystem::permissions(vox_.File(name), std::filesystem::perms::owner_all);
  }
  // Runs a shell script while a scanner of this description is attached. $VOX is vox, scan is
  // scanimage and frontend the one in C, both with the backend.
  Outcome Script(const std::string& text, const std::string& scanner = "") {
    MakeCommand("scan", "scanimage");
    MakeCommand("frontend", SANE_C_FRONTEND);
    std::ofstream(vox_.File("script")) << "VOX=" SANE_VOX_PROGRAM "\nPATH=$PWD:$PATH\n" << text;
    return vox_.Run("--serial A7K0123 " + scanner + " -- sh " + vox_.File("script"));
  }
  std::string Text(const std::string& leaf) const {
    const Bytes bytes = ReadFile(vox_.File(leaf));
    return {bytes.begin(), bytes.end()};
  }
  void ExpectStatus(int status, const std::string& scanner, const std::string& words,
                    const std::string& options = "") {
    const Outcome outcome =
        Script("scan -d vox:usb:A7K0123 --resolution 300 --format=pnm -o a.pnm " + options + "\n",
               scanner);
    EXPECT_EQ(outcome.status, status) << outcome.err;
    EXPECT_THAT(outcome.err, HasSubstr(words));
  }

  VoxProgram vox_;
  SanePlace place_;
};

TEST_F(SaneUsb, ScannersAreListedUnderTheirSerialNumbersWithoutAnySetUp) {
  const Outcome outcome = Script("scan -L\n", "--serial B2");
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  for (const char* serial : {"A7K0123", "B2"})
    EXPECT_THAT(outcome.out, HasSubstr(std::string("device `vox:usb:") + serial +
                                       "' is a Veltronix QD7200 multi-function peripheral\n"));
}

// Who may not write the shared settings has no device remembered.
TEST_F(SaneUsb, AListDoesNotWaitForASearchWhereAScannerIsAttached) {
  place_.Configure({"discovery on"});
  const Outcome outcome = Script("unshare -rn sh -c 'SANE_DEBUG_VOX=2 scan -L'\n");
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_THAT(outcome.out, HasSubstr("vox:usb:A7K0123"));
  EXPECT_EQ(outcome.err.find("waits for the search"), std::string::npos) << outcome.err;
}

TEST_F(SaneUsb, PagesEqualThoseOfVoxByteForByte) {
  const Outcome outcome = Script(R"(
    set -e
    while read name mode words; do
      scan -d vox:usb:A7K0123 --resolution 100 --mode $mode $words --format=pnm -o $name.sane
      mode=$(echo $mode | tr A-Z a-z)
      $VOX scan usb:A7K0123 --resolution 100 --mode $mode $words --format pnm -o $name.vox
    done <<END
      lineart Lineart
      gray Gray
      color Color
      preview Gray --preview
      threshold Lineart --threshold 70
END
  )");
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  for (const std::string name : {"lineart", "gray", "color", "preview", "threshold"}) {
    std::string page = Text(name + ".sane");
    const std::string remark = "# SANE data follows\n";
    ASSERT_EQ(page.substr(3, remark.size()), remark);
    page.erase(3, remark.size());
    EXPECT_TRUE(SameFile(page, Text(name + ".vox"))) << name;
  }
  EXPECT_NE(Text("threshold.vox"), Text("lineart.vox"));
}

TEST_F(SaneUsb, TheFirstScannerIsOpenedWhenNoneIsNamed) {
  const Outcome outcome = Script("scan --resolution 75 --format=pnm -o a.pnm\n");
  EXPECT_EQ(outcome.status, 0) << outcome.err;
}

TEST_F(SaneUsb, AFeederGivesItsPagesAndThenSaysItIsEmpty) {
  const Outcome outcome = Script(
      "scan -d vox:usb:A7K0123 --source ADF --resolution 75 --format=pnm --batch=p%d.pnm\n"
      "ls p*.pnm | wc -l\n",
      "--feeder 3");
  EXPECT_THAT(outcome.out, HasSubstr("3\n"));
  EXPECT_THAT(outcome.err, HasSubstr("Batch terminated, 3 pages scanned"));
}

// A feeder at USB that is empty does not tell: the device would turn to its glass.
TEST_F(SaneUsb, ACancelAfterEachPageOfAFeederEndsWhereTheFeederDoes) {
  const Outcome outcome = Script("frontend usb:A7K0123 feeder\n", "--feeder 3");
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_EQ(outcome.out, "3 pages\n");
}

TEST_F(SaneUsb, WhatTheDeviceSaysHasItsStatus) {
  ExpectStatus(kBusy, "--fault busy", "Device busy");
  ExpectStatus(kNoDocument, "--empty", "Document feeder out of documents");
  ExpectStatus(kIoError, "--fault unplug=data:500000", "Error during device I/O");
}

// A fault is told without its kind. Where sheets move it is a jam; one on the glass is none.
TEST_F(SaneUsb, AFaultIsAJamWhereSheetsMove) {
  ExpectStatus(kJammed, "--feeder 2 --fault check-error=1000", "Document feeder jammed",
               "--source ADF");
  ExpectStatus(kIoError, "--fault check-error=1000", "Error during device I/O", "--source Flatbed");
}

TEST_F(SaneUsb, AJamEndsABatchAndThePagesBeforeItStay) {
  const Outcome outcome = Script(
      "scan -d vox:usb:A7K0123 --source ADF --resolution 75 --format=pnm --batch=p%d.pnm\n"
      "echo ended with $?; ls p*.pnm\n"
      "scan -d vox:usb:A7K0123 --source ADF --resolution 75 --format=pnm -o again.pnm\n",
      "--feeder 4 --fault page=3,check-error=1000");
  EXPECT_THAT(outcome.err, HasSubstr("Document feeder jammed"));
  EXPECT_THAT(outcome.out, HasSubstr("ended with 6\np1.pnm\np2.pnm\n"));
  EXPECT_EQ(outcome.status, 0) << "the next page is good\n" << outcome.err;
}

TEST_F(SaneUsb, AScannerThatIsNotThereIsInvalid) {
  const Outcome outcome = Script("scan -d vox:usb:B2 -n\n");
  EXPECT_THAT(outcome.err, HasSubstr("Invalid argument"));
  EXPECT_NE(outcome.status, 0);
}

// A superuser has to do without what makes the modes of files nothing to it.
TEST_F(SaneUsb, WhoMayNotOpenTheDeviceIsDenied) {
  const Outcome outcome = Script(
      "chmod 000 $UMOCKDEV_DIR/dev/bus/usb/001/*\n"
      "[ $(id -u) != 0 ] || as='setpriv --bounding-set -dac_override,-dac_read_search'\n"
      "$as scan -d vox:usb:A7K0123 --resolution 75 --format=pnm -o a.pnm\n"
      "chmod 600 $UMOCKDEV_DIR/dev/bus/usb/001/*\n"
      "$as scan -d vox:usb:A7K0123 --resolution 75 -x 20 -y 20 --format=pnm -o b.pnm\n");
  EXPECT_THAT(outcome.err, HasSubstr("Access to resource has been denied"));
  EXPECT_EQ(outcome.status, 0) << outcome.err;
}

TEST_F(SaneUsb, ADeviceThatAnotherProgramScansFromIsBusy) {
  const Outcome outcome = Script(
      "$VOX scan usb:A7K0123 -o a.png --resolution 75 & first=$!\n"
      "until ls -a | grep -q '^[.]a.png'; do sleep 0.05; done; sleep 0.5\n"
      "scan -d vox:usb:A7K0123 --resolution 75 --format=pnm -o b.pnm; echo second $?\n"
      "wait $first; echo first $?\n",
      "--block-bytes 65536 --fault delay=data:200");
  EXPECT_THAT(outcome.err, HasSubstr("Device busy"));
  EXPECT_THAT(outcome.out, MatchesRegex("second [1-9][0-9]*\n(.*\n)?first 0\n"));
}

TEST_F(SaneUsb, CtrlCLeavesTheDeviceReady) {
  const Outcome outcome = Script(
      "for pause in 0.2 0.5 0.8 1.1; do\n"
      "  scan -d vox:usb:A7K0123 --resolution 150 --format=pnm -o a.pnm & scan=$!\n"
      "  sleep $pause; kill -INT $scan; wait $scan; echo $?\n"
      "  scan -d vox:usb:A7K0123 --resolution 75 -x 20 -y 20 --format=pnm -o b.pnm || exit 99\n"
      "done\n",
      "--block-bytes 65536 --fault delay=data:50");
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_THAT(outcome.out, HasSubstr("2\n")) << "none was cancelled within its page";
}

}  // namespace
}  // namespace vox::cli::test
