// Registering this computer on a device: the packets, the replies and what becomes of them.
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

#include <arpa/inet.h>
#include <gmock/gmock.h>

#include "tests/support/FreshLoopback.h"
#include "tests/unit/core/Scratch.h"
#include "tests/unit/search/Street.h"
#include "vox/UserPreferences.h"
#include "vox/drivers/net/NetworkComm/NetworkCommEntry.h"
#include "vox/drivers/net/searchregister.h"

namespace vox::test {
namespace {

using testing::IsEmpty;
using testing::SizeIs;

constexpr const char* kHost = "127.0.0.1";

Bytes Reply(const Bytes& request, std::uint8_t code, const Bytes& param = {}) {
  Bytes reply(request.begin(), request.begin() + 20);
  reply[15] = code;
  reply[16] = static_cast<std::uint8_t>(param.size());
  return reply + param;
}

// Replies gives these codes in turn, the last one for ever.
UdpPeer::Script Replies(std::vector<std::uint8_t> codes) {
  return [codes, next = std::size_t{0}](const Bytes& request) mutable {
    const std::uint8_t code = codes[std::min(next++, codes.size() - 1)];
    return Answers{Answer(Reply(request, code))};
  };
}

// Panel is a device that answers registrations as a script says, and to SNMP with its model; the
// computer bears a name of the test's choice.
class Panel : public testing::Test {
 protected:
  Panel() {
    const std::filesystem::path file = UserPreferences::instance().pathToGlobalSettings();
    std::filesystem::create_directories(file.parent_path());
    NameThisComputer("host");
  }

  static void NameThisComputer(const std::string& name) {
    UserPreferences::instance().setComputerName(name);
  }
  static DeviceInfo Device(bool push = true) {
    return std::make_shared<Dictionary>(
        Dictionary{{"type", "network"}, {"ip", kHost}, {"isNetworkPushEnabled", push}});
  }
  void Answers(UdpPeer::Script script, std::uint32_t ms_per_second = 1000) {
    settings_.reset();
    commands_ = std::make_unique<UdpPeer>(std::move(script));
    settings_ = std::make_unique<NetSettings>(*commands_, ms_per_second);
  }
  // IsModel has the device answer SNMP too; after Answers.
  void IsModel(const std::string& model) {
    sim::SnmpAgent agent("public");
    agent.Add(kModelOid, {[model] { return sim::TextValue(model); }, nullptr, nullptr});
    snmp_ = std::make_unique<UdpPeer>([agent](const Bytes& request) {
      const auto answer = agent.Answer(request);
      return answer ? test::Answers{Answer(*answer)} : test::Answers{};
    });
    snmpPort = snmp_->Port();
  }
  std::vector<Bytes> Commands() { return commands_->Requests(); }
  std::vector<Bytes> AwaitCommand() { return commands_->AwaitRequests(1); }

