// Stopping: an abort at every moment of a page ends every wait at once, cancels the job once, and
// leaves the device closed; a device that has gone silent costs no more than its time-outs.
#include "tests/unit/usbscan/UsbScanTest.h"

namespace vox::test {
namespace {

constexpr std::chrono::milliseconds kAtOnce{500};

class Stop : public UsbScanTest {
 protected:
  void ExpectAbortAtOnce() {
    const auto took = Took([this] { EXPECT_TRUE(scanner_->Abort()); });
    EXPECT_LT(took, kAtOnce) << took.count() << " ms";
    ExpectClosed();
  }
  void AwaitScript(int left) {
    ASSERT_TRUE(Eventually([&] { return script_->Left() == left; }));
    std::this_thread::sleep_for(5ms);
  }
  void StartPage() {
    ScriptStart(page_);
    script_->SilentRead(kHeader);
    ASSERT_TRUE(scanner_->StartScan(false));
    AwaitScript(0);
  }
  // A read of that size lasts until an interrupt of its thread ends it.
  void HoldReadsOf(std::uint32_t size) {
    const FakeUsbRead read = device_.on_read;
    device_.on_read = [this, size, read](std::uint32_t wanted, const FakeUsbTransfer& transfer) {
      if (wanted != size) return read(wanted, transfer);
      held_ = true;
      return FakeUsbAnswer{UsbInterrupt::Wait(kPatience) ? kIOReturnAborted : kIOReturnError, {}};
    };
    Plug();
  }
  void AwaitHeld() {
    ASSERT_TRUE(Eventually([this] { return held_.load(); }));
  }

