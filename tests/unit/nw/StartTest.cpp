// How a page begins: what is sent to whom and in which order, and what every failure leaves.
#include "tests/unit/nw/ScanTest.h"
#include "vox/drivers/SessionSystem.h"

namespace vox::test {
namespace {

class Start : public ScanTest {
 protected:
  const PageShape page_ = Bilevel(64, 10);
};

TEST_F(Start, OfAPageOpensBothChannels) {
  ASSERT_TRUE(StartRaw(page_));
  EXPECT_EQ(scanner_->GetIfErrorStatus(), 0u);
  EXPECT_EQ(data_.registration.at(0), 0);
  EXPECT_EQ(ToHex(&data_.registration[1], 4), "7F 00 00 01");
  EXPECT_EQ(ToHex(&data_.registration[5], 8), ToHex(kJob));
  EXPECT_EQ(end_.registration, data_.registration);
}

TEST_F(Start, SendsTheScanCommandAndThePageRequest) {
  ASSERT_TRUE(Prepare(page_));
  scanner_->scan_info.dwHostReseved[3] = 0xDEADBEEF;  // the reserved areas go out as zeros
  scanner_->scan_info.dwDeviceReserved = 0xDEADBEEF;
  Begin();
  data_ = server_->TakeChannel();
  data_.OpenPage(InfoFor(page_));
  end_ = server_->TakeChannel();
  ASSERT_TRUE(Began());
  const std::vector<Bytes> sent = device_->AwaitRequests(2);
  const Bytes& scan = sent.at(0);
  ASSERT_EQ(scan.size(), 148u);
  EXPECT_EQ(scan[14], 0x32);
  EXPECT_EQ(scan[15], 0x41);
  EXPECT_EQ(scan[16], 128);
  EXPECT_EQ(scan[20 + 48], 1) << "dwEncodeType";
  EXPECT_EQ(ToHex(&scan[20 + 52], 28), ToHex(Bytes(28, 0)));
  EXPECT_EQ(ToHex(&scan[20 + 115], 5), ToHex(Bytes(5, 0)));
  const Bytes& request = sent.at(1);
  ASSERT_EQ(request.size(), 28u);
  EXPECT_EQ(request[15], 0x62);
  EXPECT_EQ(ToHex(&request[20], 8), ToHex(kJob));
  EXPECT_EQ(ToHex(&request[12], 2), ToHex(&data_.registration[13], 2)) << "the same sequence id";
}

TEST_F(Start, PageRequestCarriesTheSequenceIdThatItIsGiven) {
  ASSERT_TRUE(StartRaw(page_));
  EXPECT_TRUE(scanner_->cmd_req_page(0x1234));
  const std::vector<Bytes> sent = device_->AwaitRequests(3);
  EXPECT_EQ(ToHex(&sent.at(2)[12], 16), "12 34 32 62 08 00 00 00 11 22 33 44 55 66 77 88");
}

TEST_F(Start, SequenceIdIsNeverZeroAndChanges) {
  std::uint16_t last = 0;
  int changes = 0;
  for (int i = 0; i < 5; ++i) {
    ASSERT_TRUE(StartRaw(page_));
    const auto id =
        static_cast<std::uint16_t>(data_.registration[13] << 8 | data_.registration[14]);
    EXPECT_NE(id, 0);
    changes += id != last;
    last = id;
    data_.peer.Close();
    EXPECT_EQ(EndPage(0), Bytes{0});
  }
  EXPECT_GE(changes, 3);
}

TEST_F(Start, PageIsRequestedOnceTheRegistrationIsAccepted) {
  ASSERT_TRUE(Prepare(page_));
  Begin();
  data_ = server_->AwaitChannel();
  EXPECT_TRUE(data_.peer.HasNothing(30ms));
  EXPECT_EQ(Commands(), std::vector<int>{kScan});
  data_.peer.SendByte(0);
  EXPECT_EQ(AwaitCommands(2), (std::vector<int>{kScan, kRequestPage}));
  data_.OpenPage(InfoFor(page_));
  end_ = server_->TakeChannel();
  EXPECT_TRUE(Began());
}

TEST_F(Start, TakesThePagesInformation) {
  _SCANINFO info = InfoFor(page_);
  info.dwLeftCutMargin = 0x01020304;
  info.dwAngle = 0;
  ASSERT_TRUE(StartPage(page_, info));
  EXPECT_EQ(scanner_->scan_info.dwLeftCutMargin, 0x01020304u);
  EXPECT_EQ(scanner_->scan_info.Window.yExtent, 10u);
}

TEST_F(Start, WithoutAJobServerFailsBeforeAnyCommand) {
  server_.reset();
  ASSERT_TRUE(Prepare(page_));
  EXPECT_FALSE(scanner_->StartScan(false));
  EXPECT_EQ(scanner_->GetIfErrorStatus(), 3u);
  EXPECT_TRUE(Commands().empty());
  server_.emplace();
}

struct Answered {
  int code;  // -1: silence
  unsigned status;
};
void PrintTo(const Answered& answered, std::ostream* stream) {
  *stream << answered.code;
}

class ScanReply : public Start, public testing::WithParamInterface<Answered> {};

TEST_P(ScanReply, LeavesItsStatus) {
  ShortenExchanges();
  if (GetParam().code < 0) Replies(kScan, {});
  if (GetParam().code >= 0) {
    Replies(kScan, Reply{static_cast<std::uint8_t>(GetParam().code), kJob});
  }
  ASSERT_TRUE(Prepare(page_));
  EXPECT_FALSE(scanner_->StartScan(false));
  EXPECT_EQ(scanner_->GetIfErrorStatus(), GetParam().status);
  EXPECT_EQ(scanner_->GetJobId().dwJobNo, 0u);
}

INSTANTIATE_TEST_SUITE_P(Table, ScanReply,
                         testing::Values(Answered{0x47, 4}, Answered{0x49, 8}, Answered{0x53, 5},
                                         Answered{0x00, 5}, Answered{-1, 3}));

TEST_F(Start, FirstStatusStays) {
  Replies(kScan, Reply{0x49, {}});
  ASSERT_TRUE(Prepare(page_));
  EXPECT_FALSE(scanner_->StartScan(false));
  server_.reset();
  EXPECT_FALSE(scanner_->StartScan(false));
  EXPECT_EQ(scanner_->GetIfErrorStatus(), 8u);
  server_.emplace();
}

TEST_F(Start, AcceptedJobWithoutANameIsRefused) {
  Replies(kScan, Reply{0x43, Bytes(kJob.begin(), kJob.begin() + 7)});
  ASSERT_TRUE(Prepare(page_));
  EXPECT_FALSE(scanner_->StartScan(false));
  EXPECT_EQ(scanner_->GetIfErrorStatus(), 5u);
}

TEST_F(Start, LongReplyIsNoHarm) {
  Bytes param(255, 0xEE);
  std::copy(kJob.begin(), kJob.end(), param.begin());
  Replies(kScan, Reply{0x43, param});
  EXPECT_TRUE(StartRaw(page_));
}

TEST_F(Start, RefusedRegistrationFailsAtOnce) {
  ASSERT_TRUE(Prepare(page_));
  Begin();
  data_ = server_->TakeChannel(1);
  const Stopwatch watch;
  EXPECT_FALSE(Began());
  EXPECT_LT(watch.Elapsed(), 2s);
  EXPECT_EQ(scanner_->GetIfErrorStatus(), 3u);
  EXPECT_EQ(Commands(), std::vector<int>{kScan});
  EXPECT_EQ(data_.peer.AwaitEnd(), TcpPeer::End::kClosed);
}

TEST_F(Start, SilentJobServerFailsAfterTheWait) {
  scanner_->SetWaits({.nFirstData = 60'000, .nData = 60'000, .nRegistration = 30});
  ASSERT_TRUE(Prepare(page_));
  Begin();
  data_ = server_->AwaitChannel();
  const Stopwatch watch;
  EXPECT_FALSE(Began());
  EXPECT_LT(watch.Elapsed(), 5s);
  EXPECT_EQ(scanner_->GetIfErrorStatus(), 3u);
}

// What the device does after the accepted registration of the data channel, and fails.
using DeviceDoes = void (*)(FakeChannel& data, const _SCANINFO& sent);
struct BadStart {
  const char* what;
  DeviceDoes device;
};
void PrintTo(const BadStart& bad, std::ostream* stream) {
  *stream << bad.what;
}

class StartOfADevice : public Start, public testing::WithParamInterface<BadStart> {};

TEST_P(StartOfADevice, ThatFailsLeavesStatus3AndNothingOpen) {
  scanner_->SetWaits({.nFirstData = 60'000, .nData = 60, .nRegistration = 60'000});
  ASSERT_TRUE(Prepare(page_));
  Begin();
  data_ = server_->TakeChannel();
  GetParam().device(data_, InfoFor(page_));
  const Stopwatch watch;
  EXPECT_FALSE(Began());
  EXPECT_LT(watch.Elapsed(), 5s);
  EXPECT_EQ(scanner_->GetIfErrorStatus(), 3u);
}

INSTANTIATE_TEST_SUITE_P(
    Table, StartOfADevice,
    testing::Values(BadStart{"no notice", [](FakeChannel&, const _SCANINFO&) {}},
                    BadStart{"closed instead of a notice",
                             [](FakeChannel& data, const _SCANINFO&) { data.peer.Close(); }},
                    BadStart{"reset instead of a notice",
                             [](FakeChannel& data, const _SCANINFO&) { data.peer.Reset(); }},
                    BadStart{"no information",
                             [](FakeChannel& data, const _SCANINFO&) {
                               data.peer.Send(data.Notice(0x80));
                               data.peer.Receive(1);
                             }},
                    BadStart{"127 bytes of information",
                             [](FakeChannel& data, const _SCANINFO& sent) {
                               data.peer.Send(data.Notice(0x80));
                               data.peer.Receive(1);
                               const Bytes wire = WireInfo(sent);
                               data.peer.Send(std::span(wire).first(127));
                             }},
                    BadStart{"closed in the information",
                             [](FakeChannel& data, const _SCANINFO& sent) {
                               data.peer.Send(data.Notice(0x80));
                               data.peer.Receive(1);
                               const Bytes wire = WireInfo(sent);
                               data.peer.Send(std::span(wire).first(64));
                               data.peer.Close();
                             }}));

TEST_F(Start, NoticeMayComeInPieces) {
  ASSERT_TRUE(Prepare(page_));
  Begin();
  data_ = server_->TakeChannel();
  for (const std::uint8_t byte : data_.Notice(0x80)) {
    ASSERT_TRUE(data_.peer.SendByte(byte));
    EXPECT_TRUE(byte == 0x88 || data_.peer.HasNothing(1ms));
  }
  ASSERT_EQ(data_.peer.Receive(1), Bytes{0x01});
  data_.peer.Send(WireInfo(InfoFor(page_)));
  end_ = server_->TakeChannel();
  EXPECT_TRUE(Began());
}

TEST_F(Start, NoticeIsNotExamined) {
  ASSERT_TRUE(Prepare(page_));
  Begin();
  data_ = server_->TakeChannel();
  data_.peer.Send(Hex("00"));
  ASSERT_EQ(data_.peer.Receive(1), Bytes{0x01});
  data_.peer.Send(WireInfo(InfoFor(page_)));
  end_ = server_->TakeChannel();
  EXPECT_TRUE(Began());
}

TEST_F(Start, RefusedEndChannelClosesTheDataChannelToo) {
  ASSERT_TRUE(Prepare(page_));
  Begin();
  data_ = server_->TakeChannel();
  ASSERT_TRUE(data_.OpenPage(InfoFor(page_)));
  end_ = server_->TakeChannel(1);
  EXPECT_FALSE(Began());
  EXPECT_EQ(scanner_->GetIfErrorStatus(), 3u);
  EXPECT_EQ(data_.peer.AwaitEnd(), TcpPeer::End::kClosed);
  EXPECT_EQ(end_.peer.AwaitEnd(), TcpPeer::End::kClosed);
}

// The session's system calls, some of which fail.
class StartWithoutMeans : public Start {
 protected:
  ~StartWithoutMeans() override { SetSessionSystem(before_); }
  template <typename Change>
  void With(Change change) {
    SessionSystem system = CurrentSessionSystem();
    change(system);
    SetSessionSystem(system);
  }
  void ExpectFailure(unsigned status) {
    EXPECT_FALSE(StartJbig(Bilevel(64, 10)));
    EXPECT_EQ(scanner_->GetIfErrorStatus(), status);
    EXPECT_EQ(data_.peer.AwaitEnd(), TcpPeer::End::kClosed);
    EXPECT_EQ(end_.peer.AwaitEnd(), TcpPeer::End::kClosed);
  }
  const SessionSystem before_ = CurrentSessionSystem();
};

TEST_F(StartWithoutMeans, NoThreadForTheBlocksIsStatus1) {
  With([](SessionSystem& system) {
    system.start_thread = [](pthread_t*, void* (*)(void*), void*) { return EAGAIN; };
  });
  ExpectFailure(1);
}

TEST_F(StartWithoutMeans, NoThreadForTheLinesIsStatus1AndEndsTheBlocksThread) {
  static int threads;
  static SessionSystem original;
  threads = 0;
  original = before_;
  With([](SessionSystem& system) {
    system.start_thread = [](pthread_t* thread, void* (*body)(void*), void* argument) {
      return ++threads == 1 ? original.start_thread(thread, body, argument) : EAGAIN;
    };
  });
  ExpectFailure(1);
  EXPECT_GT(threads, 1);
}

TEST_F(StartWithoutMeans, NoSemaphoresIsStatus1) {
  With([](SessionSystem& system) {
    system.make_set = [](key_t, int, int) {
      errno = ENOSPC;
      return -1;
    };
  });
  ExpectFailure(1);
}

// A job that the device has accepted while the start failed.
class FailedStart : public Start {
 protected:
  void SetUp() override {
    ASSERT_TRUE(Prepare(page_));
    Begin();
    data_ = server_->TakeChannel(1);
    ASSERT_FALSE(Began());
    ASSERT_EQ(Commands(), std::vector<int>{kScan});
    ASSERT_NE(scanner_->GetJobId().dwJobNo, 0u);
  }
};

TEST_F(FailedStart, LeavesItsJobToAnAbort) {
  EXPECT_FALSE(scanner_->Abort());
  const std::vector<Bytes> sent = device_->AwaitRequests(3);
  EXPECT_EQ(Commands(), (std::vector<int>{kScan, kRequestPage, kCancel}));
  EXPECT_EQ(ToHex(&sent.at(2)[20], 8), ToHex(kJob));
}

TEST_F(FailedStart, JobIsCancelledBeforeAnotherIsAskedFor) {
  ASSERT_TRUE(StartRaw(page_));
  EXPECT_EQ(AwaitCommands(4), (std::vector<int>{kScan, kCancel, kScan, kRequestPage}));
}

TEST_F(FailedStart, JobThatWasAbortedIsNotCancelledAgain) {
  scanner_->Abort();
  ASSERT_TRUE(StartRaw(page_));
  EXPECT_EQ(AwaitCommands(5),
            (std::vector<int>{kScan, kRequestPage, kCancel, kScan, kRequestPage}));
}

TEST_F(Start, JobThatHasEndedIsNotCancelled) {
  for (int i = 0; i < 2; ++i) {
    ASSERT_TRUE(StartRaw(page_));
    data_.peer.Close();
    EXPECT_EQ(EndPage(0x00), Bytes{0});
  }
  EXPECT_EQ(AwaitCommands(4), (std::vector<int>{kScan, kRequestPage, kScan, kRequestPage}));
}

TEST_F(Start, WorksAgainAfterAFailure) {
  ASSERT_TRUE(Prepare(page_));
  Begin();
  data_ = server_->TakeChannel(1);
  EXPECT_FALSE(Began());
  ASSERT_TRUE(StartRaw(page_));
  data_.peer.Send(PageBytes(page_));
  data_.peer.Close();
  EXPECT_EQ(ReadPage(), PageBytes(page_));
  EXPECT_EQ(EndPage(0), Bytes{0});
  EXPECT_EQ(scanner_->GetIfErrorStatus(), 0u);
}

}  // namespace
}  // namespace vox::test
