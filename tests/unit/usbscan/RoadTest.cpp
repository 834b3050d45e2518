// Whole pages from the device to the client: several of a job, pages that are turned, clients that
// are slow, and what is asked of the device beside a page.
#include <cstdlib>

#include "tests/unit/usbscan/UsbScanTest.h"

namespace vox::test {
namespace {

class Road : public UsbScanTest {
 protected:
  void ExpectPage(const PageShape& shape) {
    ASSERT_TRUE(scanner_->StartScan(false));
    EXPECT_EQ(ReadPage(), PageBytes(shape));
    EXPECT_TRUE(scanner_->EndScan());
    EXPECT_EQ(Status(), 0u);
    ExpectClosed();
    script_->Done();
  }
};

TEST_F(Road, SeveralPagesAreOneJob) {
  const PageShape shape = Bilevel(128, 20);
  for (int page = 0; page < 3; ++page) {
    ScriptPage(shape, page < 2 ? kNextPage : kLastPage, page == 0);
    ExpectPage(shape);
    EXPECT_EQ(scanner_->IsNextPageExist(), page < 2);
  }
  EXPECT_EQ(scanner_->Job(), Bytes(8, 0));
}

TEST_F(Road, AnotherJobAfterOne) {
  const PageShape shape = Bilevel(64, 5);
  for (int job = 0; job < 2; ++job) {
    ScriptPage(shape, kLastPage);
    ExpectPage(shape);
  }
}

TEST_F(Road, ColourComesThroughAsItIs) {
  PageShape shape = Bilevel(50, 30);
  shape.bits = 24;
  ScriptPage(shape, kLastPage);
  ExpectPage(shape);
}

TEST_F(Road, APageThatIsShorterThanItSaysEndsWhite) {
  const PageShape shape = Bilevel(64, 8);
  ScriptStart(shape);
  const Bytes page = PageBytes(shape);
  const Bytes half(page.begin(), page.begin() + 36);
  PageHeader(Header(36));
  Block(half);
  PageHeader(kLastPage);
  ASSERT_TRUE(scanner_->StartScan(false));
  EXPECT_EQ(ReadPage(), Bytes(half.begin(), half.begin() + 32) + Bytes(32, 0xFF))
      << "the line that the end falls into is white";
  scanner_->EndScan();
  EXPECT_EQ(Status(), 0u);
}

TEST_F(Road, APageThatBreaksOffGivesNoMoreLines) {
  const PageShape shape = Bilevel(64, 8);
  ScriptStart(shape);
  PageHeader(Header(24));
  Block(Bytes(24, 0x11));
  PageHeader(Header(40));
  script_->FailRead(kIOReturnNotResponding, kBlock);
  ASSERT_TRUE(scanner_->StartScan(false));
  EXPECT_LE(ReadPage().size(), 24u);
  scanner_->EndScan();
  EXPECT_EQ(Status(), 3u);
  ExpectClosed();
}

// Below what the device can scan a lost page is filled up, and no line of it waits again.
TEST_F(Road, BelowTheBedALostPageIsWhiteAtOnce) {
  const PageShape shape = Bilevel(64, 40);
  scanner_->m_DevInfoAll[0].dwPhysicalHeight = 0;
  ScriptStart(shape);
  script_->FailRead(kIOUSBTransactionTimeout, kHeader);
  ASSERT_TRUE(scanner_->StartScan(false));
  EXPECT_EQ(ReadPage(), Bytes(8 * 40, 0xFF));
  scanner_->EndScan();
  EXPECT_EQ(Status(), 3u);
}

TEST_F(Road, TheReaderStaysBoundedWhenTheClientReadsNothing) {
  constexpr std::uint32_t kLines = 60'000, kLead = 16'384;
  const PageShape shape = Bilevel(64, kLines);
  std::atomic<std::uint32_t> lines{0};
  const FakeUsbRead read = device_.on_read;
  device_.on_read = [&lines, read](std::uint32_t size, const FakeUsbTransfer& transfer) {
    if (transfer.no_data_ms == kHeader) return FakeUsbAnswer{kIOReturnSuccess, Header(64), false};
    if (transfer.no_data_ms != kBlock) return read(size, transfer);
    lines += 8;
    return FakeUsbAnswer{kIOReturnSuccess, Bytes(64, 0x55), false};
  };
  Plug();
  ScriptStart(shape);
  ASSERT_TRUE(scanner_->StartScan(false));
  ASSERT_TRUE(Eventually([&] { return lines >= kLead; }));
  std::this_thread::sleep_for(50ms);
  EXPECT_LE(lines, kLead + 8);
  Bytes line(LineSize());
  EXPECT_EQ(scanner_->ReadLine(line.data()), 0);
  Cancel();
  scanner_->Abort();
}

// A turned page is replayed from a file, and the standby command that keeps the device awake
// meanwhile leaves the page's device open until its end.
TEST_F(Road, ATurnedPageIsReadOutAfterItsStandbyCommand) {
  const PageShape shape = Bilevel(64, 4);
  ASSERT_TRUE(Prepare(shape));
  _SCANINFO info = InfoFor(shape);
  info.dwAngle = 180;
  ScanCommand();
  Accepted();
  PageRequest();
  Information(info);
  PageHeader(Header(32));
  Block(PageBytes(shape));
  PageHeader(Header(3));
  Command(Packet(0x10));
  script_->Read(Bytes(3, 0), kDrainBlock, 3);
  DrainHeader(kLastPage);
  ASSERT_TRUE(scanner_->StartScan(false));
  EXPECT_EQ(ReadPage().size(), 32u);
  scanner_->EndScan();
  EXPECT_EQ(Status(), 0u);
  EXPECT_EQ(port_.Count("USBDeviceOpenSeize"), 1);
  ExpectClosed();
}

// The capabilities are asked for while a page runs: it goes on, its device stays open.
TEST_F(Road, AskingWhatTheDeviceCanDoDoesNotCloseARunningPage) {
  const PageShape shape = Bilevel(64, 4);
  Moment first_line;
  scanner_->before_line = [&first_line] { first_line.Reach(); };
  ScriptStart(shape);
  ASSERT_TRUE(scanner_->StartScan(false));
  ASSERT_TRUE(first_line.AwaitReached());
  script_->Write(Packet(0x22, Number(0xA201)), kInformation, kIOUSBPipeStalled);
  tagSCANDEVINFO info{};
  EXPECT_FALSE(scanner_->GetDevInfo(&info));
  EXPECT_EQ(port_.OpenDevices(), 1);
  scanner_->ClearIfErrorStatus();
  PageHeader(Header(32));
  Block(PageBytes(shape));
  PageHeader(kLastPage);
  first_line.Let();
  EXPECT_EQ(ReadPage(), PageBytes(shape));
  scanner_->EndScan();
  ExpectClosed();
}

}  // namespace
}  // namespace vox::test
