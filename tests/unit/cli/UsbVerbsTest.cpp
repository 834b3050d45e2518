// The verbs of vox with devices at USB, on a fake of the machine's: found, remembered, named,
// looked for, and what is said when one cannot be used.
#include <iterator>
#include <sstream>
#include <string>
#include <variant>
#include <vector>

#include <sched.h>
#include <sys/stat.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include "tests/support/FakeUsbPort.h"
#include "tests/support/FreshNamespace.h"
#include "tests/unit/registry/Registry.h"
#include "tools/vox/DeviceChoice.h"
#include "tools/vox/DeviceText.h"
#include "tools/vox/Failure.h"
#include "tools/vox/Options.h"
#include "tools/vox/Report.h"
#include "tools/vox/ScanJob.h"
#include "tools/vox/UsbDevice.h"
#include "tools/vox/Verbs.h"

namespace vox::cli::test {
namespace {

using nlohmann::json;
using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;
using vox::test::FakeUsbDevice;
using vox::test::StillImageDevice;

struct Told {
  int status = 0;
  std::string out, err;
};

class UsbVerbs : public Registry {
 protected:
  // Runs a command line as the program does.
  Told Vox(const std::string& line) {
    std::istringstream in(line);
    const std::vector<std::string> words{std::istream_iterator<std::string>(in), {}};
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    Told told;
    try {
      std::visit([](const auto& command) { Execute(command); }, ParseCommandLine(words, false));
    } catch (const Failure& failure) {
      told.status = static_cast<int>(failure.Status());
      told.err = failure.what();
    }
    told.out = testing::internal::GetCapturedStdout();
    told.err += testing::internal::GetCapturedStderr();
    EXPECT_EQ(usb_.Held(), 0) << line;
    return told;
  }
  std::string Good(const std::string& line) {
    const Told told = Vox(line);
    EXPECT_EQ(told.status, 0) << line << "\n" << told.err;
    return told.out;
  }
  void ExpectFailure(const std::string& line, int status, const std::string& words) {
    const Told told = Vox(line);
    EXPECT_EQ(told.status, status) << line;
    EXPECT_THAT(told.err, AllOf(HasSubstr(words), testing::Not(HasSubstr("\n")))) << line;
    EXPECT_EQ(told.out, "") << line;
  }
  void ExpectTrouble(const FakeUsbDevice& device, int status, const std::string& words) {
    const int id = usb_.Attach(device);
    ExpectFailure("info usb:SN1", status, words);
    usb_.Detach(id);
  }
  // A machine without a network, so that nothing but USB answers a search.
  static bool LeaveNetwork() { return vox::test::Unshare(CLONE_NEWNET); }

  vox::test::FakeUsbPort usb_;