 private:
  Scratch scratch_;
  Variable root_{"VOX_ROOT", scratch_.Path("root")};
  std::unique_ptr<UdpPeer> commands_, snmp_;
  std::unique_ptr<NetSettings> settings_;
};

TEST_F(Panel, RegistersWithThePacketOfTheProtocol) {
  Answers(Replies({0xC4}));
  EXPECT_EQ(cmd_register(kHost), 0);
  ASSERT_THAT(Commands(), SizeIs(1));
  Bytes packet = Commands()[0];
  ASSERT_EQ(packet.size(), 48u);
  EXPECT_NE(packet[12] << 8 | packet[13], 0);
  packet[12] = packet[13] = 0;
  EXPECT_EQ(ToHex(packet), ToHex(Hex("4D 46 50 50 30 32 30 30 4D 4C 30 31 00 00 31 03 1C 00 00 00"
                                     "7F 00 00 01"
                                     "68 6F 73 74 00 00 00 00 00 00 00 00 00 00 00 00"
                                     "00 00 00 00 00 00 00 01")))
      << "loopback's MAC address is zero";
}

TEST(RegistrationPacket, IsWhatTheRecordHolds) {
  tagCLIENTREGPARAM param{};
  ASSERT_EQ(inet_pton(AF_INET, "192.168.0.5", &param.hostAddress), 1);
  std::memcpy(param.hostName, "host", 4);
  param.hostMacAaddress[0] = 2;
  param.hostMacAaddress[5] = 1;
  param.appSupport = 1;
  Bytes bytes(sizeof param);
  std::memcpy(bytes.data(), &param, sizeof param);
  const _tagUDPCMD command{REG_CMD_REGISTER, REG_APPCODE, Size(bytes), 0, bytes.data()};
  Bytes packet(48);
  ASSERT_EQ(udp_cmd_size(&command), Size(packet));
  udp_cmd_build(packet.data(), 0x1234, &command);
  EXPECT_EQ(ToHex(packet),
            "4D 46 50 50 30 32 30 30 4D 4C 30 31 12 34 31 03 1C 00 00 00 "
            "C0 A8 00 05 68 6F 73 74 00 00 00 00 00 00 00 00 00 00 00 00 "
            "02 00 00 00 00 01 00 01");
}

TEST_F(Panel, UnregistersWithOneDatagramAndAwaitsNothing) {
  Answers(Silent());
  IsModel("QD7200");
  const Stopwatch watch;
  EXPECT_EQ(unregisterOnDevice(Device()), RegistrationResult_Ok);
  EXPECT_LT(watch.Elapsed(), std::chrono::seconds(2));
  ASSERT_THAT(AwaitCommand(), SizeIs(1));
  const Bytes packet = Commands()[0];
  ASSERT_EQ(packet.size(), 48u);
  EXPECT_NE(packet[12] << 8 | packet[13], 0) << "a fresh sequence id";
  EXPECT_EQ(packet[14], 0x31);
  EXPECT_EQ(packet[15], 5);
  EXPECT_EQ(packet[16], 28);
}

struct MappingCase {
  std::vector<std::uint8_t> replies;  // the last one is what register_reply gives
  std::int32_t code;
  RegistrationResult result;
  bool good;
  std::size_t commands;
};
// An accepted registration is sorted with what is no device, on purpose; a refusal alone fails.
const MappingCase kMapping[] = {
    {{0xC4}, 0, RegistrationResult_InvalidDevice, true, 1},
    {{0xE4}, 0xE4, RegistrationResult_Failed, false, 1},
    {{0xD4}, 212, RegistrationResult_InvalidDevice, true, 3},
    {{0xD4, 0xC4}, 0, RegistrationResult_InvalidDevice, true, 2},
    {{0xD4, 0xD4, 0xE4}, 0xE4, RegistrationResult_Failed, false, 3},
    {{0xD4, 0xD4, 0xC4}, 0, RegistrationResult_InvalidDevice, true, 3},
    {{0x45}, 0x45, RegistrationResult_InvalidDevice, true, 1},
    {{0x01}, 1, RegistrationResult_InvalidDevice, true, 1},
    {{0x00}, 0, RegistrationResult_InvalidDevice, true, 1},
};

TEST_F(Panel, RepliesAreSortedAsTheyAlwaysWere) {
  for (const MappingCase& c : kMapping) {
    Answers(Replies(c.replies));
    EXPECT_EQ(cmd_register(kHost), c.code);
    EXPECT_THAT(Commands(), SizeIs(c.commands));
    Answers(Replies(c.replies));
    EXPECT_EQ(register_reply(kHost), c.replies.back());
    EXPECT_THAT(Commands(), SizeIs(c.commands));
    Answers(Replies(c.replies));
    EXPECT_EQ(registerOnDevice(Device()), c.result) << c.code;
    Answers(Replies(c.replies));
    EXPECT_EQ(reg_one_dev(Device()), c.good) << c.code;
  }
}

TEST_F(Panel, SilenceIsNoAnswer) {
  Answers(Silent(), 10);
  EXPECT_EQ(cmd_register(kHost), -1);
  EXPECT_THAT(Commands(), SizeIs(3));
  EXPECT_EQ(register_reply(kHost), std::nullopt);
  EXPECT_EQ(registerOnDevice(Device()), RegistrationResult_InvalidDevice);
  EXPECT_TRUE(reg_one_dev(Device()));
}

TEST_F(Panel, BusyAndThenSilentIsNoAnswer) {
  Answers(
      [busy = true](const Bytes& request) mutable {
        return std::exchange(busy, false) ? test::Answers{Answer(Reply(request, 0xD4))}
                                          : test::Answers{};
      },
      10);
  EXPECT_EQ(cmd_register(kHost), -1);
}

TEST_F(Panel, AReplyMayCarryMoreThanWasSent) {
  Answers([](const Bytes& request) {
    return test::Answers{Answer(Reply(request, 0xC4, Bytes(255, 0xFF)))};
  });
  EXPECT_EQ(cmd_register(kHost), 0);
}

TEST_F(Panel, AReplyThatIsCutShortIsNoAnswer) {
  Answers([](const Bytes& request) {
    return test::Answers{Answer(Bytes(request.begin(), request.begin() + 16))};
  });
  EXPECT_EQ(cmd_register(kHost), -1);
}

TEST_F(Panel, WithoutAnAddressThereIsNoDevice) {
  Answers(Replies({0xE4}));
  const auto usb =
      std::make_shared<Dictionary>(Dictionary{{"type", "usb"}, {"isNetworkPushEnabled", true}});
  const auto number =
      std::make_shared<Dictionary>(Dictionary{{"ip", 7}, {"isNetworkPushEnabled", true}});
  for (const DeviceInfo& device : {usb, number, DeviceInfo()}) {
    EXPECT_EQ(registerOnDevice(device), RegistrationResult_InvalidDevice);
    EXPECT_EQ(unregisterOnDevice(device), RegistrationResult_InvalidDevice);
    EXPECT_TRUE(reg_one_dev(device));
  }
  EXPECT_THAT(Commands(), IsEmpty());
}

TEST_F(Panel, OnANetworkWithoutAnInterfaceNothingIsSent) {
  Answers(Replies({0xC4}));
  tagCLIENTREGPARAM param;
  EXPECT_EQ(BuildClientRegParam(&param, "240.0.0.1"), -1);
  EXPECT_EQ(BuildClientRegParam(nullptr, kHost), -1);
  EXPECT_EQ(cmd_register("240.0.0.1"), -1);
  EXPECT_EQ(cmd_register(nullptr), -1);
  EXPECT_EQ(register_reply("240.0.0.1"), std::nullopt);
  EXPECT_THAT(Commands(), IsEmpty());
}

TEST_F(Panel, UnregisteringNeedsASupportedModel) {
  Answers(Silent());
  IsModel("QX1");
  EXPECT_EQ(unregisterOnDevice(Device()), RegistrationResult_InvalidDevice);
  netMsPerSecond = 10;
  snmpPort = 9;  // nobody
  EXPECT_EQ(unregisterOnDevice(Device()), RegistrationResult_InvalidDevice);
  EXPECT_THAT(Commands(), IsEmpty());
}

TEST_F(Panel, UnregisteringFailsWithoutParameters) {
  Answers(Silent());
  IsModel("QD7200");
  const auto by_name = std::make_shared<Dictionary>(Dictionary{{"ip", "localhost"}});
  EXPECT_EQ(unregisterOnDevice(by_name), RegistrationResult_Failed) << "no dotted address";
  EXPECT_TRUE(reg_one_dev(by_name)) << "only a wanted registration can fail";
  EXPECT_THAT(Commands(), IsEmpty());
}

// Only the command's port is forbidden: the model is told, and the parameters can be built.
TEST_F(Panel, UnregisteringFailsWhenTheCommandCannotBeSent) {
  const int code = OnFreshLoopback([this] {
    Answers(Silent());
    IsModel("QD7200");
    if (unregisterOnDevice(Device()) != RegistrationResult_Ok) return 1;
    if (AwaitCommand().size() != 1) return 2;
    const std::string forbid =
        "(ip rule add pref 2 lookup local && ip rule add pref 1 ipproto udp "
        "dport " +
        std::to_string(udpCommandPort) + " prohibit && ip rule del pref 0) 2>/dev/null";
    if (std::system(forbid.c_str()) != 0) return kNotPermitted;
    if (unregisterOnDevice(Device()) != RegistrationResult_Failed) return 3;
    if (!reg_one_dev(Device(false))) return 4;
    return Commands().size() == 1 ? 0 : 5;
  });
  SKIP_IF_NOT_PERMITTED(code);
  EXPECT_EQ(code, 0);
}

TEST_F(Panel, ADeviceThatIsNotWantedIsUnregistered) {
  Answers(Silent());
  IsModel("QD7200");
  EXPECT_TRUE(reg_one_dev(Device(false)));
  ASSERT_THAT(AwaitCommand(), SizeIs(1));
  EXPECT_EQ(Commands()[0][15], REG_CMD_UNREGISTER);
}

TEST_F(Panel, PushIsATruthThatMayBeANumber) {
  Answers(Replies({0xE4}));
  IsModel("QD7200");
  const auto with = [](const PropertyValue& push) {
    return std::make_shared<Dictionary>(Dictionary{{"ip", kHost}, {"isNetworkPushEnabled", push}});
  };
  EXPECT_FALSE(reg_one_dev(with(true)));
  EXPECT_FALSE(reg_one_dev(with(1)));
  EXPECT_TRUE(reg_one_dev(with(false))) << "is unregistered, which never fails";
  EXPECT_TRUE(reg_one_dev(with("yes")));
  EXPECT_TRUE(reg_one_dev(std::make_shared<Dictionary>(Dictionary{{"ip", kHost}})));
}

TEST_F(Panel, OfManyDevicesThoseThatRefuseAreListed) {
  Answers(Replies({0xE4}));
  IsModel("QD7200");
  const DeviceInfo first = Device(), off = Device(false), last = Device();
  const auto usb =
      std::make_shared<Dictionary>(Dictionary{{"type", "usb"}, {"isNetworkPushEnabled", true}});
  EXPECT_THAT(reg_devices({first, off, usb, last}), testing::ElementsAre(first, last));
  EXPECT_THAT(reg_devices({off, usb}), IsEmpty());
  EXPECT_THAT(reg_devices({}), IsEmpty());
  Answers(Replies({0xC4}));
  EXPECT_THAT(reg_devices({first, last}), IsEmpty());
}

std::string HostNameFor(const std::string& computer) {
  UserPreferences::instance().setComputerName(computer);
  tagCLIENTREGPARAM param;
  std::memset(&param, 0xEE, sizeof param);
  EXPECT_EQ(BuildClientRegParam(&param, kHost), 0);
  const std::string all(param.hostName, sizeof param.hostName);
  EXPECT_EQ(all.find_first_not_of('\0', all.find('\0')), std::string::npos) << "NUL-filled";
  return all.substr(0, all.find('\0'));
}

TEST_F(Panel, ParametersHoldAtMost15BytesOfTheName) {
  EXPECT_EQ(HostNameFor("a"), "a");
  EXPECT_EQ(HostNameFor("123456789012345"), "123456789012345");
  EXPECT_EQ(HostNameFor("12345678901234567890"), "123456789012345");
  EXPECT_EQ(HostNameFor("1234567890123\xC3\xA4"
                        "bc"),
            "1234567890123\xC3\xA4");
  EXPECT_EQ(HostNameFor("12345678901234\xC3\xA4"
                        "bc"),
            "12345678901234")
      << "no half of a character";
}

TEST_F(Panel, ParametersAreOfTheInterfaceTowardsTheDevice) {
  tagCLIENTREGPARAM param;
  std::memset(&param, 0xEE, sizeof param);
  EXPECT_EQ(BuildClientRegParam(&param, "127.9.9.9"), 0);
  EXPECT_EQ(param.hostAddress, htonl(INADDR_LOOPBACK));
  EXPECT_EQ(ToHex(param.hostMacAaddress, 6), "00 00 00 00 00 00");
  EXPECT_EQ(param.regiTime, 0);
  EXPECT_EQ(param.appSupport, 1);
}

}  // namespace
}  // namespace vox::test
