// The end of a page: what is left of it is read, whatever it is, and the device is closed.
#include <cstdlib>

#include "tests/support/TraceLog.h"
#include "tests/unit/usbscan/UsbScanTest.h"

namespace vox::test {
namespace {

constexpr std::uint32_t kPiece = 64 * 1024;

class End : public UsbScanTest {
 protected:
  End() {
    Opened();
    scanner_->SetJob(kJob);
  }
  // Whatever comes of it, the device is closed and the line semaphore raised.
  void ExpectEnds(bool result) {
    EXPECT_EQ(scanner_->DeviceEndScan(), result);
    ExpectClosed();
    scanner_->m_semaphore.Down();
    job_ = scanner_->Job();
    scanner_->SetJob(Bytes(8, 0));
  }
  void ExpectJobKept(bool kept) { EXPECT_EQ(job_, kept ? kJob : Bytes(8, 0)); }

  Bytes job_;  // as the end of the page left it
};

TEST_F(End, UsesTheHeaderThatWasReadAhead) {
  const TraceLog log;
  PageHeader(Header(4));
  Block(Bytes(4, 1));
  PageHeader(kLastPage);
  ReadLine(4);
  ExpectEnds(true);
  ExpectJobKept(false);
  EXPECT_TRUE(scanner_->XferDone());
  EXPECT_FALSE(scanner_->ReadLineFlag());
  EXPECT_THAT(log.Lines(), testing::Contains("(SUCCESS)\n"));
}

TEST_F(End, KeepsTheJobWhenAnotherPageFollows) {
  PageHeader(Header(4));
  Block(Bytes(4, 1));
  PageHeader(kNextPage);
  ReadLine(4);
  ExpectEnds(true);
  ExpectJobKept(true);
  EXPECT_EQ(scanner_->multipage, 1u);
  scanner_->multipage = 0;
}

TEST_F(End, OfAPageWhoseEndWasSeenReadsNothing) {
  PageHeader(kLastPage);
  ReadLine(4);
  ExpectEnds(true);
  EXPECT_EQ(Status(), 0u);
}

TEST_F(End, AfterACommunicationErrorReadsNothing) {
  scanner_->SetIfErrorStatus(3);
  ExpectEnds(true);
  EXPECT_TRUE(scanner_->XferDone());
  ExpectJobKept(false);
}

TEST_F(End, AfterAnotherErrorReadsThePageOut) {
  scanner_->SetIfErrorStatus(7);
  DrainHeader(kLastPage);
  ExpectEnds(true);
}

TEST_F(End, DiscardsWhatIsLeftWithTheDrainsTimeOuts) {
  DrainHeader(Header(10));
  script_->Read(Bytes(10, 1), kDrainBlock, 10);
  DrainHeader(kPending);
  DrainHeader(Header(3));
  script_->Read(Bytes(3, 1), kDrainBlock, 3);
  DrainHeader(kNextPage);
  ExpectEnds(true);
  EXPECT_EQ(scanner_->multipage, 1u);
  scanner_->multipage = 0;
}

TEST_F(End, DiscardsLargeBlocksInPieces) {
  DrainHeader(Header(2 * kPiece + 5));
  script_->Read(Bytes(kPiece, 1), kDrainBlock, kPiece);
  script_->Read(Bytes(kPiece, 1), kDrainBlock, kPiece);
  script_->Read(Bytes(5, 1), kDrainBlock, 5);
  DrainHeader(kLastPage);
  ExpectEnds(true);
}

TEST_F(End, OfABlockLengthThatNoBufferHolds) {
  DrainHeader(Header(0xFFFFFFFF));
  script_->FailRead(kIOUSBTransactionTimeout, kDrainBlock);
  ExpectEnds(false);
  ExpectJobKept(false);
  EXPECT_EQ(Status(), 0u);
}

TEST_F(End, ABlockThatIsCutEndsTheDrain) {
  DrainHeader(Header(10));
  script_->Read(Bytes(9, 1), kDrainBlock, 10);
  ExpectEnds(false);
}

TEST_F(End, WithoutAHeaderSaysWhatWasRead) {
  const TraceLog log;
  script_->Read(Hex("00 00 00"), kDrainHeader, 8);
  ExpectEnds(false);
  EXPECT_THAT(log.Lines(), testing::IsSupersetOf({"(FAILURE : dwSize = 3\n", "(FAILURE : res = 0\n",
                                                  "(FAILURE : Read Block Size(1))\n"}));
}

TEST_F(End, WithoutAHeaderTheJobIsForgottenThoughPagesWereToFollow) {
  scanner_->multipage = 1;
  script_->FailRead(kIOUSBTransactionTimeout, kDrainHeader);
  ExpectEnds(false);
  ExpectJobKept(false);
  scanner_->multipage = 0;
}

TEST_F(End, WithoutMemoryIsStatus2) {
  SessionSystem system = CurrentSessionSystem();
  system.line_memory = [](std::size_t) -> void* { return nullptr; };
  SetSessionSystem(system);
  DrainHeader(Header(10));
  ExpectEnds(false);
  EXPECT_EQ(Status(), 2u);
}

TEST_F(End, LogsInThisOrderWhenThePageBreaksOff) {
  const TraceLog log;
  PageHeader(Header(6));
  script_->Read(Bytes(2, 0), kBlock, 6);
  ReadLine(4, -1);
  scanner_->ClearIfErrorStatus();
  script_->FailRead(kIOUSBTransactionTimeout, kDrainHeader);
  ExpectEnds(false);
  EXPECT_EQ(log.Lines(),
            (std::vector<std::string>{"******** IF_ERR_STS_DEVICE_COMM_ERR:0019\n *********",
                                      "Size : 6: 2 \n", "(FAILURE : dwSize = 0\n",
                                      "(FAILURE : res = 0\n", "(FAILURE : Read Block Size(1))\n"}));
}

TEST_F(End, LogsAMissingHeaderSo) {
  const TraceLog log;
  script_->FailRead(kIOUSBTransactionTimeout, kHeader);
  ReadLine(4, -1);
  EXPECT_EQ(log.Lines(),
            (std::vector<std::string>{"******** IF_ERR_STS_DEVICE_COMM_ERR:0018\n *********",
                                      "CTwImgIFUsb::GetScanData:TWCC_BUMMER\n"}));
  ExpectEnds(true);
}

TEST_F(End, LogsTheStatusThatMakesALineFail) {
  const TraceLog log;
  PageHeader(Header(4, 3));
  Block(Bytes(4, 0));
  PageHeader(kLastPage);
  ReadLine(4, -1);
  EXPECT_THAT(log.Lines(), testing::Contains("CTwImgIFUsb::Read:Error = 7\n"));
  ExpectEnds(true);
}

}  // namespace
}  // namespace vox::test
