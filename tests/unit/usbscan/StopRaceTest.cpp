// Aborts that meet another call half-way: a page that is being started, the device being opened or
// asked what it can do, and an abort that has not ended when the next page begins.
#include <future>

#include "tests/unit/usbscan/UsbScanTest.h"

namespace vox::test {
namespace {

class StopRace : public UsbScanTest {
 protected:
  // A write of that command waits until the test lets it go, or an interrupt of its thread ends it.
  void HoldCommand(std::uint8_t command) {
    const FakeUsbWrite write = device_.on_write;
    device_.on_write = [this, command, write](const Bytes& packet,
                                              const FakeUsbTransfer& transfer) {
      if (packet.size() < 20 || packet[15] != command) return write(packet, transfer);
      const auto wakes = UsbInterrupt::Fds();
      const bool let = wakes.empty() ? held_.Reach() : held_.Reach({wakes[0]});
      return let ? write(packet, transfer) : kIOReturnAborted;
    };
    Plug();
  }
  std::future<bool> Starting() {
    return std::async(std::launch::async, [this] { return scanner_->StartScan(false); });
  }

  const PageShape page_ = Bilevel(64, 8);
  Moment held_;
};

// The device opens all the same, and is asked nothing.
TEST_F(StopRace, WhileTheDeviceIsOpened) {
  device_.on_clear = [this](std::uint8_t pipe) {
    if (pipe == 1) held_.Reach();
  };
  Plug();
  ASSERT_TRUE(Prepare(page_));
  auto starting = Starting();
  ASSERT_TRUE(held_.AwaitReached());
  auto aborting = std::async(std::launch::async, [this] { return scanner_->Abort(); });
  ASSERT_TRUE(Eventually([this] { return scanner_->IsAborted(); }));
  held_.Let();
  EXPECT_FALSE(starting.get());
  EXPECT_TRUE(aborting.get());
  EXPECT_EQ(port_.Count("WritePipeTO") + port_.Count("ReadPipeTO"), 0);
  EXPECT_EQ(Status(), 0u);
  ExpectClosed();
}

// The packet may have gone out: if the device took it, the job is known and cancelled.
TEST_F(StopRace, WhileTheScanCommandGoesOutAwaitsTheJob) {
  HoldCommand(0x41);
  ASSERT_TRUE(Prepare(page_));
  Accepted();
  Cancel();
  auto starting = Starting();
  ASSERT_TRUE(held_.AwaitReached());
  EXPECT_TRUE(scanner_->Abort());
  EXPECT_FALSE(starting.get());
  EXPECT_EQ(Status(), 0u);
  ExpectClosed();
}

TEST_F(StopRace, WhileTheScanCommandGoesOutToADeviceThatDoesNotAnswer) {
  HoldCommand(0x41);
  ASSERT_TRUE(Prepare(page_));
  script_->FailRead(kIOUSBTransactionTimeout, kCommand);
  auto starting = Starting();
  ASSERT_TRUE(held_.AwaitReached());
  EXPECT_TRUE(scanner_->Abort());
  EXPECT_FALSE(starting.get());
  EXPECT_EQ(Status(), 0u) << "nobody wants the answer any more";
  ExpectClosed();
}

// Its waits would not end with an abort that was signalled before it began.
TEST_F(StopRace, ThatIsUnderWayEndsAPageBeforeItBegins) {
  HoldCommand(0x50);
  ASSERT_TRUE(Prepare(page_));
  scanner_->SetJob(kJob);
  Cancel();
  auto aborting = std::async(std::launch::async, [this] { return scanner_->Abort(); });
  ASSERT_TRUE(held_.AwaitReached());
  auto starting = Starting();
  EXPECT_EQ(starting.wait_for(kPatience), std::future_status::ready);
  held_.Let();
  EXPECT_FALSE(starting.get());
  EXPECT_TRUE(aborting.get());
  EXPECT_EQ(Status(), 0u);
  ExpectClosed();
}

TEST_F(StopRace, ThatIsUnderWayEndsAQuestionBeforeItIsAsked) {
  scanner_->before_line = [this] { held_.Reach(); };
  ScriptStart(page_);
  ASSERT_TRUE(scanner_->StartScan(false));
  ASSERT_TRUE(held_.AwaitReached());
  Cancel();
  auto aborting = std::async(std::launch::async, [this] { return scanner_->Abort(); });
  ASSERT_TRUE(Eventually([this] { return script_->Left() == 0; }));
  tagSCANDEVINFO info{};
  EXPECT_FALSE(scanner_->GetDevInfo(&info)) << "the page's reader holds the abort up";
  held_.Let();
  EXPECT_TRUE(aborting.get());
  EXPECT_EQ(Status(), 0u);
  ExpectClosed();
}

TEST_F(StopRace, EndsAStandbyCommandThatGoesOut) {
  HoldCommand(0x10);
  auto waking = std::async(std::launch::async, [this] { return scanner_->SendCmdStandby(); });
  ASSERT_TRUE(held_.AwaitReached());
  EXPECT_TRUE(scanner_->Abort());
  EXPECT_FALSE(waking.get());
  EXPECT_EQ(Status(), 0u);
  ExpectClosed();
}

TEST_F(StopRace, KeepsItsReaderFromWakingTheDevice) {
  std::atomic<bool> woken{false};
  scanner_->before_line = [&] {
    held_.Reach();
    woken = scanner_->SendCmdStandby();
  };
  ScriptStart(page_);
  ASSERT_TRUE(scanner_->StartScan(false));
  ASSERT_TRUE(held_.AwaitReached());
  Cancel();
  auto aborting = std::async(std::launch::async, [this] { return scanner_->Abort(); });
  ASSERT_TRUE(Eventually([this] { return script_->Left() == 0; }));
  held_.Let();
  EXPECT_TRUE(aborting.get());
  EXPECT_FALSE(woken);
  EXPECT_EQ(Status(), 0u);
}

// The bytes of such a block are gone: another header comes next.
TEST_F(StopRace, ThatMeetsABlockThatIsCutDoesNotReadTheBlockAgain) {
  const FakeUsbRead read = device_.on_read;
  device_.on_read = [this, read](std::uint32_t size, const FakeUsbTransfer& transfer) {
    if (size != 10) return read(size, transfer);
    held_.Let();
    return UsbInterrupt::Wait(kPatience) ? FakeUsbAnswer{kIOReturnSuccess, Bytes(6, 1)}
                                         : FakeUsbAnswer{kIOReturnError};
  };
  Plug();
  ASSERT_TRUE(Prepare(Bilevel(80, 8)));
  ScanCommand();
  Accepted();
  PageRequest();
  Information(InfoFor(Bilevel(80, 8)));
  PageHeader(Header(10));
  DrainHeader(kLastPage);
  ASSERT_TRUE(scanner_->StartScan(false));
  held_.Reach();
  EXPECT_TRUE(scanner_->EndScan());
  EXPECT_EQ(Status(), 0u);
  ExpectClosed();
}

// A header that was read ahead goes with the page that was lost.
TEST_F(StopRace, AfterALostPageOfAJobReadsTheNextOneFromItsFirstHeader) {
  Opened();
  scanner_->multipage = 1;
  scanner_->SetJob(kJob);
  PageHeader(Header(4));
  Block(Bytes(4, 1));
  PageHeader(Header(9));
  ReadLine(4);
  scanner_->SetIfErrorStatus(3);
  EXPECT_TRUE(scanner_->DeviceEndScan());
  scanner_->m_semaphore.Down();
  ExpectClosed();
  PageRequest();
  Information(InfoFor(page_));
  Cancel();
  DrainHeader(kLastPage);
  EXPECT_TRUE(scanner_->Abort());
  EXPECT_EQ(scanner_->GetJobId().dwJobNo, 0u);
  ExpectClosed();
}

}  // namespace
}  // namespace vox::test
