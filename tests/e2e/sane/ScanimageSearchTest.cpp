// scanimage and devices that the network is searched for: nothing is set up, or an address has
// changed.
#include "tests/e2e/sane/SaneFixture.h"
#include "tests/support/FreshLoopback.h"
#include "tests/support/SmallDevice.h"

namespace vox::cli::test {
namespace {

using testing::HasSubstr;

constexpr char kCellar[] = "vox:net:02:56:58:00:00:04";
constexpr char kAttic[] = "vox:net:02:56:58:00:00:09";

class ScanimageSearch : public Sane {
 protected:
  void SetUp() override {
    Sane::SetUp();
    if (IsSkipped()) return;
    if (!vox::test::RouteBroadcasts()) GTEST_SKIP() << "no route for broadcasts can be made here";
    place_->Configure({"discovery on"});
  }
  sim::VirtualDevice& PutSmall(std::uint8_t host, std::uint8_t id, bool hears_broadcasts = true) {
    sim::DeviceOptions options = vox::test::SmallDevice();
    const sim::DeviceOptions at = At(host, id);
    options.address = at.address;
    options.mac = at.mac;
    options.snmp_port = at.snmp_port;
    options.command_port = at.command_port;
    options.hears_broadcasts = hears_broadcasts;
    return Put(std::move(options));
  }
  // A device that no search hears.
  sim::VirtualDevice& PutDeaf(std::uint8_t host, std::uint8_t id) {
    return PutSmall(host, id, false);
  }
  // The cellar's device alone is remembered, at 127.0.0.4, which vox.conf names; the attic's is
  // there now.
  sim::VirtualDevice& ReplaceTheCellars(const std::string& discovery) {
    devices_.clear();
    std::filesystem::remove(SharedFile());
    PutDeaf(4, 4);
    Good("add 127.0.0.4");
    devices_.clear();
    place_->Configure({"device net:127.0.0.4", discovery});
    return PutDeaf(4, 9);
  }
  Outcome Page(const std::string& device) { return Scanimage(device + " --format=pnm -o a.pnm"); }
  std::string Names() { return Scanimage("--formatted-device-list=%d%n").out; }
  static std::size_t Jobs(sim::VirtualDevice& device) {
    return device.Events().Count(sim::EventKind::kJobStarted);
  }
};

TEST_F(ScanimageSearch, FindsWhatNobodyHasSetUpAndRemembersIt) {
  PutSmall(4, 4);
  const std::string line =
      std::string("device `") + kCellar + "' is a Veltronix QD7200 multi-function peripheral\n";
  EXPECT_EQ(Scanimage("-L").out, line);
  place_->Configure({"discovery off"});
  EXPECT_EQ(Scanimage("-L").out, line) << "the next program knows it";
}

TEST_F(ScanimageSearch, IsNotMadeWhereTheConfigurationForbidsIt) {
  sim::VirtualDevice& device = PutSmall(4, 4);
  place_->Configure({"discovery off"});
  EXPECT_THAT(Scanimage("-L").out, HasSubstr("No scanners were identified"));
  EXPECT_EQ(device.Events().Count(sim::EventKind::kSnmpRequest), 0U);
}

TEST_F(ScanimageSearch, ADeviceIsFoundUnderItsNameAtItsNewAddress) {
  PutSmall(4, 4);
  Good("add 127.0.0.4");
  devices_.clear();
  sim::VirtualDevice& moved = PutSmall(5, 4);
  sim::VirtualDevice& stranger = PutSmall(4, 9);  // has the address now
  const Outcome outcome = Page(std::string("-d ") + kCellar);
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_EQ(Jobs(moved), 1U);
  EXPECT_EQ(Jobs(stranger), 0U) << "which is another device";
}

TEST_F(ScanimageSearch, ADeviceIsFoundWhenNobodyIsAtItsOldAddress) {
  PutSmall(4, 4);
  Good("add 127.0.0.4");
  devices_.clear();
  sim::VirtualDevice& moved = PutSmall(6, 4);
  const Outcome outcome = Page(std::string("-d ") + kCellar);
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_EQ(Jobs(moved), 1U);
}

// vox.conf says where a device is; what is remembered of that address may be out of date.
TEST_F(ScanimageSearch, ADeviceOfTheConfigurationIsFoundWhereAnotherOneIsRemembered) {
  for (const char* discovery : {"discovery off", "discovery on"}) {
    SCOPED_TRACE(discovery);
    sim::VirtualDevice& device = ReplaceTheCellars(discovery);
    const Outcome outcome = Page(std::string("-d ") + kAttic);
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_EQ(Jobs(device), 1U);
  }
}

TEST_F(ScanimageSearch, AnOutdatedRecordStandsForAnAddressUntilItsDeviceIsMissed) {
  for (const char* discovery : {"discovery off", "discovery on"}) {
    SCOPED_TRACE(discovery);
    sim::VirtualDevice& device = ReplaceTheCellars(discovery);
    EXPECT_EQ(Names(), std::string(kCellar) + "\n") << "nobody is asked for a list";
    EXPECT_EQ(device.Events().Count(sim::EventKind::kSnmpRequest), 0U);
    const Outcome missed = Page(std::string("-d ") + kCellar);
    EXPECT_THAT(missed.err, HasSubstr("Invalid argument"));
    EXPECT_EQ(Jobs(device), 0U) << "which is another device";
    EXPECT_EQ(Names(), std::string(kAttic) + "\n" + kCellar + "\n") << "and nobody is forgotten";
    const Outcome outcome = Page("");
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_EQ(Jobs(device), 1U);
  }
}

TEST_F(ScanimageSearch, WithoutANameTheFirstDeviceThatIsThereIsOpened) {
  sim::VirtualDevice& device = ReplaceTheCellars("discovery off");
  const Outcome replaced = Page("-d vox");
  EXPECT_EQ(replaced.status, 0) << replaced.err;
  EXPECT_EQ(Jobs(device), 1U);
  devices_.clear();
  sim::VirtualDevice& other = PutDeaf(5, 5);
  place_->Configure({"device net:127.0.0.4", "device net:127.0.0.5"});
  const Outcome silent = Page("-d vox");
  EXPECT_EQ(silent.status, 0) << silent.err;
  EXPECT_EQ(Jobs(other), 1U);
}

// A superuser has to do without what makes the modes of files nothing to it.
TEST_F(ScanimageSearch, WhoMayNotRememberIsBroughtToTheDeviceThatIsThereToo) {
  namespace fs = std::filesystem;
  sim::VirtualDevice& device = ReplaceTheCellars("discovery off");
  const std::string before = Text("root/var/lib/Veltronix Vox/com.veltronix.vox.plist");
  fs::permissions(Shared(), fs::perms::owner_read | fs::perms::owner_exec);
  const Outcome outcome = Run("setpriv",
                              "--bounding-set -dac_override,-dac_read_search scanimage -d vox "
                              "--format=pnm -o a.pnm");
  fs::permissions(Shared(), fs::perms::owner_all);
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_EQ(Jobs(device), 1U);
  EXPECT_EQ(Text("root/var/lib/Veltronix Vox/com.veltronix.vox.plist"), before);
}

TEST_F(ScanimageSearch, OfTwoThatAreRememberedAtAnAddressTheOneThatIsThereIsListed) {
  for (const std::uint8_t id : {9, 4}) {
    devices_.clear();
    PutDeaf(4, id);
    Good("add 127.0.0.4");
  }
  place_->Configure({"device net:127.0.0.4"});
  for (const std::uint8_t id : {9, 4}) {
    devices_.clear();
    sim::VirtualDevice& device = PutDeaf(4, id);
    const std::string first = id == 4 ? kCellar : kAttic, second = id == 4 ? kAttic : kCellar;
    EXPECT_EQ(Names(), first + "\n" + second + "\n");
    const Outcome outcome = Page("");
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_EQ(Jobs(device), 1U);
  }
  devices_.clear();
  EXPECT_EQ(Names(), std::string("vox:net:127.0.0.4\n") + kCellar + "\n" + kAttic + "\n")
      << "nobody says which it is";
}

// There are more than are asked at the same time, and another device is remembered at the last.
TEST_F(ScanimageSearch, ADeviceIsFoundAtTheLastOfManyAddressesOfTheConfiguration) {
  std::vector<std::string> lines;
  PutDeaf(40, 9);
  for (int host = 20; host <= 40; ++host) {
    const std::string address = "127.0.0." + std::to_string(host);
    lines.push_back("device net:" + address);
  }
  Good("add 127.0.0.40");
  devices_.clear();
  sim::VirtualDevice& moved = PutDeaf(40, 4);
  place_->Configure(lines);
  const Outcome outcome = Page(std::string("-d ") + kCellar);
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_EQ(Jobs(moved), 1U);
}

TEST_F(ScanimageSearch, AListSaysWhyItTakesItsTime) {
  constexpr char kWaits[] = "the list waits for the search";
  PutSmall(4, 4);
  ::setenv("SANE_DEBUG_VOX", "2", 1);
  EXPECT_THAT(Scanimage("-L").err, HasSubstr(kWaits));
  EXPECT_THAT(Scanimage("-L").err, testing::Not(HasSubstr(kWaits))) << "a device is known now";
  ::unsetenv("SANE_DEBUG_VOX");
}

TEST_F(ScanimageSearch, ADeviceThatIsNowhereIsInvalid) {
  PutSmall(4, 4);
  Good("add 127.0.0.4");
  devices_.clear();
  sim::VirtualDevice& stranger = PutSmall(4, 9);
  const Outcome outcome = Scanimage(std::string("-n -d ") + kCellar);
  EXPECT_NE(outcome.status, 0);
  EXPECT_THAT(outcome.err, HasSubstr("Invalid argument"));
  EXPECT_EQ(Jobs(stranger), 0U);
}

}  // namespace
}  // namespace vox::cli::test
