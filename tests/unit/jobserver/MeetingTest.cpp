// Registrations and notices: who is accepted, who meets whom, who is sent away and when.
#include <algorithm>

#include <sys/resource.h>

#include "tests/unit/jobserver/JobServerFixture.h"

namespace vox::test {
namespace {

class Meeting : public WithJobServer {};

TEST_F(Meeting, RegistrationIsAccepted) {
  Start();
  EXPECT_TRUE(Registered().IsOpen());
}

TEST_F(Meeting, RegistrationInPiecesIsAccepted) {
  Start();
  TcpPeer client = Client();
  for (const std::uint8_t byte : BuildRegistration({0, kJob})) ASSERT_TRUE(client.SendByte(byte));
  EXPECT_EQ(client.Receive(1), Bytes{kRegistrationAccepted});
}

TEST_F(Meeting, OtherTypeIsRefusedAndClosed) {
  Start();
  TcpPeer client = Client();
  ASSERT_TRUE(SendRegistration(client, kJob, 1));
  EXPECT_EQ(client.ReceiveAll(), Bytes{kRegistrationRefused});
}

TEST_F(Meeting, SixtyFifthRegistrationIsRefused) {
  Start();
  std::vector<TcpPeer> clients;
  for (int i = 0; i < 64; ++i) clients.push_back(Registered());
  TcpPeer late = Client();
  ASSERT_TRUE(SendRegistration(late));
  EXPECT_EQ(late.ReceiveAll(), Bytes{kRegistrationRefused});
}

TEST_F(Meeting, PlaceOfAClientThatWentIsFree) {
  options_.limits.waiting_registrations = 1;
  Start();
  { const TcpPeer gone = Registered(); }
  // The server learns of the leave before or after the next registration; one of the first ones
  // succeeds.
  Bytes answer;
  for (int i = 0; i < 100 && answer != Bytes{kRegistrationAccepted}; ++i) {
    TcpPeer client = Client();
    ASSERT_TRUE(SendRegistration(client));
    answer = client.Receive(1);
  }
  EXPECT_EQ(answer, Bytes{kRegistrationAccepted});
}

TEST_F(Meeting, NoticeIsPassedOn) {
  Start();
  TcpPeer client = Registered();
  TcpPeer device = Announced();
  EXPECT_EQ(client.Receive(kNoticeSize), NoticeOf(kJob));
}

TEST_F(Meeting, EndNoticeIsPassedOnToo) {
  Start();
  for (const int command : {0x90, 0xF0, 0x00, 0x53}) {
    TcpPeer client = Registered();
    TcpPeer device = Announced(kJob, static_cast<std::uint8_t>(command));
    EXPECT_EQ(client.Receive(kNoticeSize), NoticeOf(kJob, static_cast<std::uint8_t>(command)));
  }
}

TEST_F(Meeting, NoticeInPiecesIsPassedOn) {
  Start();
  TcpPeer client = Registered();
  TcpPeer device = Device();
  for (const std::uint8_t byte : NoticeOf(kJob)) ASSERT_TRUE(device.SendByte(byte));
  EXPECT_EQ(client.Receive(kNoticeSize), NoticeOf(kJob));
}

TEST_F(Meeting, NoticeMayComeBeforeItsRegistration) {
  Start();
  TcpPeer device = Announced();
  TcpPeer client = Registered();
  EXPECT_TRUE(HasMet(client, device));
}

TEST_F(Meeting, BytesBehindTheNoticeAreKeptForTheRegistration) {
  Start();
  TcpPeer device = Device();
  Bytes bytes = NoticeOf(kJob);
  bytes.insert(bytes.end(), {1, 2, 3});
  ASSERT_TRUE(device.Send(bytes));
  device.CloseSending();
  TcpPeer client = Registered();
  EXPECT_EQ(client.ReceiveAll(), bytes);
}

TEST_F(Meeting, OldestRegistrationGetsTheConnection) {
  Start();
  TcpPeer oldest = Registered();
  TcpPeer second = Registered();
  TcpPeer device = Announced();
  EXPECT_TRUE(HasMet(oldest, device));
  EXPECT_TRUE(second.HasNothing(20ms));
  TcpPeer next = Announced();
  EXPECT_TRUE(HasMet(second, next));
}

TEST_F(Meeting, OldestNoticeIsTakenFirst) {
  Start();
  TcpPeer first = Announced();
  ASSERT_TRUE(first.HasNothing(20ms));
  TcpPeer second = Announced(kJob, 0x90);
  ASSERT_TRUE(second.HasNothing(20ms));
  TcpPeer client = Registered();
  EXPECT_EQ(client.Receive(kNoticeSize), NoticeOf(kJob));
}

TEST_F(Meeting, ClientThatWentGetsNoDevice) {
  options_.times.meeting = 300ms;
  Start();
  { const TcpPeer gone = Registered(); }
  TcpPeer stays = Registered();
  TcpPeer device = Announced();
  EXPECT_TRUE(HasMet(stays, device));
}

struct Other {
  JobKey key;
  const char* reason;
};

void PrintTo(const Other& other, std::ostream* stream) {
  *stream << other.reason;
}

class OtherNotice : public Meeting, public ::testing::WithParamInterface<Other> {};

TEST_P(OtherNotice, MeetsNobody) {
  options_.times.meeting = 50ms;
  Start();
  TcpPeer client = Registered(GetParam().key);
  TcpPeer device = Announced();
  EXPECT_EQ(device.AwaitEnd(), TcpPeer::End::kClosed);
  EXPECT_TRUE(client.HasNothing(0ms));
  EXPECT_NE(log_.Text().find("1 unmatched"), std::string::npos) << log_.Text();
}

INSTANTIATE_TEST_SUITE_P(
    Table, OtherNotice,
    ::testing::Values(Other{{kLoopbackAddress + 1, kJob.job_id, 0x1234}, "another device"},
                      Other{{kLoopbackAddress, {0x11}, 0x1234}, "another job"},
                      Other{{kLoopbackAddress, kJob.job_id, 0x1235}, "another request"}));

TEST_F(Meeting, AddressIsTheOneThatTheDeviceSpeaksFrom) {
  options_.device_address = "0.0.0.0";
  Start();
  TcpPeer client = Registered({kLoopbackAddress + 1, kJob.job_id, kJob.sequence_id});
  TcpPeer device = Device("127.0.0.2");
  ASSERT_TRUE(device.Send(NoticeOf(kJob)));
  EXPECT_TRUE(HasMet(client, device));
}

TEST_F(Meeting, MalformedNoticeIsClosedAtOnce) {
  Start();
  TcpPeer device = Device();
  Bytes notice = NoticeOf(kJob);
  notice[14] = 0x31;
  ASSERT_TRUE(device.Send(notice));
  EXPECT_EQ(device.AwaitEnd(), TcpPeer::End::kClosed);
  EXPECT_NE(log_.Text().find("1 malformed"), std::string::npos) << log_.Text();
}

TEST_F(Meeting, LateRegistrationIsClosed) {
  options_.times.registration = 30ms;
  Start();
  TcpPeer client = Client();
  ASSERT_TRUE(client.Send(Bytes(14, 0)));
  EXPECT_EQ(client.AwaitEnd(), TcpPeer::End::kClosed);
  EXPECT_NE(log_.Text().find("1 late"), std::string::npos) << log_.Text();
}

TEST_F(Meeting, LateNoticeIsClosed) {
  options_.times.notice = 30ms;
  Start();
  TcpPeer device = Device();
  ASSERT_TRUE(device.Send(Bytes(27, 'M')));
  EXPECT_EQ(device.AwaitEnd(), TcpPeer::End::kClosed);
  EXPECT_NE(log_.Text().find("1 late"), std::string::npos) << log_.Text();
}

TEST_F(Meeting, RegistrationWaitsWithoutLimit) {
  options_.times.registration = options_.times.notice = options_.times.meeting = 10ms;
  Start();
  TcpPeer client = Registered();
  EXPECT_TRUE(client.HasNothing(60ms));
  TcpPeer device = Announced();
  EXPECT_TRUE(HasMet(client, device));
}

TEST_F(Meeting, TwoHundredAndFiftySeventhDeviceIsClosed) {
  Start();
  std::vector<TcpPeer> devices;
  for (int i = 0; i < 128; ++i) devices.push_back(Device());
  for (int i = 0; i < 128; ++i) devices.push_back(Announced());
  TcpPeer one_more = Device();
  EXPECT_EQ(one_more.AwaitEnd(), TcpPeer::End::kClosed);
  EXPECT_TRUE(devices.back().HasNothing(0ms));
  EXPECT_NE(log_.Text().find("1 for want of room"), std::string::npos) << log_.Text();
}

TEST_F(Meeting, NoisyNeighbourDoesNotFloodTheLog) {
  Start();
  for (int i = 0; i < 50; ++i) {
    TcpPeer device = Device();
    ASSERT_TRUE(device.Send(Bytes(28, 'x')));
    ASSERT_EQ(device.AwaitEnd(), TcpPeer::End::kClosed);
  }
  server_.Stop();
  const std::string text = log_.Text();
  EXPECT_LE(std::count(text.begin(), text.end(), '\n'), 4) << text;
  EXPECT_NE(text.find("50 malformed"), std::string::npos) << text;
}

TEST_F(Meeting, PairWaitsWhileAllRelaysAreTaken) {
  options_.limits.relays = 1;
  Start();
  Pair first = Met();
  TcpPeer client = Registered();
  TcpPeer device = Announced();
  EXPECT_TRUE(client.HasNothing(30ms));
  first.client.Close();
  first.device.Close();
  EXPECT_TRUE(HasMet(client, device));
}

// 256 relays and the pair that waits have four descriptors each in this process.
class FullHouse : public Meeting {
 protected:
  FullHouse() {
    ::getrlimit(RLIMIT_NOFILE, &before_);
    rlimit more = before_;
    more.rlim_cur = std::max<rlim_t>(before_.rlim_cur, std::min<rlim_t>(before_.rlim_max, 2'000));
    ::setrlimit(RLIMIT_NOFILE, &more);
  }
  ~FullHouse() override { ::setrlimit(RLIMIT_NOFILE, &before_); }

  static JobKey Numbered(int i) {
    return {kLoopbackAddress, kJob.job_id, static_cast<std::uint16_t>(i)};
  }

 private:
  rlimit before_{};
};

TEST_F(FullHouse, TwoHundredAndFiftySeventhPairWaitsForTheEndOfAnother) {
  Start();
  std::vector<Pair> pairs;
  for (int i = 0; i < 256; ++i) pairs.push_back(Met(Numbered(i)));
  TcpPeer client = Registered(Numbered(256));
  TcpPeer device = Announced(Numbered(256));
  EXPECT_TRUE(client.HasNothing(30ms));
  for (Pair& pair : pairs) ASSERT_TRUE(pair.device.SendByte(7));
  for (Pair& pair : pairs) ASSERT_EQ(pair.client.Receive(1), Bytes{7});
  EXPECT_TRUE(client.HasNothing(0ms));
  pairs.erase(pairs.begin() + 100);
  EXPECT_TRUE(HasMet(client, device));
}

}  // namespace
}  // namespace vox::test
