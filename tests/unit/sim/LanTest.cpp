// Virtual devices on machines of their own: who hears a broadcast, and where the answer comes from.
#include "tests/support/Lan.h"

#include <set>

#include "tests/unit/sim/Asker.h"

namespace vox::sim {
namespace {

using test::Inside;
using test::Lan;

// The host is the first machine of the network; Add puts a device on the next one.
class OnALan : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!lan_.Error().empty()) GTEST_SKIP() << lan_.Error();
  }
  test::Machine& Host() { return lan_[0]; }
  void Add(DeviceOptions options = {}) {
    test::Machine& machine = lan_[devices_.size() + 1];
    if (options.address == "127.0.0.1") options.address = machine.Address();
    options.snmp_port = 161;
    options.command_port = 3892;
    const Inside inside(machine);
    devices_.push_back(std::make_unique<VirtualDevice>(options));
    ASSERT_TRUE(devices_.back()->Start()) << devices_.back()->Error();
  }
  // Takes two answers and gives where they come from.
  static std::set<std::string> SendersOfTwo(Asker& asker) {
    std::set<std::string> senders;
    for (int i = 0; i < 2; ++i) {
      EXPECT_FALSE(asker.Take().empty());
      senders.insert(asker.Sender());
      EXPECT_EQ(asker.SenderPort(), 161);
    }
    return senders;
  }
  Lan lan_{4};
  std::vector<std::unique_ptr<VirtualDevice>> devices_;
};

TEST_F(OnALan, ABroadcastIsAnsweredFromTheDevicesOwnAddressByWhoeverHearsIt) {
  DeviceOptions hears;
  hears.hears_broadcasts = true;
  DeviceOptions everywhere;
  everywhere.address = "0.0.0.0";
  ASSERT_NO_FATAL_FAILURE(Add(hears));
  ASSERT_NO_FATAL_FAILURE(Add(everywhere));
  ASSERT_NO_FATAL_FAILURE(Add());
  const Inside inside(Host());
  Asker asker;
  asker.Ask("255.255.255.255", 161);
  EXPECT_EQ(SendersOfTwo(asker), (std::set<std::string>{"10.77.0.2", "10.77.0.3"}));
  EXPECT_TRUE(asker.Take(kMoment).empty()) << "and one answer each";
}

TEST_F(OnALan, DevicesOfOneMachineAllHearABroadcast) {
  DeviceOptions hears;
  hears.hears_broadcasts = true;
  lan_[1].AddAddress("10.77.0.99");
  ASSERT_NO_FATAL_FAILURE(Add(hears));
  {
    hears.address = "10.77.0.99";
    hears.snmp_port = 161;
    const Inside inside(lan_[1]);
    devices_.push_back(std::make_unique<VirtualDevice>(hears));
    ASSERT_TRUE(devices_.back()->Start()) << devices_.back()->Error();
  }
  const Inside inside(Host());
  Asker asker;
  asker.Ask("255.255.255.255", 161);
  EXPECT_EQ(SendersOfTwo(asker), (std::set<std::string>{"10.77.0.2", "10.77.0.99"}));
}

TEST_F(OnALan, AMachineMovesAndIsUnplugged) {
  lan_[1].SetAddress("10.77.0.50");
  EXPECT_EQ(lan_[1].Address(), "10.77.0.50");
  ASSERT_NO_FATAL_FAILURE(Add());
  const Inside inside(Host());
  Asker asker;
  asker.Ask("10.77.0.50", 161);
  EXPECT_FALSE(asker.Take().empty());
  lan_[1].Unplug();
  asker.Ask("10.77.0.50", 161);
  EXPECT_TRUE(asker.Take(kMoment).empty());
  lan_[1].Plug();
  asker.Ask("10.77.0.50", 161);
  EXPECT_FALSE(asker.Take().empty());
}

}  // namespace
}  // namespace vox::sim