  const PageShape page_ = Bilevel(64, 8);
  std::atomic<bool> held_{false};
};

TEST_F(Stop, WithoutAJobIsTheBases) {
  EXPECT_TRUE(scanner_->Abort());
  EXPECT_TRUE(scanner_->Abort());
  EXPECT_EQ(port_.Count("USBDeviceOpenSeize"), 0);
}

TEST_F(Stop, WithoutAJobClosesTheDevice) {
  Opened();
  EXPECT_TRUE(scanner_->Abort());
  ExpectClosed();
}

TEST_F(Stop, WhileAHeaderIsAwaited) {
  StartPage();
  Cancel();
  ExpectAbortAtOnce();
  EXPECT_EQ(Status(), 0u) << "the client's wish is no error";
  EXPECT_EQ(port_.Count("USBDeviceOpenSeize"), 1) << "opened anew it would drop page and job";
  EXPECT_EQ(scanner_->Job(), Hex("11 22 33 44 00 00 00 00"));
  EXPECT_FALSE(scanner_->XferDone());
  EXPECT_TRUE(scanner_->ReadLineFlag());
  EXPECT_FALSE(scanner_->IsNextPageExist());
}

TEST_F(Stop, EjectingTheSheetIsTheSame) {
  StartPage();
  Cancel();
  EXPECT_TRUE(scanner_->EjectADF());
  ExpectClosed();
}

// Ejecting goes the way that a class of the client's has for aborts.
TEST_F(Stop, EjectingTheSheetCallsWhateverAbortIs) {
  class Own final : public CTwImgIFUsb {
   public:
    Own() : CTwImgIFUsb(kModel, kSerial) {}
    ~Own() override { StopSession(); }
    bool Abort() override {
      aborted = true;
      return false;
    }
    bool aborted = false;
  };
  Own own;
  EXPECT_FALSE(own.EjectADF());
  EXPECT_TRUE(own.aborted);
}

TEST_F(Stop, TwiceCancelsOnce) {
  StartPage();
  Cancel();
  ExpectAbortAtOnce();
  ExpectAbortAtOnce();
}

TEST_F(Stop, FromTwoThreadsCancelsOnce) {
  StartPage();
  Cancel();
  auto other = std::async(std::launch::async, [this] { return scanner_->Abort(); });
  EXPECT_TRUE(scanner_->Abort());
  EXPECT_TRUE(other.get());
  ExpectClosed();
}

TEST_F(Stop, WhileABlockIsAwaited) {
  ScriptStart(page_);
  PageHeader(Header(100));
  script_->SilentRead(kBlock);
  ASSERT_TRUE(scanner_->StartScan(false));
  AwaitScript(0);
  Cancel();
  ExpectAbortAtOnce();
  EXPECT_EQ(Status(), 0u);
}

TEST_F(Stop, WhileALineIsAwaited) {
  StartPage();
  Bytes line(LineSize());
  auto reading = std::async(std::launch::async, [&] { return scanner_->ReadLine(line.data()); });
  std::this_thread::sleep_for(20ms);
  Cancel();
  ExpectAbortAtOnce();
  EXPECT_EQ(reading.get(), 1);
}

TEST_F(Stop, WhileThePageIsReadOut) {
  HoldReadsOf(5);
  ScriptStart(page_);
  PageHeader(Header(64));
  Block(PageBytes(page_));
  PageHeader(Header(5));
  ASSERT_TRUE(scanner_->StartScan(false));
  AwaitHeld();
  Cancel();
  ExpectAbortAtOnce();
}

TEST_F(Stop, WhileTheEndOfThePageIsAwaited) {
  ScriptStart(page_);
  PageHeader(Header(64));
  Block(PageBytes(page_));
  PageHeader(Header(1));
  script_->Read({1}, kDrainBlock, 1);
  script_->SilentRead(kDrainHeader);
  ASSERT_TRUE(scanner_->StartScan(false));
  AwaitScript(0);
  auto ending = std::async(std::launch::async, [this] { return scanner_->EndScan(); });
  std::this_thread::sleep_for(5ms);
  Cancel();
  ExpectAbortAtOnce();
  EXPECT_TRUE(ending.get());
}

TEST_F(Stop, OfAnEndedPageReadsOutWhatFollows) {
  ScriptStart(page_);
  PageHeader(Header(10));
  script_->SilentRead(kBlock);
  ASSERT_TRUE(scanner_->StartScan(false));
  AwaitScript(0);
  script_->Read(Bytes(10, 1), kDrainBlock, 10);  // the block whose header was read
  DrainHeader(kLastPage);
  const auto took = Took([this] { EXPECT_TRUE(scanner_->EndScan()); });
  EXPECT_LT(took, 5s);
  EXPECT_EQ(Status(), 0u);
  EXPECT_EQ(scanner_->Job(), Bytes(8, 0));
  ExpectClosed();
}

// ---- within StartScan

TEST_F(Stop, WhileTheInformationIsAwaited) {
  HoldReadsOf(128);
  ASSERT_TRUE(Prepare(page_));
  ScanCommand();
  Accepted();
  PageRequest();
  Cancel();
  auto starting = std::async(std::launch::async, [this] { return scanner_->StartScan(false); });
  AwaitHeld();
  ExpectAbortAtOnce();
  EXPECT_FALSE(starting.get());
  EXPECT_EQ(Status(), 0u);
  ExpectClosed();
}

TEST_F(Stop, ThatMeetsTheAnswerToTheScanCommandCancelsTheJob) {
  Moment asked;
  const FakeUsbRead read = device_.on_read;
  device_.on_read = [&asked, read](std::uint32_t size, const FakeUsbTransfer& transfer) {
    if (size == 28) asked.Reach();
    return read(size, transfer);
  };
  Plug();
  ASSERT_TRUE(Prepare(page_));
  ScanCommand();
  Accepted();
  Cancel();
  auto starting = std::async(std::launch::async, [this] { return scanner_->StartScan(false); });
  ASSERT_TRUE(asked.AwaitReached());
  auto aborting = std::async(std::launch::async, [this] { return scanner_->Abort(); });
  std::this_thread::sleep_for(20ms);
  asked.Let();
  EXPECT_FALSE(starting.get());
  EXPECT_TRUE(aborting.get());
  EXPECT_EQ(Status(), 0u);
  ExpectClosed();
}

TEST_F(Stop, WhileAnotherProgramHoldsTheDevice) {
  device_.open_refusals = kAlwaysRefused;
  Plug();
  ASSERT_TRUE(Prepare(page_));
  testing::internal::CaptureStdout();
  auto starting = std::async(std::launch::async, [this] { return scanner_->StartScan(false); });
  ASSERT_TRUE(Eventually([this] { return port_.Count("USBDeviceOpenSeize") >= 1; }));
  ExpectAbortAtOnce();
  EXPECT_FALSE(starting.get());
  testing::internal::GetCapturedStdout();
  EXPECT_EQ(Status(), 0u);
}

// ---- between pages

class StopBetweenPages : public Stop {
 protected:
  void EndFirstPage() {
    ScriptPage(page_, kNextPage);
    ASSERT_TRUE(scanner_->StartScan(false));
    EXPECT_EQ(ReadPage(), PageBytes(page_));
    EXPECT_TRUE(scanner_->EndScan());
    EXPECT_TRUE(scanner_->IsNextPageExist());
    ExpectClosed();
    script_->Done();
  }
};

TEST_F(StopBetweenPages, AsksForThePageCancelsAndReadsItOut) {
  EndFirstPage();
  PageRequest();
  Information(InfoFor(page_));
  Cancel();
  DrainHeader(Header(7));
  script_->Read(Bytes(7, 0), kDrainBlock, 7);
  DrainHeader(kLastPage);
  EXPECT_FALSE(scanner_->ReadLineFlag());
  EXPECT_TRUE(scanner_->Abort());
  ExpectClosed();
  EXPECT_EQ(scanner_->GetJobId().dwJobNo, 0u);
  EXPECT_TRUE(scanner_->ReadLineFlag());
  EXPECT_FALSE(scanner_->XferDone());
  EXPECT_FALSE(scanner_->IsNextPageExist());
}

TEST_F(StopBetweenPages, AndThePageThatDoesNotComeKeepsTheJobKnown) {
  EndFirstPage();
  PageRequest();
  Information(InfoFor(page_));
  Cancel();
  script_->FailRead(kIOUSBTransactionTimeout, kDrainHeader);
  EXPECT_TRUE(scanner_->Abort());
  ExpectClosed();
  EXPECT_EQ(scanner_->Job(), kJob);
  EXPECT_FALSE(scanner_->IsNextPageExist());
  Cancel();
  EXPECT_TRUE(scanner_->Abort());
  EXPECT_EQ(scanner_->GetJobId().dwJobNo, 0u);
}

// The reader is held up, so that its own end of the page does not take "more pages" back first.
TEST_F(StopBetweenPages, InTheMiddleOfTheNextPageOnlyCancels) {
  EndFirstPage();
  Moment held;
  scanner_->before_line = [&held] { held.Reach(); };
  ScriptStart(page_, false);
  ASSERT_TRUE(scanner_->StartScan(false));
  ASSERT_TRUE(held.AwaitReached());
  EXPECT_TRUE(scanner_->IsNextPageExist()) << "the job has more until this page's end";
  Cancel();
  auto aborting = std::async(std::launch::async, [this] { return scanner_->Abort(); });
  EXPECT_TRUE(Eventually([this] { return script_->Left() == 0; }));
  held.Let();
  EXPECT_TRUE(aborting.get());
  EXPECT_EQ(scanner_->GetJobId().dwJobNo, 0u);
  EXPECT_FALSE(scanner_->IsNextPageExist());
  ExpectClosed();
}

TEST_F(StopBetweenPages, DoesNotTouchTheRequestOfTheNextPage) {
  EndFirstPage();
  ASSERT_TRUE(Prepare(Bilevel(128, 16)));
  PageRequest();
  Information(InfoFor(page_));
  Cancel();
  DrainHeader(kLastPage);
  EXPECT_TRUE(scanner_->Abort());
  EXPECT_EQ(scanner_->scan_info.Window.xExtent, 128u);
}

TEST_F(StopBetweenPages, WhileTheDeviceIsKeptAwake) {
  SessionSystem system = CurrentSessionSystem();
  system.standby_interval = 0.01;
  SetSessionSystem(system);
  ScriptPage(page_, kNextPage);
  Command(Packet(0x10));
  script_->Write(Packet(0x10), kCommand, kIOUSBTransactionTimeout);
  ASSERT_TRUE(scanner_->StartScan(false));
  EXPECT_EQ(ReadPage(), PageBytes(page_));
  EXPECT_TRUE(scanner_->EndScan());
  ASSERT_TRUE(Eventually([this] { return Status() == 3; }));
  EXPECT_TRUE(scanner_->stopStandBy());
  ExpectClosed();
  script_->Done();
  scanner_->SetJob(Bytes(8, 0));
}

// ---- devices that do not answer

TEST_F(Stop, OfADeviceThatTakesNothingIsStatus3) {
  StartPage();
  script_->Write(Packet(0x50, kJob), kCommand, kIOUSBTransactionTimeout);
  ExpectAbortAtOnce();
  EXPECT_EQ(Status(), 3u);
}

TEST_F(Stop, OfADeviceThatIsUnplugged) {
  StartPage();
  port_.Detach(id_);
  ASSERT_TRUE(Eventually([this] { return Status() == 3; }));
  EXPECT_TRUE(scanner_->EndScan());
  ExpectNothingHeld();
  EXPECT_TRUE(scanner_->Abort());
}

TEST_F(Stop, EndingAPageOfAnUnpluggedDeviceTakesNoTime) {
  StartPage();
  port_.Detach(id_);
  const auto took = Took([this] { EXPECT_TRUE(scanner_->EndScan()); });
  EXPECT_LT(took, 5s);
}

// A hostile device says for ever that its data are not ready: the client's abort ends it.
class EndlessDevice : public Stop {
 protected:
  void Answer(FakeUsbRead data) {
    const FakeUsbRead read = device_.on_read;
    device_.on_read = [read, data = std::move(data)](std::uint32_t size,
                                                     const FakeUsbTransfer& transfer) {
      return size == 28 || size == 128 ? read(size, transfer) : data(size, transfer);
    };
    Plug();
  }
};

TEST_F(EndlessDevice, ThatIsNeverReady) {
  Answer([](std::uint32_t, const FakeUsbTransfer&) {
    return FakeUsbAnswer{kIOReturnSuccess, kPending, false};
  });
  ScriptStart(page_);
  ASSERT_TRUE(scanner_->StartScan(false));
  std::this_thread::sleep_for(20ms);
  Cancel();
  ExpectAbortAtOnce();
}

TEST_F(EndlessDevice, ThatNeverEndsItsPage) {
  Answer([](std::uint32_t size, const FakeUsbTransfer&) {
    return FakeUsbAnswer{kIOReturnSuccess, size == 8 ? Header(100'000) : Bytes(size, 0x55), false};
  });
  ScriptStart(page_);
  ASSERT_TRUE(scanner_->StartScan(false));
  EXPECT_EQ(ReadPage().size(), LineSize() * 8);
  std::this_thread::sleep_for(20ms);
  Cancel();
  ExpectAbortAtOnce();
}

// An abort between two pages reads the next one out, and that has an end too.
class EndlessPage : public EndlessDevice, public testing::WithParamInterface<Bytes> {};

TEST_P(EndlessPage, IsGivenUp) {
  std::atomic<bool> endless{false};
  Answer([this, &endless](std::uint32_t size, const FakeUsbTransfer&) {
    const Bytes last = size == 8 ? kNextPage : PageBytes(page_);
    if (!endless) return FakeUsbAnswer{kIOReturnSuccess, last, false};
    return FakeUsbAnswer{kIOReturnSuccess, size == 8 ? GetParam() : Bytes(size, 0x55), false};
  });
  ScriptStart(page_);
  ASSERT_TRUE(scanner_->StartScan(false));
  EXPECT_EQ(ReadPage(), Bytes(64, 0xFF));
  EXPECT_TRUE(scanner_->EndScan());
  EXPECT_TRUE(scanner_->IsNextPageExist());
  endless = true;
  scanner_->SetAbortDrain(50ms);
  PageRequest();
  Information(InfoFor(page_));
  Cancel();
  const auto took = Took([this] { EXPECT_TRUE(scanner_->Abort()); });
  EXPECT_GE(took, 50ms);
  EXPECT_LT(took, 5s);
  EXPECT_EQ(scanner_->Job(), kJob) << "the page's end did not come";
  ExpectClosed();
  scanner_->SetJob(Bytes(8, 0));
}

INSTANTIATE_TEST_SUITE_P(Table, EndlessPage,
                         testing::Values(kPending, Header(1), Header(0xFFFFFFFF)));

// The end of a page reads the rest of it out, and that has an end as well.
TEST_P(EndlessPage, IsGivenUpAtItsEnd) {
  std::atomic<bool> endless{false};
  Answer([&endless](std::uint32_t size, const FakeUsbTransfer&) {
    if (!endless) return FakeUsbAnswer{kIOReturnSuccess, {}, true};
    return FakeUsbAnswer{kIOReturnSuccess, size == 8 ? GetParam() : Bytes(size, 0x55), false};
  });
  ScriptStart(page_);
  ASSERT_TRUE(scanner_->StartScan(false));
  AwaitScript(0);
  scanner_->SetEndDrain(50ms);
  endless = true;
  const auto took = Took([this] { EXPECT_TRUE(scanner_->EndScan()); });
  EXPECT_GE(took, 50ms);
  EXPECT_LT(took, 5s);
  EXPECT_EQ(Status(), 0u);
  EXPECT_EQ(scanner_->Job(), Bytes(8, 0));
  ExpectClosed();
}

// ---- the destructor

TEST_F(Stop, DeletingARunningPageCancelsItsJob) {
  StartPage();
  Cancel();
  const auto took = Took([this] { scanner_.reset(); });
  EXPECT_LT(took, 5s);
  ExpectNothingHeld();
}

TEST_F(Stop, PageAfterAnAbortIsAWholePage) {
  StartPage();
  Cancel();
  ExpectAbortAtOnce();
  ScriptPage(page_, kLastPage);
  ASSERT_TRUE(scanner_->StartScan(false));
  EXPECT_EQ(ReadPage(), PageBytes(page_));
  scanner_->EndScan();
  EXPECT_EQ(Status(), 0u);
}

TEST_F(Stop, PageStartedOverARunningOneEndsThatOneFirst) {
  StartPage();
  ASSERT_TRUE(Prepare(page_));
  DrainHeader(kLastPage);
  ScriptPage(page_, kLastPage);
  ASSERT_TRUE(scanner_->StartScan(false));
  EXPECT_EQ(ReadPage(), PageBytes(page_));
  scanner_->EndScan();
}

}  // namespace
}  // namespace vox::test
