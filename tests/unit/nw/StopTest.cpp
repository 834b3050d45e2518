// Stopping: an abort at every moment of a page ends every wait at once, cancels the job, and leaves
// nothing behind.
#include <atomic>
#include <random>

#include "tests/unit/nw/ScanTest.h"

namespace vox::test {
namespace {

constexpr std::chrono::milliseconds kAtOnce{500};

class Stop : public ScanTest {
 protected:
  Stop() {
    // Nothing here may rest on a wait that runs out.
    scanner_->SetWaits({.nFirstData = 60'000, .nData = 60'000, .nRegistration = 60'000});
  }
  void ExpectAbortAtOnce() {
    const auto took = Took([this] { scanner_->Abort(); });
    EXPECT_LT(took, kAtOnce) << took.count() << " ms";
  }
  const PageShape page_ = Bilevel(128, 100);
};

TEST_F(Stop, WithoutAJobIsTheBases) {
  EXPECT_TRUE(scanner_->Abort());
  EXPECT_TRUE(scanner_->Abort());
  EXPECT_TRUE(Commands().empty());
}

TEST_F(Stop, CancelsTheJob) {
  ASSERT_TRUE(StartRaw(page_));
  EXPECT_FALSE(scanner_->Abort());
  const std::vector<Bytes> sent = device_->AwaitRequests(4);
  EXPECT_EQ(Commands(), (std::vector<int>{kScan, kRequestPage, kRequestPage, kCancel}));
  EXPECT_NE(ToHex(&sent.at(2)[12], 2), ToHex(&data_.registration[13], 2)) << "a fresh sequence id";
  EXPECT_EQ(ToHex(&sent[3][20], 8), ToHex(kJob));
  EXPECT_EQ(sent[3].size(), 28u);
  EXPECT_EQ(scanner_->GetIfErrorStatus(), 0u);
  EXPECT_EQ(data_.peer.AwaitEnd(), TcpPeer::End::kClosed);
  EXPECT_EQ(end_.peer.AwaitEnd(), TcpPeer::End::kClosed);
}

TEST_F(Stop, AnotherReplyIsStatus5) {
  Replies(kCancel, Reply{0x43, {}});
  ASSERT_TRUE(StartRaw(page_));
  EXPECT_FALSE(scanner_->Abort());
  EXPECT_EQ(scanner_->GetIfErrorStatus(), 5u);
}

TEST_F(Stop, NoReplyIsStatus3AndTakesNoTime) {
  Replies(kCancel, {});
  ASSERT_TRUE(StartRaw(page_));
  ExpectAbortAtOnce();
  EXPECT_EQ(scanner_->GetIfErrorStatus(), 3u);
}

TEST_F(Stop, TwiceIsHarmless) {
  ASSERT_TRUE(StartRaw(page_));
  scanner_->Abort();
  EXPECT_FALSE(scanner_->Abort());
  EXPECT_EQ(scanner_->GetIfErrorStatus(), 0u);
}

// How far the start of a page has come when the abort comes, the next wait having begun.
using UpTo = void (*)(FakeJobServer& server, FakeChannel& data, FakeChannel& end,
                      const _SCANINFO& sent);
struct StartStage {
  const char* what;
  UpTo play;
};
void PrintTo(const StartStage& stage, std::ostream* stream) {
  *stream << stage.what;
}

class StopInStart : public Stop, public testing::WithParamInterface<StartStage> {};

TEST_P(StopInStart, EndsIt) {
  ASSERT_TRUE(Prepare(page_));
  Begin();
  GetParam().play(*server_, data_, end_, InfoFor(page_));
  std::this_thread::sleep_for(20ms);
  ExpectAbortAtOnce();
  const auto took = Took([this] { EXPECT_FALSE(Began()); });
  EXPECT_LT(took, kAtOnce);
  EXPECT_EQ(scanner_->GetIfErrorStatus(), 0u) << "the client's wish is no error";
  EXPECT_EQ(AwaitCommands(2).back(), kCancel);
}

INSTANTIATE_TEST_SUITE_P(
    Table, StopInStart,
    testing::Values(
        StartStage{"registering the data channel",
                   [](FakeJobServer& server, FakeChannel& data, FakeChannel&, const _SCANINFO&) {
                     data = server.AwaitChannel();
                   }},
        StartStage{"waiting for the notice",
                   [](FakeJobServer& server, FakeChannel& data, FakeChannel&, const _SCANINFO&) {
                     data = server.TakeChannel();
                   }},
        StartStage{"in the notice",
                   [](FakeJobServer& server, FakeChannel& data, FakeChannel&, const _SCANINFO&) {
                     data = server.TakeChannel();
                     const Bytes notice = data.Notice(0x80);
                     data.peer.Send(std::span(notice).first(13));
                   }},
        StartStage{"waiting for the information",
                   [](FakeJobServer& server, FakeChannel& data, FakeChannel&, const _SCANINFO&) {
                     data = server.TakeChannel();
                     data.peer.Send(data.Notice(0x80));
                     data.peer.Receive(1);
                   }},
        StartStage{"registering the end channel", [](FakeJobServer& server, FakeChannel& data,
                                                     FakeChannel& end, const _SCANINFO& sent) {
                     data = server.TakeChannel();
                     data.OpenPage(sent);
                     end = server.AwaitChannel();
                   }}));

// The device accepts the job while the abort is already there.
class JobAcceptedMeanwhile : public Stop {
 protected:
  void ExpectCommands(const std::vector<int>& commands) {
    Moment asked;
    settings_.reset();
    device_ = std::make_unique<UdpPeer>([&](const Bytes& request) {
      if (request.at(15) == kScan) asked.Reach();
      return Answer(request);
    });
    settings_ = std::make_unique<NetSettings>(*device_);
    ASSERT_TRUE(Prepare(page_));
    Begin();
    ASSERT_TRUE(asked.AwaitReached());
    ExpectAbortAtOnce();
    asked.Let();
    EXPECT_FALSE(Began());
    EXPECT_EQ(CommandsInTheEnd(), commands);
  }
};

TEST_F(JobAcceptedMeanwhile, IsCancelled) {
  ExpectCommands({kScan, kCancel});
}

TEST_F(JobAcceptedMeanwhile, IsCancelledThoughAnAbortedOneBoreItsId) {
  ASSERT_TRUE(StartRaw(page_));
  scanner_->Abort();
  ExpectCommands({kScan, kCancel});
}

TEST_F(Stop, WhileALineIsAwaited) {
  ASSERT_TRUE(StartRaw(page_));
  Bytes line(LineSize());
  auto reading = std::async(std::launch::async, [&] { return scanner_->ReadLine(line.data()); });
  std::this_thread::sleep_for(20ms);
  ExpectAbortAtOnce();
  EXPECT_EQ(reading.get(), 1);
}

TEST_F(Stop, InTheMiddleOfALine) {
  ASSERT_TRUE(StartRaw(page_));
  data_.peer.Send(Bytes(10, 0));
  std::this_thread::sleep_for(20ms);
  ExpectAbortAtOnce();
  EXPECT_EQ(scanner_->GetIfErrorStatus(), 0u);
}

TEST_F(Stop, WhileABlockIsAwaited) {
  ASSERT_TRUE(StartJbig(page_));
  std::this_thread::sleep_for(20ms);
  ExpectAbortAtOnce();
  EXPECT_EQ(scanner_->GetIfErrorStatus(), 0u);
}

TEST_F(Stop, InTheMiddleOfABlock) {
  ASSERT_TRUE(StartJbig(page_));
  const Bytes block = Block(0, 50);
  data_.peer.Send(Block(50, 50) + Bytes(block.begin(), block.begin() + 20));
  std::this_thread::sleep_for(20ms);
  ExpectAbortAtOnce();
  EXPECT_EQ(scanner_->GetIfErrorStatus(), 0u);
}

TEST_F(Stop, WhileTheDeviceNeverStopsSending) {
  ASSERT_TRUE(StartRaw(Bilevel(8'000, 1'000'000)));
  std::atomic<bool> stop{false};
  std::thread device([&] {
    const Bytes bytes(65'536, 0x55);
    while (!stop && data_.peer.Send(bytes)) {
    }
  });
  std::this_thread::sleep_for(30ms);
  ExpectAbortAtOnce();
  stop = true;
  device.join();
}

TEST_F(Stop, WhileTheEndNoticeIsAwaited) {
  ASSERT_TRUE(StartRaw(page_));
  data_.peer.Send(PageBytes(page_));
  ReadPage();
  auto ending = std::async(std::launch::async, [this] { return scanner_->EndScan(); });
  std::this_thread::sleep_for(20ms);
  ExpectAbortAtOnce();
  EXPECT_TRUE(ending.get());
  EXPECT_EQ(scanner_->GetIfErrorStatus(), 0u);
}

TEST_F(Stop, InTheMiddleOfTheEndNotice) {
  ASSERT_TRUE(StartRaw(page_));
  data_.peer.Send(PageBytes(page_));
  ReadPage();
  end_.peer.Send(Bytes(10, 'M'));
  std::this_thread::sleep_for(20ms);
  ExpectAbortAtOnce();
}

TEST_F(Stop, BetweenNotYetAndTheFreshChannel) {
  ASSERT_TRUE(StartRaw(page_));
  data_.peer.Send(PageBytes(page_));
  ReadPage();
  EXPECT_EQ(end_.EndPage(0xF0), Bytes{0});
  end_ = server_->AwaitChannel();
  ExpectAbortAtOnce();
}

TEST_F(Stop, WhileTheDeviceIsKeptAwakeBetweenPages) {
  ASSERT_TRUE(StartRaw(page_));
  data_.peer.Send(PageBytes(page_));
  ReadPage();
  EXPECT_EQ(EndPage(0x90), Bytes{0});
  ExpectAbortAtOnce();
  EXPECT_FALSE(scanner_->IsNextPageExist());
}

TEST_F(Stop, DeletingARunningPageIsAStop) {
  ASSERT_TRUE(StartJbig(page_));
  data_.peer.Send(Block(0, 10));
  const auto took = Took([this] { scanner_.reset(); });
  EXPECT_LT(took, kAtOnce);
  EXPECT_EQ(CommandsInTheEnd(), (std::vector<int>{kScan, kRequestPage})) << "Abort is for that";
}

TEST_F(Stop, PageAfterAnAbortIsAWholePage) {
  ASSERT_TRUE(StartJbig(page_));
  data_.peer.Send(Block(0, 10));
  scanner_->Abort();
  ASSERT_TRUE(StartJbig(page_));
  data_.peer.Send(Block(0, 100));
  data_.peer.Close();
  EXPECT_TRUE(ReadPage() == PageBytes(page_));
  EXPECT_EQ(EndPage(0x00), Bytes{0});
  EXPECT_EQ(scanner_->GetIfErrorStatus(), 0u);
}

TEST_F(Stop, PageStartedOverARunningOneEndsThatOneFirst) {
  ASSERT_TRUE(StartJbig(page_));
  data_.peer.Send(Block(0, 10));
  FakeChannel first = std::move(end_);
  ASSERT_TRUE(Prepare(page_));
  Begin();
  EXPECT_EQ(first.EndPage(0x00), Bytes{0});
  data_ = server_->TakeChannel();
  data_.OpenPage(InfoFor(page_, 8));
  end_ = server_->TakeChannel();
  ASSERT_TRUE(Began());
  data_.peer.Send(Block(0, 100));
  EXPECT_TRUE(ReadPage() == PageBytes(page_));
  EndPage(0x00);
}

TEST_F(Stop, TwoScannersAtOnceDoNotMeet) {
  ASSERT_TRUE(StartRaw(page_));
  FakeChannel first_data = std::move(data_), first_end = std::move(end_);
  auto first = std::move(scanner_);
  scanner_ = std::make_unique<Scanner>();
  ASSERT_TRUE(StartRaw(page_));
  first->Abort();
  first.reset();
  data_.peer.Send(PageBytes(page_));
  EXPECT_TRUE(ReadPage() == PageBytes(page_));
  EXPECT_EQ(EndPage(0x00), Bytes{0});
}

class Eject : public Stop {
 protected:
  // Ejects runs EjectADF while the test plays the device.
  void Ejects() {
    ejecting_ = std::async(std::launch::async, [this] { return scanner_->EjectADF(); });
  }
  std::future<bool> ejecting_;
};

TEST_F(Eject, AsksForAPageAndCancelsTheJob) {
  ASSERT_TRUE(StartRaw(page_));
  Ejects();
  FakeChannel channel = server_->TakeChannel();
  _SCANINFO other = InfoFor(page_);
  other.Window.yExtent = 7;
  EXPECT_TRUE(channel.OpenPage(other));
  EXPECT_FALSE(ejecting_.get());
  EXPECT_EQ(AwaitCommands(4), (std::vector<int>{kScan, kRequestPage, kRequestPage, kCancel}));
  EXPECT_NE(channel.registration, data_.registration) << "a fresh sequence id";
  EXPECT_EQ(channel.peer.AwaitEnd(), TcpPeer::End::kClosed);
  EXPECT_EQ(scanner_->scan_info.Window.yExtent, 100u) << "the page's own information stays";
  EXPECT_EQ(scanner_->GetIfErrorStatus(), 0u);
}

TEST_F(Eject, AfterAnAbortStillWorks) {
  ASSERT_TRUE(StartRaw(page_));
  scanner_->Abort();
  Ejects();
  FakeChannel channel = server_->TakeChannel();
  EXPECT_TRUE(channel.OpenPage(InfoFor(page_)));
  EXPECT_FALSE(ejecting_.get());
  EXPECT_EQ(scanner_->GetIfErrorStatus(), 0u);
}

TEST_F(Eject, WithoutAPageIsStatus3) {
  ASSERT_TRUE(StartRaw(page_));
  Ejects();
  FakeChannel channel = server_->TakeChannel(1);
  EXPECT_FALSE(ejecting_.get());
  EXPECT_EQ(AwaitCommands(3).back(), kCancel);
  EXPECT_EQ(scanner_->GetIfErrorStatus(), 3u);
}

TEST_F(Eject, AnotherReplyIsStatus5) {
  Replies(kCancel, Reply{0x00, {}});
  ASSERT_TRUE(StartRaw(page_));
  Ejects();
  FakeChannel channel = server_->TakeChannel();
  EXPECT_TRUE(channel.OpenPage(InfoFor(page_)));
  EXPECT_FALSE(ejecting_.get());
  EXPECT_EQ(scanner_->GetIfErrorStatus(), 5u);
}

TEST_F(Eject, NoReplyIsStatus3) {
  scanner_->SetWaits({.nFirstData = 60'000, .nData = 300, .nRegistration = 60'000});
  ASSERT_TRUE(StartRaw(page_));
  Replies(kCancel, {});
  Ejects();
  FakeChannel channel = server_->TakeChannel();
  EXPECT_TRUE(channel.OpenPage(InfoFor(page_)));
  EXPECT_FALSE(ejecting_.get());
  EXPECT_EQ(scanner_->GetIfErrorStatus(), 3u);
  EXPECT_EQ(AwaitCommands(6),
            (std::vector<int>{kScan, kRequestPage, kRequestPage, kCancel, kCancel, kCancel}))
      << "three times";
}

TEST_F(Eject, IsCutShortByAnAbort) {
  ASSERT_TRUE(StartRaw(page_));
  Ejects();
  FakeChannel channel = server_->TakeChannel();
  std::this_thread::sleep_for(20ms);
  ExpectAbortAtOnce();
  const auto took = Took([this] { EXPECT_FALSE(ejecting_.get()); });
  EXPECT_LT(took, kAtOnce);
  EXPECT_EQ(scanner_->GetIfErrorStatus(), 0u) << "the client's wish is no error";
}

}  // namespace
}  // namespace vox::test
