// scanimage and devices that the network is searched for: nothing is set up, or an address has
// changed.
#include "tests/e2e/sane/SaneFixture.h"
#include "tests/support/FreshLoopback.h"
#include "tests/support/SmallDevice.h"

namespace vox::cli::test {
namespace {

using testing::HasSubstr;

constexpr char kCellar[] = "vox:net:02:56:58:00:00:04";

class ScanimageSearch : public Sane {
 protected:
  void SetUp() override {
    Sane::SetUp();
    if (IsSkipped()) return;
    if (!vox::test::RouteBroadcasts()) GTEST_SKIP() << "no route for broadcasts can be made here";
    place_->Configure({"discovery on"});
  }
  sim::VirtualDevice& PutSmall(std::uint8_t host, std::uint8_t id) {
    sim::DeviceOptions options = vox::test::SmallDevice();
    const sim::DeviceOptions at = At(host, id);
    options.address = at.address;
    options.mac = at.mac;
    options.snmp_port = at.snmp_port;
    options.command_port = at.command_port;
    options.hears_broadcasts = true;
    return Put(std::move(options));
  }
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
  const Outcome outcome = Scanimage(std::string("-d ") + kCellar + " --format=pnm -o a.pnm");
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_EQ(Jobs(moved), 1U);
  EXPECT_EQ(Jobs(stranger), 0U) << "which is another device";
}

TEST_F(ScanimageSearch, ADeviceIsFoundWhenNobodyIsAtItsOldAddress) {
  PutSmall(4, 4);
  Good("add 127.0.0.4");
  devices_.clear();
  sim::VirtualDevice& moved = PutSmall(6, 4);
  const Outcome outcome = Scanimage(std::string("-d ") + kCellar + " --format=pnm -o a.pnm");
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_EQ(Jobs(moved), 1U);
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
