// What devices reply to a registration, in the words that a person gets.
#include <chrono>
#include <memory>
#include <string>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "sim/VirtualDevice.h"
#include "tools/vox/Registration.h"
#include "vox/drivers/net/NetworkComm/NetworkCommEntry.h"
#include "vox/drivers/net/NetworkComm/tvr302udp.h"

namespace vox::cli::test {
namespace {

using State = RegistrationState;
using namespace std::chrono_literals;

constexpr std::uint32_t kShortSecond = 300;  // milliseconds

// Ward is a device at the ports that this process asks.
class Ward {
 public:
  explicit Ward(const sim::Faults& faults, const std::string& model = "QD7200",
                std::uint32_t ms_per_second = 1000)
      : device(Options(faults, model)) {
    EXPECT_TRUE(device.Start()) << device.Error();
    snmpPort = device.SnmpPort();
    SetUdpCommandPort(device.CommandPort());
    netMsPerSecond = ms_per_second;
  }
  ~Ward() { netMsPerSecond = 1000; }
  Ward(const Ward&) = delete;
  Ward& operator=(const Ward&) = delete;

  // As it is named on the command line, and as one that is remembered with a MAC address.
  DeviceTarget Named() const { return {"Office", device.Address(), nullptr}; }
  DeviceTarget Remembered(const std::string& mac) const {
    return {"Office", device.Address(),
            std::make_shared<Dictionary>(Dictionary{{kDeviceMacKey, mac}})};
  }
  std::size_t Commands(sim::EventKind kind) { return device.Events().Count(kind); }

  sim::VirtualDevice device;

