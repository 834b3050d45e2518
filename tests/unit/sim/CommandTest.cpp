// The device's commands over its UDP port.
#include <gtest/gtest.h>

#include "tests/unit/sim/ScriptedHost.h"

namespace vox::sim {
namespace {

class Commands : public DeviceTest {
 protected:
  static DeviceOptions With(const char* faults) {
    DeviceOptions options;
    EXPECT_EQ(ParseFault(faults, options.faults), "");
    return options;
  }
  // The reply code to a scan command; 0 when none came.
  std::uint8_t Scan(std::uint16_t sequence_id = 1, const ScanInfo& request = SmallRequest()) {
    const Bytes reply = host_->Exchange(host_->ScanCommand(request, sequence_id));
    return reply.size() < 20 ? 0 : reply[15];
  }
};

TEST_F(Commands, AScanIsAcceptedWithAJobId) {
  Start();
  const Bytes reply = host_->Exchange(host_->ScanCommand(SmallRequest(), 0x1234));
  ASSERT_EQ(reply.size(), 28u);
  const Bytes job(reply.begin() + 20, reply.end());
  EXPECT_EQ(Hex(reply), Hex(Packet(0x1234, 0x32, 0x43, job)));
  EXPECT_NE((Bytes{job.begin() + 4, job.end()}), Bytes(4)) << "a job number of zero is no job";
}

TEST_F(Commands, TheSameDatagramAgainIsTheSameJob) {
  Start();
  const Bytes command = host_->ScanCommand(SmallRequest(), 7);
  const Bytes first = host_->Exchange(command);
  EXPECT_EQ(Hex(host_->Exchange(command)), Hex(first));
  EXPECT_EQ(device_->Events().Count(EventKind::kJobStarted), 1u);
}

TEST_F(Commands, TheSameDatagramAfterTheJobIsANewJob) {
  Start();
  const Bytes first = host_->StartJob(SmallRequest(), 7);
  EXPECT_EQ(host_->Cancel(first)[15], 0x53);
  EXPECT_NE(Hex(host_->StartJob(SmallRequest(), 7)), Hex(first));
}

TEST_F(Commands, ASecondJobIsBusy) {
  Start();
  EXPECT_EQ(Scan(1), 0x43);
  EXPECT_EQ(Scan(2), 0x47);
}

TEST_F(Commands, AJobThatNobodyGoesOnWithMakesWay) {
  DeviceOptions options;
  options.limits.idle_job = 0ms;
  Start(options);
  EXPECT_EQ(Scan(1), 0x43);
  EXPECT_EQ(Scan(2), 0x43);
  EXPECT_EQ(device_->Events().Count(EventKind::kJobLost), 1u);
}

TEST_F(Commands, NoPaperIsNoDocument) {
  DeviceOptions options;
  options.empty_glass = true;
  Start(options);
  EXPECT_EQ(Scan(), 0x49);
}

TEST_F(Commands, WhatTheDeviceCannotDoIsRefused) {
  DeviceOptions options;
  options.colour = false;
  Start(options);
  EXPECT_EQ(Scan(1, SmallRequest(kColour)), 0x45);
  const Bytes reply = host_->Exchange(Packet(2, 0x32, 0x41, Bytes(127)));
  EXPECT_EQ(Hex(reply), Hex(Packet(2, 0x32, 0x45, {})));
}

TEST_F(Commands, CancelEndsTheJobAndTheDeviceIsFreeAtOnce) {
  Start();
  const Bytes job = host_->StartJob(SmallRequest(), 1);
  EXPECT_EQ(Hex(host_->Cancel(job)), Hex(Packet(0x4321, 0x32, 0x53, {})));
  EXPECT_EQ(Hex(host_->Cancel(job)), Hex(Packet(0x4321, 0x32, 0x53, {}))) << "a repeated cancel";
  EXPECT_EQ(device_->Events().Count(EventKind::kJobCancelled), 1u);
  EXPECT_EQ(Scan(2), 0x43);
}

TEST_F(Commands, CancelOfAJobThatNeverWasIsRefused) {
  Start();
  EXPECT_EQ(Hex(host_->Cancel({1, 2, 3, 4, 5, 6, 7, 8})), Hex(Packet(0x4321, 0x32, 0x45, {})));
  EXPECT_EQ(Hex(host_->Cancel({1, 2, 3})), Hex(Packet(0x4321, 0x32, 0x45, {})));
}

TEST_F(Commands, APageOfAnUnknownJobIsNotSent) {
  Start();
  host_->RequestPage({1, 2, 3, 4, 5, 6, 7, 8}, 5);
  EXPECT_FALSE(host_->Accept(kMoment));
  EXPECT_EQ(device_->Events().Count(EventKind::kPageRequest), 1u);
}

TEST_F(Commands, StandbyIsNotedAndNotAnswered) {
  Start();
  host_->Send(Packet(9, 0x32, 0x10, {}));
  EXPECT_TRUE(device_->Events().WaitFor(EventKind::kStandby, 1, kPatience));
  EXPECT_EQ(device_->Events().Last(EventKind::kStandby).sequence_id, 9);
  EXPECT_TRUE(host_->Receive(kMoment).empty());
}

TEST_F(Commands, DatagramsThatAreNoCommandsAreNotAnswered) {
  Start();
  Bytes other_text = Packet(1, 0x32, 0x41, Bytes(128));
  other_text[0] = 'm';
  Bytes other_size = Packet(1, 0x32, 0x41, Bytes(128));
  other_size.pop_back();
  const Bytes rows[] = {{}, {1}, Bytes(19), other_text, other_size, Bytes(65000, 0xFF)};
  for (const Bytes& row : rows) host_->Send(row);
  EXPECT_TRUE(device_->Events().WaitFor(EventKind::kBadDatagram, 6, kPatience));
  EXPECT_TRUE(host_->Receive(kMoment).empty());
}

TEST_F(Commands, AnUnknownCommandIsRefused) {
  Start();
  EXPECT_EQ(Hex(host_->Exchange(Packet(3, 0x32, 0x7E, {}))), Hex(Packet(3, 0x32, 0x45, {})));
}

Bytes Registration(std::uint8_t last_octet, const std::string& name) {
  Bytes entry(28);
  entry[0] = 192, entry[1] = 168, entry[3] = last_octet;
  std::copy(name.begin(), name.end(), entry.begin() + 4);
  for (std::size_t i = 0; i < 6; ++i) entry[20 + i] = static_cast<std::uint8_t>(0xA0 + i);
  entry[27] = 1;
  return entry;
}

TEST_F(Commands, RegisteringEntersAHostAndUnregisteringStrikesItOut) {
  Start();
  const Bytes entry = Registration(7, "desk");
  EXPECT_EQ(Hex(host_->Exchange(Packet(1, 0x31, 3, entry))), Hex(Packet(1, 0x31, 0xC4, entry)));
  ASSERT_EQ(device_->Registrations().size(), 1u);
  const ClientRegistration client = device_->Registrations()[0];
  EXPECT_EQ(client.host_address, (std::array<std::uint8_t, 4>{192, 168, 0, 7}));
  EXPECT_EQ(client.host_name, "desk");
  EXPECT_EQ(client.host_mac[5], 0xA5);
  EXPECT_EQ(client.registration_time, 0);
  EXPECT_EQ(client.application_support, 1);
  host_->Exchange(Packet(2, 0x31, 3, Registration(7, "renamed")));
  EXPECT_EQ(device_->Registrations().size(), 1u);
  host_->Send(Packet(3, 0x31, 5, entry));
  EXPECT_TRUE(device_->Events().WaitFor(EventKind::kUnregister, 1, kPatience));
  EXPECT_TRUE(host_->Receive(kMoment).empty());
  EXPECT_TRUE(device_->Registrations().empty());
}

TEST_F(Commands, ABookThatIsFullRefuses) {
  RegistrationBook book;
  for (std::size_t i = 0; i < RegistrationBook::kCapacity; ++i) {
    const auto client = ParseRegistration(Registration(static_cast<std::uint8_t>(i), "host"));
    EXPECT_TRUE(book.Register(*client));
  }
  EXPECT_FALSE(book.Register(*ParseRegistration(Registration(200, "late"))));
  EXPECT_TRUE(book.Register(*ParseRegistration(Registration(3, "again"))));
  EXPECT_EQ(book.Clients().size(), RegistrationBook::kCapacity);
}

TEST_F(Commands, ARegistrationOfAnotherSizeIsRefused) {
  Start();
  EXPECT_EQ(host_->Exchange(Packet(1, 0x31, 3, Bytes(27)))[15], 0xE4);
  EXPECT_TRUE(device_->Registrations().empty());
}

TEST_F(Commands, BusyForSoManyCommands) {
  Start(With("busy=2"));
  EXPECT_EQ(Scan(1), 0x47);
  EXPECT_EQ(Scan(2), 0x47);
  EXPECT_EQ(Scan(3), 0x43);
}

TEST_F(Commands, OtherRepliesOnRequest) {
  Start(With("no-document"));
  EXPECT_EQ(Scan(1), 0x49);
  EXPECT_EQ(Scan(2), 0x49);
  Start(With("scan-reply=0x99"));
  EXPECT_EQ(Scan(1), 0x99);
  Start(With("cancel-reply=0x50"));
  EXPECT_EQ(host_->Cancel(host_->StartJob(SmallRequest()))[15], 0x50);
  Start(With("register-reply=0xD4:2"));
  EXPECT_EQ(host_->Exchange(Packet(1, 0x31, 3, Registration(1, "a")))[15], 0xD4);
  EXPECT_EQ(host_->Exchange(Packet(2, 0x31, 3, Registration(1, "a")))[15], 0xD4);
  EXPECT_EQ(host_->Exchange(Packet(3, 0x31, 3, Registration(1, "a")))[15], 0xC4);
}

TEST_F(Commands, AReplyOfAnotherSequenceIdThenTheTrueOne) {
  Start(With("reply=wrong-sequence,replies=1"));
  const Bytes command = host_->ScanCommand(SmallRequest(), 0xFFFF);
  Bytes wrong = host_->Exchange(command);
  EXPECT_EQ(Hex({wrong.begin() + 12, wrong.begin() + 14}), "00 00");
  Bytes right = host_->Exchange(command);
  EXPECT_EQ(Hex({right.begin() + 12, right.begin() + 14}), "FF FF");
  EXPECT_EQ(Hex({wrong.begin() + 20, wrong.end()}), Hex({right.begin() + 20, right.end()}));
}

TEST_F(Commands, AReplyTwice) {
  Start(With("reply=twice"));
  const Bytes first = host_->Exchange(host_->ScanCommand(SmallRequest()));
  EXPECT_EQ(Hex(host_->Receive()), Hex(first));
}

TEST_F(Commands, AStrangersReplyBeforeTheTrueOne) {
  Start(With("reply=stranger"));
  const Bytes strange = host_->Exchange(host_->ScanCommand(SmallRequest(), 5));
  EXPECT_EQ(host_->LastSender(), "127.0.0.254");
  EXPECT_EQ(strange[13], 6);
  EXPECT_EQ(host_->Receive()[13], 5);
  EXPECT_EQ(host_->LastSender(), "127.0.0.1");
}

TEST_F(Commands, TheTrueReplyFromAnotherAddress) {
  Start(With("reply=other-source"));
  EXPECT_EQ(host_->Exchange(host_->ScanCommand(SmallRequest(), 5))[13], 5);
  EXPECT_EQ(host_->LastSender(), "127.0.0.254");
}

TEST_F(Commands, RepliesCutAndTooLong) {
  Start(With("reply=cut:21"));
  EXPECT_EQ(host_->Exchange(host_->ScanCommand(SmallRequest())).size(), 21u);
  Start(With("reply=long:275"));
  const Bytes reply = host_->Exchange(host_->ScanCommand(SmallRequest()));
  EXPECT_EQ(reply.size(), 275u);
  EXPECT_EQ(reply[16], 255);
}

TEST_F(Commands, ALateReplyComesAfterItsTime) {
  Start(With("delay=reply:80"));
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(Scan(), 0x43);
  EXPECT_GE(std::chrono::steady_clock::now() - begin, 80ms);
}

TEST_F(Commands, SilenceAtTheScanCommandIsSilenceFromThenOn) {
  Start(With("silent=scan"));
  host_->Send(host_->ScanCommand(SmallRequest()));
  EXPECT_TRUE(host_->Receive(kMoment).empty());
  host_->Send(Packet(2, 0x32, 0x7E, {}));
  EXPECT_TRUE(host_->Receive(kMoment).empty());
  device_->SetFaults({});
  EXPECT_EQ(Scan(3), 0x43);
}

TEST_F(Commands, AStallAtTheScanCommandLeavesTheRestAnswering) {
  Start(With("stall=scan"));
  host_->Send(host_->ScanCommand(SmallRequest()));
  EXPECT_TRUE(host_->Receive(kMoment).empty());
  EXPECT_EQ(host_->Exchange(Packet(2, 0x32, 0x7E, {}))[15], 0x45);
}

TEST_F(Commands, SilenceAtCancel) {
  Start(With("silent=cancel"));
  const Bytes job = host_->StartJob(SmallRequest());
  host_->Send(Packet(2, 0x32, 0x51, job));
  EXPECT_TRUE(host_->Receive(kMoment).empty());
}

TEST_F(Commands, SilenceAlways) {
  Start(With("silent"));
  host_->Send(host_->ScanCommand(SmallRequest()));
  EXPECT_TRUE(host_->Receive(kMoment).empty());
}

TEST(DeviceStart, SaysWhatFailed) {
  DeviceOptions options;
  options.address = "nowhere";
  VirtualDevice unnamed(options);
  EXPECT_FALSE(unnamed.Start());
  EXPECT_EQ(unnamed.Error(), "nowhere is no IPv4 address");
  VirtualDevice first({});
  ASSERT_TRUE(first.Start());
  options.address = "127.0.0.1";
  options.command_port = first.CommandPort();
  VirtualDevice second(options);
  EXPECT_FALSE(second.Start());
  EXPECT_NE(second.Error().find("Address already in use"), std::string::npos) << second.Error();
}

}  // namespace
}  // namespace vox::sim
