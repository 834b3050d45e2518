// The end of a page: the notices of the end channel, pages that follow, and what is in between.
#include "tests/unit/nw/ScanTest.h"

namespace vox::test {
namespace {

class End : public ScanTest {
 protected:
  // SendPage starts a page and sends all of it, so that only its end is left.
  void SendPage() {
    ASSERT_TRUE(StartRaw(page_));
    data_.peer.Send(PageBytes(page_));
    data_.peer.Close();
    ASSERT_EQ(ReadPage(), PageBytes(page_));
  }
  // Ends runs EndScan while the test plays the device.
  void Ends() {
    ending_ = std::async(std::launch::async, [this] { scanner_->EndScan(); });
  }
  void Ended() { ending_.get(); }
  bool HasJob() const { return scanner_->GetJobId().dwJobNo != 0; }

  const PageShape page_ = Bilevel(64, 10);
  std::future<void> ending_;
};

TEST_F(End, OfTheJobIsAnsweredAndForgetsIt) {
  SendPage();
  EXPECT_TRUE(HasJob());
  EXPECT_EQ(EndPage(0x00), Bytes{0});
  EXPECT_EQ(end_.peer.AwaitEnd(), TcpPeer::End::kClosed);
  EXPECT_FALSE(scanner_->IsNextPageExist());
  EXPECT_FALSE(HasJob());
  EXPECT_EQ(scanner_->GetIfErrorStatus(), 0u);
}

TEST_F(End, WithAnotherPageKeepsTheJob) {
  SendPage();
  EXPECT_EQ(EndPage(0x90), Bytes{0});
  EXPECT_TRUE(scanner_->IsNextPageExist());
  EXPECT_TRUE(HasJob());
}

TEST_F(End, NextPageOfAJobNeedsNoScanCommand) {
  SendPage();
  EndPage(0x90);
  const Bytes first = data_.registration;
  SendPage();
  EXPECT_EQ(AwaitCommands(3), (std::vector<int>{kScan, kRequestPage, kRequestPage}));
  EXPECT_EQ(ToHex(&data_.registration[5], 8), ToHex(&first[5], 8));
  EndPage(0x00);
  EXPECT_FALSE(scanner_->IsNextPageExist());
}

TEST_F(End, NotYetIsAnsweredAndAwaitedOnAFreshChannel) {
  SendPage();
  Ends();
  const Bytes first = end_.registration;
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(end_.EndPage(0xF0), Bytes{0});
    EXPECT_EQ(end_.peer.AwaitEnd(), TcpPeer::End::kClosed);
    end_ = server_->TakeChannel();
    EXPECT_EQ(end_.registration, first);
  }
  EXPECT_EQ(end_.EndPage(0x90), Bytes{0});
  Ended();
  EXPECT_TRUE(scanner_->IsNextPageExist());
  EXPECT_EQ(scanner_->GetIfErrorStatus(), 0u);
}

TEST_F(End, RefusedFreshChannelFails) {
  SendPage();
  Ends();
  EXPECT_EQ(end_.EndPage(0xF0), Bytes{0});
  end_ = server_->TakeChannel(1);
  Ended();
  EXPECT_EQ(scanner_->GetIfErrorStatus(), 3u);
  EXPECT_FALSE(HasJob());
}

TEST_F(End, NoticeMayComeInPieces) {
  SendPage();
  Ends();
  const Bytes notice = end_.Notice(0x90);
  for (std::size_t i = 0; i < 16; ++i) {
    ASSERT_TRUE(end_.peer.SendByte(notice[i]));
    EXPECT_TRUE(i == 15 || end_.peer.HasNothing(1ms));
  }
  EXPECT_EQ(end_.peer.Receive(1), Bytes{0});
  Ended();
  EXPECT_TRUE(scanner_->IsNextPageExist());
}

TEST_F(End, NoticeThatIsCutOffFails) {
  SendPage();
  Ends();
  const Bytes notice = end_.Notice(0x90);
  end_.peer.Send(std::span(notice).first(15));
  end_.peer.Close();
  Ended();
  EXPECT_EQ(scanner_->GetIfErrorStatus(), 3u);
  EXPECT_FALSE(scanner_->IsNextPageExist());
}

TEST_F(End, NoticeThatStopsHalfwayFailsAfterTheShortWait) {
  scanner_->SetWaits({.nFirstData = 60'000, .nData = 50, .nRegistration = 5'000});
  SendPage();
  Ends();
  const Bytes notice = end_.Notice(0x90);
  end_.peer.Send(std::span(notice).first(15));
  const Stopwatch watch;
  Ended();
  EXPECT_LT(watch.Elapsed(), 5s);
  EXPECT_EQ(scanner_->GetIfErrorStatus(), 3u);
}

TEST_F(End, SilenceFailsAfterTheLongWait) {
  scanner_->SetWaits({.nFirstData = 300, .nData = 60'000, .nRegistration = 5'000});
  SendPage();
  const Stopwatch watch;
  scanner_->EndScan();
  EXPECT_LT(watch.Elapsed(), 5s);
  EXPECT_EQ(scanner_->GetIfErrorStatus(), 3u);
  EXPECT_FALSE(HasJob());
}

TEST_F(End, ClosedChannelFails) {
  SendPage();
  end_.peer.Close();
  scanner_->EndScan();
  EXPECT_EQ(scanner_->GetIfErrorStatus(), 3u);
  EXPECT_FALSE(HasJob());
}

TEST_F(End, FailureKeepsAJobThatHasMorePages) {
  SendPage();
  EndPage(0x90);
  SendPage();
  end_.peer.Close();
  scanner_->EndScan();
  EXPECT_EQ(scanner_->GetIfErrorStatus(), 3u);
  EXPECT_TRUE(HasJob());
  EXPECT_TRUE(scanner_->IsNextPageExist());
}

TEST_F(End, ClientThatEndsEarlyStillTakesTheNotice) {
  ASSERT_TRUE(StartRaw(Bilevel(64, 1'000)));
  Ends();
  EXPECT_EQ(data_.peer.AwaitEnd(), TcpPeer::End::kClosed);
  EXPECT_EQ(end_.EndPage(0x90), Bytes{0});
  Ended();
  EXPECT_TRUE(scanner_->IsNextPageExist());
  EXPECT_EQ(scanner_->GetIfErrorStatus(), 0u);
}

// The device need not close the data channel of a page that has come whole, nor the client hurry.
TEST_F(End, WholePageOfBlocksEndsThoughItsDataChannelStaysOpen) {
  scanner_->SetWaits({.nFirstData = 60'000, .nData = 60'000, .nRegistration = 60'000});
  const PageShape page = Bilevel(128, 40);
  ASSERT_TRUE(StartJbig(page));
  ASSERT_TRUE(data_.peer.Send(Block(0, 40)));
  EXPECT_EQ(end_.EndPage(0x00), Bytes{0});
  EXPECT_TRUE(ReadPage() == PageBytes(page));
  scanner_->EndScan();
  EXPECT_EQ(scanner_->GetIfErrorStatus(), 0u);
}

TEST_F(End, BlocksThatNobodyWantedAreReleased) {
  Moment moment;
  scanner_->before_line = [&] { moment.Reach(); };
  const PageShape page = Bilevel(128, 40);
  ASSERT_TRUE(StartJbig(page));
  ASSERT_TRUE(moment.AwaitReached());
  for (std::uint32_t i = 0; i < 20; ++i) ASSERT_TRUE(data_.peer.Send(Block(i, 1)));
  std::this_thread::sleep_for(30ms);
  Ends();
  moment.Let();
  EXPECT_EQ(end_.EndPage(0x00), Bytes{0});
  Ended();
  EXPECT_EQ(scanner_->GetIfErrorStatus(), 0u);
}

TEST_F(End, StandbyCarriesTheSequenceIdOfThePage) {
  SendPage();
  EXPECT_TRUE(scanner_->SendCmdStandby());
  const std::vector<Bytes> sent = device_->AwaitRequests(3);
  ASSERT_EQ(sent.at(2).size(), 20u);
  EXPECT_EQ(sent[2][15], kStandby);
  EXPECT_EQ(ToHex(&sent[2][12], 2), ToHex(&data_.registration[13], 2));
  EndPage(0x00);
}

TEST_F(End, StandbyThatCannotBeSentSaysSo) {
  CTwImgIFNW nowhere("Scanner", "300.0.0.1");
  EXPECT_FALSE(nowhere.SendCmdStandby());
}

}  // namespace
}  // namespace vox::test