 private:
  static sim::DeviceOptions Options(const sim::Faults& faults, const std::string& model) {
    sim::DeviceOptions options;
    options.faults = faults;
    options.model = model;
    return options;
  }
};

constexpr char kMac[] = "02:56:58:00:00:01";  // the virtual device's
constexpr char kOtherMac[] = "02:56:58:00:00:02";

sim::Faults Replying(std::uint8_t reply, std::uint32_t times = sim::Faults::kEveryTime) {
  sim::Faults faults;
  faults.register_reply = reply;
  faults.register_replies = times;
  return faults;
}

Registration RegisterWithReply(std::uint8_t reply) {
  const Ward ward(Replying(reply));
  return Register(ward.Named());
}

TEST(RegistrationTest, AnAcceptedRegistrationIsAccepted) {
  const Ward ward({});
  const Registration outcome = Register(ward.Remembered(kMac));
  EXPECT_EQ(outcome.state, State::kAccepted);
  EXPECT_EQ(outcome.reply, 0xC4);
  EXPECT_EQ(outcome.mac, kMac);
  EXPECT_EQ(ward.device.Registrations().size(), 1U);
}

TEST(RegistrationTest, OtherRepliesAreWhatTheyAre) {
  EXPECT_EQ(RegisterWithReply(0xD4).state, State::kBusy);
  EXPECT_EQ(RegisterWithReply(0xE4).state, State::kRefused);
  for (const std::uint8_t odd : {0x55, 0x00, 0x01, 0xFF}) {
    EXPECT_EQ(RegisterWithReply(odd).state, State::kOddReply) << int{odd};
    EXPECT_EQ(RegisterWithReply(odd).reply, odd);
  }
}

TEST(RegistrationTest, ADeviceThatIsFreeAtTheThirdTryIsAccepted) {
  Ward ward(Replying(0xD4, 2));
  const Registration outcome = Register(ward.Named());
  EXPECT_EQ(outcome.state, State::kAccepted);
  EXPECT_EQ(outcome.reply, 0xC4);
  EXPECT_EQ(ward.Commands(sim::EventKind::kRegister), 3U);
  EXPECT_EQ(ward.device.Registrations().size(), 1U);
}

TEST(RegistrationTest, AnUnregistrationStrikesTheEntry) {
  Ward ward({});
  ASSERT_EQ(Register(ward.Named()).state, State::kAccepted);
  const Registration outcome = Unregister(ward.Remembered(kMac));
  EXPECT_EQ(outcome.state, State::kAccepted);
  EXPECT_EQ(outcome.reply, -1);
  ASSERT_TRUE(ward.device.Events().WaitFor(sim::EventKind::kUnregister, 1, 10s));
  // The entry goes when the command has been noted.
  for (int i = 0; i < 1000 && !ward.device.Registrations().empty(); ++i)
    std::this_thread::sleep_for(10ms);
  EXPECT_TRUE(ward.device.Registrations().empty());
}

TEST(RegistrationTest, ASilentDeviceGivesNoAnswer) {
  sim::Faults asleep;
  asleep.silence.at = sim::Stage::kAlways;
  const Ward ward(asleep, "QD7200", kShortSecond);
  for (const DeviceTarget& target : {ward.Named(), ward.Remembered(kMac)}) {
    for (const Registration& outcome : {Register(target), Unregister(target)}) {
      EXPECT_EQ(outcome.state, State::kNoAnswer);
      EXPECT_EQ(outcome.question, Question::kIdentity);
      EXPECT_EQ(outcome.from, "127.0.0.1");
      EXPECT_GE(outcome.seconds, 3 * kShortSecond / 1000.0);
    }
  }
}

TEST(RegistrationTest, ADeviceThatIsSilentAtTheCommandGivesNoAnswer) {
  sim::Faults late;
  late.delays.reply = 60s;
  Ward ward(late, "QD7200", kShortSecond);
  const Registration outcome = Register(ward.Named());
  EXPECT_EQ(outcome.state, State::kNoAnswer);
  EXPECT_EQ(outcome.reply, -1);
  EXPECT_EQ(outcome.question, Question::kRegistration);
  EXPECT_GE(outcome.seconds, 9 * kShortSecond / 1000.0);
  EXPECT_EQ(ward.Commands(sim::EventKind::kRegister), 3U);
}

TEST(RegistrationTest, AnUnsupportedModelIsSentNothing) {
  Ward ward({}, "Typewriter");
  EXPECT_EQ(Register(ward.Named()).state, State::kUnsupported);
  EXPECT_EQ(Unregister(ward.Named()).state, State::kUnsupported);
  EXPECT_EQ(ward.Commands(sim::EventKind::kRegister), 0U);
  EXPECT_EQ(ward.Commands(sim::EventKind::kUnregister), 0U);
}

TEST(RegistrationTest, AnotherDeviceAtARememberedAddressIsSentNothing) {
  Ward ward({});
  for (const Registration& outcome :
       {Register(ward.Remembered(kOtherMac)), Unregister(ward.Remembered(kOtherMac))}) {
    EXPECT_EQ(outcome.state, State::kOtherDevice);
    EXPECT_EQ(outcome.mac, kMac);
  }
  EXPECT_EQ(ward.Commands(sim::EventKind::kRegister), 0U);
  EXPECT_EQ(ward.Commands(sim::EventKind::kUnregister), 0U);
}

TEST(RegistrationTest, ADeviceBehindNoInterfaceIsNotAsked) {
  const DeviceTarget target{"Office", "240.0.0.1", nullptr};
  EXPECT_EQ(Register(target).state, State::kNoInterface);
  EXPECT_EQ(Register(target).question, Question::kNone);
  EXPECT_EQ(Register(target).from, "");
  EXPECT_EQ(Unregister(target).state, State::kNoInterface);
}

struct Row {
  State state;
  int reply;
  int exit;
  const char* name;
  const char* words;
};

TEST(RegistrationTest, EveryStateHasItsNameExitStatusAndWords) {
  const Row rows[] = {
      {State::kBusy, 0xD4, 3, "busy", "try again"},
      {State::kRefused, 0xE4, 9, "refused", "it refused"},
      {State::kOddReply, 0x5, 9, "odd-reply", "not known (0x05)"},
      {State::kNoAnswer, -1, 9, "no-answer", "does not answer"},
      {State::kOddReply, 0, 9, "odd-reply", "not known (0x00)"},
      {State::kNoInterface, -1, 9, "no-interface", "no interface on that device's network"},
      {State::kUnsupported, -1, 4, "unsupported", "its model is not supported"},
      {State::kOtherDevice, -1, 9, "other-device",
       "another device, 02:56:58:00:00:02, answers at its address; find it again with vox "
       "discover, or use that one as net:192.168.0.5"},
      {State::kNotSent, -1, 9, "not-sent", "could not be sent"},
      {State::kCancelled, -1, 2, "cancelled", "cancelled before it had answered"},
  };
  const DeviceTarget target{"Office", "192.168.0.5", nullptr};
  for (const Row& row : rows) {
    Registration outcome;
    outcome.state = row.state;
    outcome.reply = row.reply;
    outcome.mac = kOtherMac;
    const Failure failure = RegistrationFailure(true, target, outcome);
    EXPECT_EQ(static_cast<int>(failure.Status()), row.exit) << row.name;
    EXPECT_STREQ(StateName(row.state), row.name);
    EXPECT_THAT(failure.what(), testing::StartsWith("cannot register with Office: "));
    EXPECT_THAT(failure.what(), testing::HasSubstr(row.words));
  }
  EXPECT_STREQ(StateName(State::kAccepted), "accepted");
  EXPECT_THAT(RegistrationFailure(false, target, {}).what(),
              testing::StartsWith("cannot unregister from Office: "));
}

TEST(RegistrationTest, OfNoAnswerTheWordsTellWhatWasTried) {
  snmpPort = 161;
  SetUdpCommandPort(0);
  const DeviceTarget target{"Office", "192.168.0.5", nullptr};
  Registration silent;
  silent.question = Question::kIdentity;
  silent.from = "192.168.0.7";
  silent.seconds = 9.04;
  EXPECT_THAT(RegistrationFailure(true, target, silent).what(),
              testing::HasSubstr("it does not answer; it was asked who it is (SNMP) at "
                                 "192.168.0.5, port 161 from 192.168.0.7, for 9.0 s; check"));
  silent.question = Question::kRegistration;
  silent.seconds = 27.41;
  EXPECT_THAT(RegistrationFailure(true, target, silent).what(),
              testing::HasSubstr("was sent the command (UDP) at 192.168.0.5, port 3892 from "
                                 "192.168.0.7, for 27.4 s; try again"));
  EXPECT_STREQ(QuestionName(Question::kIdentity), "identity");
  EXPECT_STREQ(QuestionName(Question::kRegistration), "registration");
  EXPECT_EQ(QuestionName(Question::kNone), nullptr);
}

}  // namespace
}  // namespace vox::cli::test
