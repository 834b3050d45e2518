// Which interface of this computer is on a device's network.
#include <cstring>
#include <deque>

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <netpacket/packet.h>

#include "tests/support/Hex.h"
#include "vox/drivers/net/searchinterface.h"
#include "vox/drivers/net/searchregister.h"

namespace vox::test {
namespace {

// Machine is a computer with interfaces of a test's choice, in the system's order.
class Machine {
 public:
  Machine& Link(const std::string& name, const Bytes& mac) {
    sockaddr_storage& address = Entry(name, AF_PACKET);
    sockaddr_ll link{};
    link.sll_family = AF_PACKET;
    link.sll_halen = static_cast<unsigned char>(mac.size());
    std::memcpy(link.sll_addr, mac.data(), std::min(mac.size(), sizeof link.sll_addr));
    std::memcpy(&address, &link, sizeof link);
    return *this;
  }
  Machine& Has(const std::string& name, const std::string& address, const std::string& mask = "",
               unsigned flags = IFF_UP) {
    Fill(Entry(name, AF_INET), address);
    entries_.back().ifa_flags = flags;
    if (mask.empty()) return *this;
    addresses_.emplace_back();
    Fill(addresses_.back(), mask);
    entries_.back().ifa_netmask = reinterpret_cast<sockaddr*>(&addresses_.back());
    return *this;
  }
  Machine& HasNoAddress(const std::string& name) {
    Entry(name, AF_INET);
    entries_.back().ifa_addr = nullptr;
    return *this;
  }

  // Towards gives "address at MAC", or "none".
  std::string Towards(const std::string& device) {
    in_addr to{};
    EXPECT_EQ(inet_pton(AF_INET, device.c_str(), &to), 1);
    in_addr local{};
    std::uint8_t mac[6] = {};
    const ifaddrs* list = entries_.empty() ? nullptr : &entries_.front();
    if (!choose_interface(list, to.s_addr, &local.s_addr, mac)) return "none";
    return inet_ntoa(local) + std::string(" at ") + ToHex(mac, sizeof mac);
  }

