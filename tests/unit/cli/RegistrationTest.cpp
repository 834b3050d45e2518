// What devices reply to a registration, in the words that a person gets.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "sim/VirtualDevice.h"
#include "tools/vox/Registration.h"
#include "vox/drivers/net/NetworkComm/NetworkCommEntry.h"
#include "vox/drivers/net/NetworkComm/tvr302udp.h"

namespace vox::cli::test {
namespace {

using State = RegistrationState;

Registration RegisterWith(const sim::Faults& faults, std::size_t* entries = nullptr) {
  sim::DeviceOptions options;
  options.faults = faults;
  sim::VirtualDevice device(options);
  EXPECT_TRUE(device.Start()) << device.Error();
  snmpPort = device.SnmpPort();
  SetUdpCommandPort(device.CommandPort());
  const Registration outcome = Register(device.Address());
  if (entries != nullptr) *entries = device.Registrations().size();
  return outcome;
}

Registration RegisterWithReply(std::uint8_t reply) {
  sim::Faults faults;
  faults.register_reply = reply;
  return RegisterWith(faults);
}

TEST(RegistrationTest, AnAcceptedRegistrationIsAccepted) {
  std::size_t entries = 0;
  const Registration outcome = RegisterWith({}, &entries);
  EXPECT_EQ(outcome.state, State::kAccepted);
  EXPECT_EQ(outcome.reply, 0xC4);
  EXPECT_EQ(entries, 1U);
}

TEST(RegistrationTest, OtherRepliesAreWhatTheyAre) {
  EXPECT_EQ(RegisterWithReply(0xD4).state, State::kBusy);
  EXPECT_EQ(RegisterWithReply(0xE4).state, State::kRefused);
  EXPECT_EQ(RegisterWithReply(0x55).state, State::kOddReply);
  EXPECT_EQ(RegisterWithReply(0x55).reply, 0x55);
}

TEST(RegistrationTest, ADeviceBehindNoInterfaceIsNotAsked) {
  EXPECT_EQ(Register("240.0.0.1").state, State::kNoInterface);
  EXPECT_EQ(Unregister("240.0.0.1").state, State::kNoInterface);
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
      {State::kNoInterface, -1, 9, "no-interface", "no interface on that device's network"},
  };
  for (const Row& row : rows) {
    const Failure failure = RegistrationFailure(true, "Office", {row.state, row.reply});
    EXPECT_EQ(static_cast<int>(failure.Status()), row.exit) << row.name;
    EXPECT_STREQ(StateName(row.state), row.name);
    EXPECT_THAT(failure.what(), testing::StartsWith("cannot register with Office: "));
    EXPECT_THAT(failure.what(), testing::HasSubstr(row.words));
  }
  EXPECT_STREQ(StateName(State::kAccepted), "accepted");
  EXPECT_THAT(RegistrationFailure(false, "Office", {State::kNoAnswer, -1}).what(),
              testing::StartsWith("cannot unregister from Office: "));
}

}  // namespace
}  // namespace vox::cli::test