 private:
  static void Execute(const ScanOptions& options) { RunScan(options); }
  static void Execute(const InfoOptions& options) { RunInfo(options); }
  static void Execute(const DiscoverOptions& options) { RunDiscover(options); }
  static void Execute(const ListOptions& options) { RunList(options); }
  static void Execute(const AddOptions& options) { RunAdd(options); }
  static void Execute(const RemoveOptions& options) { RunRemove(options); }
  static void Execute(const RegisterOptions& options) { RunRegister(options); }
  static void Execute(const SettingsOptions& options) { RunSettings(options); }
  static void Execute(const TextAnswer& /*answer*/) { FAIL() << "a text was asked for"; }
};

TEST_F(UsbVerbs, AVirtualDeviceHasNoUsbBesideIt) {
  usb_.Attach(StillImageDevice("SN1"));
  EXPECT_THAT(Good("discover --virtual --json"), testing::Not(HasSubstr("SN1")));
}

TEST_F(UsbVerbs, DiscoverShowsAndRemembersWhatIsAttached) {
  if (!LeaveNetwork()) GTEST_SKIP() << "no network namespace can be made here";
  usb_.Attach(StillImageDevice("SN1"));
  const Told first = Vox("discover");
  EXPECT_EQ(first.status, 0) << first.err;
  EXPECT_THAT(first.out,
              StartsWith("at USB          -                       Veltronix QD7200        SN1      "
                         "          new\n1 device found in "));
  EXPECT_THAT(first.err, HasSubstr("no route to 255.255.255.255"));
  EXPECT_EQ(StoredDevice("SN1")->String("serialNumber"), "SN1");
  usb_.Attach(StillImageDevice("SN2"));  // while no program runs: nothing has to be restarted
  std::istringstream lines(Vox("discover --json").out);
  std::string known, added, summary;
  std::getline(lines, known) && std::getline(lines, added) && std::getline(lines, summary);
  EXPECT_EQ(json::parse(known)["state"], "known");
  EXPECT_EQ(json::parse(added)["state"], "new");
  EXPECT_EQ(json::parse(added)["type"], "usb");
  EXPECT_EQ(json::parse(added)["location"], "USB");
  EXPECT_EQ(json::parse(summary)["found"], 2);
  EXPECT_EQ(usb_.Count("IOCreatePlugInInterfaceForService"), 0) << "a search opens nothing";
}

TEST_F(UsbVerbs, AddRemembersASerialNumberThatIsAttached) {
  ExpectFailure("add usb:SN1", 9, "the serial number SN1 is attached; check its cable");
  ExpectFailure("add usb:", 64, "usb: wants a serial number");
  usb_.Attach(StillImageDevice("SN1"));
  EXPECT_EQ(Good("add usb:SN1"), "added: Veltronix QD7200 (SN1 at USB), Veltronix QD7200, SN1\n");
  EXPECT_THAT(Good("add usb:SN1"), StartsWith("known already: "));
  EXPECT_EQ(StoredDevice("SN1")->String("type"), "usb");
  FakeUsbDevice other = StillImageDevice("SN2");
  other.properties.Set(kUSBProductString, "Typewriter");
  usb_.Attach(other);
  ExpectFailure("add usb:SN2", 4, "is a Veltronix Typewriter, which is not supported");
}

TEST_F(UsbVerbs, AListTellsWhatIsAttached) {
  Manager().appendOneDeviceInfo(Usb("SN1"));
  Manager().appendOneDeviceInfo(Usb("SN2"));
  usb_.Attach(StillImageDevice("SN2"));
  EXPECT_EQ(Good("list"),
            "at USB          -                       Veltronix QD7200        SN1\n"
            "at USB          -                       Veltronix QD7200        SN2\n");
  std::istringstream lines(Good("list --online --json"));
  std::string first, second;
  std::getline(lines, first) && std::getline(lines, second);
  EXPECT_EQ(json::parse(first)["online"], false);
  EXPECT_EQ(json::parse(first)["state"], "not-attached");
  EXPECT_EQ(json::parse(second)["online"], true);
  EXPECT_THAT(Good("list --online"), EndsWith("SN2                online\n"));
  EXPECT_EQ(usb_.Count("IOCreatePlugInInterfaceForService"), 0) << "a list opens nothing";
}

TEST_F(UsbVerbs, ASerialNumberFindsARecordUnderAnyId) {
  DeviceInfo record = Usb("SN1");
  record->Set("deviceId", "elsewhere");
  Manager().appendOneDeviceInfo(record);
  EXPECT_EQ(FindDevice("usb:SN1").remembered, Manager().infoForDevice("elsewhere"));
  ExpectFailure("register usb:SN1", 4, "devices at USB need no registration");
  EXPECT_THAT(Good("remove usb:SN1"), StartsWith("forgotten: "));
  EXPECT_TRUE(Manager().knownDevices().empty());
  ExpectFailure("remove usb:SN1", 4, "no device at USB with the serial number of usb:SN1");
}

TEST_F(UsbVerbs, ModelsAndSerialNumbersAreNames) {
  const DeviceInfoArray known = {Usb("A1"), Usb("A2"), Network("m", "10.0.0.1", "Veltronix")};
  const auto ids = [&](const std::string& text) {
    std::vector<std::string> found;
    for (const DeviceInfo& device : MatchDevices(known, text))
      found.push_back(*device->String(kDeviceIdKey));
    return found;
  };
  EXPECT_THAT(ids("a1"), ElementsAre("A1"));
  EXPECT_THAT(ids("A"), ElementsAre("A1", "A2"));
  EXPECT_THAT(ids("qd72"), ElementsAre("A1", "A2"));
  EXPECT_THAT(ids("veltronix qd7200"), ElementsAre("A1", "A2"));
  EXPECT_THAT(ids("veltronix"), ElementsAre("m")) << "what is whole goes first";
  EXPECT_THAT(ids("7200"), ElementsAre());
}

TEST_F(UsbVerbs, ADeviceThatIsNotRememberedIsFoundByItsSerialNumber) {
  usb_.Attach(StillImageDevice("SN1"));
  const DeviceTarget target = FindDevice("usb:SN1");
  EXPECT_EQ(target.remembered, nullptr);
  EXPECT_EQ(target.usb->String("modelName"), "Veltronix QD7200");
  EXPECT_EQ(target.label, "Veltronix QD7200 (SN1 at USB)");
}

TEST_F(UsbVerbs, RecordsThatCannotBeUsedSaySo) {
  DeviceInfo record = Usb("SN1");
  record->Set("serialNumber", 5);
  Manager().appendOneDeviceInfo(record);
  ExpectFailure("scan SN1", 4, "is remembered without its model or its serial number");
  Manager().appendOneDeviceInfo(
      std::make_shared<Dictionary>(Dictionary{{"deviceId", "x"}, {"type", "scsi"}}));
  ExpectFailure("scan x", 4, "is remembered neither as a network device nor as one at USB");
}

TEST_F(UsbVerbs, WhatKeepsADeviceFromBeingUsedHasItsStatus) {
  Manager().appendOneDeviceInfo(Usb("SN1"));
  ExpectFailure("scan SN1", 9, "cannot use Veltronix QD7200 (SN1 at USB): it is not attached");
  FakeUsbDevice held = StillImageDevice("SN1");
  held.open_refusals = vox::test::kAlwaysRefused;
  ExpectTrouble(held, 3, "another program holds it (fuser -v /dev/bus/usb/001/002 names it)");
  EXPECT_EQ(usb_.Count("USBDeviceOpenSeize"), 10);
  FakeUsbDevice forbidden = StillImageDevice("SN1");
  forbidden.open = kIOReturnNotPermitted;
  ExpectTrouble(forbidden, 11, "may not open /dev/bus/usb/001/002; ");
  ExpectTrouble(forbidden, 11, "/rules.d/60-vox.rules");
  FakeUsbDevice gone = StillImageDevice("SN1");
  gone.open = kIOReturnNoDevice;
  ExpectTrouble(gone, 9, "it is not attached");
  FakeUsbDevice let_go = StillImageDevice("SN1");
  let_go.open_refusals = 3;
  usb_.Attach(let_go);
  EXPECT_FALSE(FindUsbTrouble(*Usb("SN1"))) << "the other program has finished";
  EXPECT_EQ(usb_.OpenDevices(), 0);
  DeviceInfo unknown = Usb("SN1");
  unknown->Set("modelName", "Typewriter");
  EXPECT_EQ(FindUsbTrouble(*unknown)->status, ExitStatus::kCannot);
}

TEST_F(UsbVerbs, ANodeThatOthersOwnIsToldOfBeforeItIsOpened) {
  const std::string node = Path("node");
  std::ofstream(node) << "x";
  ::chmod(node.c_str(), 0);
  FakeUsbDevice device = StillImageDevice("SN1");
  device.properties.Set(kUSBDeviceNode, node);
  usb_.Attach(device);
  EXPECT_EXIT(
      {
        if (::geteuid() == 0 && ::setresuid(65534, 65534, 65534) != 0) std::_Exit(1);
        const auto trouble = FindUsbTrouble(*Usb("SN1"));
        if (trouble) std::fputs(trouble->reason.c_str(), stderr);
        std::_Exit(trouble ? static_cast<int>(trouble->status) : 0);
      },
      testing::ExitedWithCode(11), "this user may not open .*/node; .*60-vox\\.rules");
}

TEST_F(UsbVerbs, ADeviceThatDoesNotAnswerIsNine) {
  FakeUsbDevice broken = StillImageDevice("SN1");
  broken.on_write = [](const auto&, const auto&) { return kIOReturnError; };
  ExpectTrouble(broken, 9, "cannot ask what can be done on Veltronix QD7200 (SN1 at USB): it does");
  int id = 0;
  FakeUsbDevice leaving = StillImageDevice("SN1");
  leaving.on_write = [&](const auto&, const auto&) {
    usb_.Detach(id);
    return kIOReturnNoDevice;
  };
  id = usb_.Attach(leaving);
  ExpectFailure("info usb:SN1", 9, "it was unplugged, or switched off; plug it in");
}

TEST_F(UsbVerbs, AReportHasTheRecordsKeysAndNoNetwork) {
  DeviceReport report;
  report.usb = Usb("SN1");
  report.abilities.common.byImageTypes = 2;
  report.abilities.units.resize(1);
  report.abilities.units[0].byPaperSources = 2;
  const json object = json::parse(DeviceJson(report));
  EXPECT_EQ(object["deviceId"], "SN1");
  EXPECT_EQ(object["type"], "usb");
  EXPECT_EQ(object["feederLoaded"], json(nullptr));
  EXPECT_FALSE(object.contains("ip"));
  EXPECT_THAT(DeviceWords(report),
              AllOf(StartsWith("Model         Veltronix QD7200\nAddress       usb:SN1\n"),
                    HasSubstr("not remembered"), testing::Not(HasSubstr("empty"))));
  report.remembered = report.usb;
  EXPECT_THAT(DeviceWords(report), HasSubstr("Id            SN1\n"));
}

TEST_F(UsbVerbs, RegisteringAllSpeaksOfWhatThereIs) {
  DeviceInfo lost = Network("m", "", "Office");
  lost->Remove("ip");
  Manager().appendOneDeviceInfo(lost);
  ExpectFailure("register --all", 4, "no network device is remembered with an address; find them");
  Manager().removeDevice("m");
  Manager().appendOneDeviceInfo(Usb("SN1"));
  ExpectFailure("register --all", 4, "devices at USB need no registration");
}

}  // namespace
}  // namespace vox::cli::test