 private:
  sockaddr_storage& Entry(const std::string& name, int family) {
    names_.push_back(name);
    addresses_.emplace_back();
    addresses_.back().ss_family = static_cast<sa_family_t>(family);
    entries_.emplace_back();
    if (entries_.size() > 1) entries_[entries_.size() - 2].ifa_next = &entries_.back();
    entries_.back().ifa_name = names_.back().data();
    entries_.back().ifa_addr = reinterpret_cast<sockaddr*>(&addresses_.back());
    return addresses_.back();
  }
  static void Fill(sockaddr_storage& to, const std::string& text) {
    sockaddr_in in{};
    in.sin_family = AF_INET;
    EXPECT_EQ(inet_pton(AF_INET, text.c_str(), &in.sin_addr), 1);
    std::memcpy(&to, &in, sizeof in);
  }
  std::deque<std::string> names_;
  std::deque<sockaddr_storage> addresses_;
  std::deque<ifaddrs> entries_;
};

const Bytes kMac = Hex("02 00 00 00 00 01"), kOtherMac = Hex("02 00 00 00 00 02");

TEST(Interface, IsTheOneWithTheDevicesNetworkNumber) {
  Machine machine;
  machine.Link("eth0", kMac).Link("eth1", kOtherMac);
  machine.Has("eth0", "192.168.0.5").Has("eth1", "192.168.1.5");
  EXPECT_EQ(machine.Towards("192.168.0.9"), "192.168.0.5 at 02 00 00 00 00 01");
  EXPECT_EQ(machine.Towards("192.168.1.9"), "192.168.1.5 at 02 00 00 00 00 02");
  EXPECT_EQ(machine.Towards("192.168.2.9"), "none");
}

TEST(Interface, NetworkNumbersAreClassful) {
  Machine machine;
  machine.Link("eth0", kMac).Has("eth0", "10.1.0.5", "255.255.255.0");
  EXPECT_EQ(machine.Towards("10.200.3.4"), "10.1.0.5 at 02 00 00 00 00 01") << "all of 10";
  EXPECT_EQ(machine.Towards("11.1.0.5"), "none");
  Machine b;
  b.Link("eth0", kMac).Has("eth0", "172.16.0.5");
  EXPECT_EQ(b.Towards("172.16.255.1"), "172.16.0.5 at 02 00 00 00 00 01");
  EXPECT_EQ(b.Towards("172.17.0.1"), "none");
}

TEST(Interface, MayHaveNoAddressAndMustHaveAMacOfSixBytes) {
  Machine machine;
  machine.HasNoAddress("ppp0").Link("ib0", Bytes(8, 9)).Has("ib0", "192.168.0.4");
  machine.Has("tun0", "192.168.0.3");
  EXPECT_EQ(machine.Towards("192.168.0.9"), "none");
  machine.Has("eth0", "192.168.0.5").Link("eth0", kMac);
  EXPECT_EQ(machine.Towards("192.168.0.9"), "192.168.0.5 at 02 00 00 00 00 01");
}

TEST(Interface, OfSeveralTheOneWhoseSubnetHoldsTheDeviceGoesFirst) {
  Machine machine;
  machine.Link("docker0", kOtherMac).Link("eth0", kMac);
  machine.Has("docker0", "10.88.0.1", "255.255.0.0").Has("eth0", "10.1.0.5", "255.255.255.0");
  EXPECT_EQ(machine.Towards("10.1.0.9"), "10.1.0.5 at 02 00 00 00 00 01");
  EXPECT_EQ(machine.Towards("10.2.0.9"), "10.88.0.1 at 02 00 00 00 00 02") << "else the first";
}

TEST(Interface, ThatIsDownGivesWayToOneThatIsUp) {
  Machine machine;
  machine.Link("eth0", kOtherMac).Link("wlan0", kMac);
  machine.Has("eth0", "192.168.0.4", "255.255.255.0", 0);
  EXPECT_EQ(machine.Towards("192.168.0.9"), "192.168.0.4 at 02 00 00 00 00 02");
  machine.Has("wlan0", "192.168.0.5", "255.255.255.0");
  EXPECT_EQ(machine.Towards("192.168.0.9"), "192.168.0.5 at 02 00 00 00 00 01");
}

TEST(Interface, OfAnAddressWithALabelIsTheOneInFrontOfTheColon) {
  Machine machine;
  machine.Link("eth0", kMac).Has("eth0:1", "192.168.0.5");
  EXPECT_EQ(machine.Towards("192.168.0.9"), "192.168.0.5 at 02 00 00 00 00 01");
}

TEST(Interface, OnAMachineWithoutAnyThereIsNone) {
  EXPECT_EQ(Machine().Towards("192.168.0.9"), "none");
}

TEST(Interface, TowardsLoopbackIsLoopback) {
  std::uint32_t local = 0;
  std::uint8_t mac[6] = {1, 1, 1, 1, 1, 1};
  EXPECT_EQ(getmac_and_ip("127.0.0.9", &local, mac), 0);
  EXPECT_EQ(local, htonl(INADDR_LOOPBACK));
  EXPECT_EQ(ToHex(mac, 6), "00 00 00 00 00 00");
}

TEST(Interface, FailureChangesNothing) {
  std::uint32_t local = 7;
  std::uint8_t mac[6] = {1, 1, 1, 1, 1, 1};
  for (const char* device : {"240.0.0.1", "localhost", "", "1.2.3"}) {
    EXPECT_EQ(getmac_and_ip(device, &local, mac), -1) << device;
  }
  EXPECT_EQ(getmac_and_ip(nullptr, &local, mac), -1);
  EXPECT_EQ(getmac_and_ip("127.0.0.1", nullptr, mac), -1);
  EXPECT_EQ(getmac_and_ip("127.0.0.1", &local, nullptr), -1);
  EXPECT_EQ(local, 7u);
  EXPECT_EQ(ToHex(mac, 6), "01 01 01 01 01 01");
}

}  // namespace
}  // namespace vox::test
