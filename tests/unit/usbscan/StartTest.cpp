// Starting a page: the commands byte for byte, each answer of the device, and that whatever fails
// leaves the device closed.
#include "tests/support/TraceLog.h"
#include "tests/unit/usbscan/UsbScanTest.h"

namespace vox::test {
namespace {

class Start : public UsbScanTest {
 protected:
  void ExpectFails(std::uint32_t status) {
    EXPECT_FALSE(scanner_->StartScan(false));
    EXPECT_EQ(Status(), status);
    ExpectClosed();
    script_->Done();
    scanner_->SetJob(Bytes(8, 0));  // so that nothing is cancelled when the test ends
  }
  const PageShape page_ = Bilevel(64, 8);
};

TEST_F(Start, ScanCommandIsTheRequestInTheWiresOrder) {
  ASSERT_TRUE(Prepare(page_));
  const Bytes packet = Packet(0x41, WireOf(scanner_->scan_info));
  ASSERT_EQ(packet.size(), 148u);
  EXPECT_EQ(packet[16], 0x80);
  EXPECT_EQ(ToHex(&packet[20 + 12], 8), "2C 01 00 00 2C 01 00 00") << "300 dpi";
  EXPECT_EQ(ToHex(&packet[20 + 28], 8), "40 00 00 00 08 00 00 00") << "64 x 8";
  EXPECT_EQ(ToHex(&packet[20 + 48], 4), "00 00 00 00") << "no encoding is asked for";
}

TEST_F(Start, AsksForAPageOfANewJob) {
  ScriptPage(page_, kLastPage);
  ASSERT_TRUE(scanner_->StartScan(true));
  EXPECT_EQ(ReadPage(), PageBytes(page_));
  EXPECT_TRUE(scanner_->EndScan());
  EXPECT_EQ(scanner_->Job(), Bytes(8, 0));
  ExpectClosed();
}

TEST_F(Start, TakesTheInformationOfTheDevice) {
  ASSERT_TRUE(Prepare(page_));
  _SCANINFO told = InfoFor(page_);
  told.Window.yExtent = 5;
  told.dwLeftCutMargin = 3;
  ScanCommand();
  Accepted();
  PageRequest();
  Information(told);
  script_->SilentRead(kHeader);
  ASSERT_TRUE(scanner_->StartScan(false));
  EXPECT_EQ(scanner_->scan_info.Window.yExtent, 5u);
  EXPECT_EQ(scanner_->scan_info.dwLeftCutMargin, 3u);
  ASSERT_TRUE(Eventually([this] { return script_->Left() == 0; }));
  Cancel();
  scanner_->Abort();
}

TEST_F(Start, OfAFurtherPageSendsNoScanCommand) {
  scanner_->multipage = 1;
  scanner_->SetJob(kJob);
  ScriptPage(page_, kLastPage, false);
  ASSERT_TRUE(scanner_->StartScan(false));
  EXPECT_EQ(ReadPage(), PageBytes(page_));
  scanner_->EndScan();
}

struct AnswerRow {
  std::uint8_t code;
  std::uint32_t status;
};
class RefusedStart : public Start, public testing::WithParamInterface<AnswerRow> {};

TEST_P(RefusedStart, HasTheStatusOfTheAnswer) {
  ASSERT_TRUE(Prepare(page_));
  ScanCommand();
  script_->Read(Response(GetParam().code), kCommand, 28);
  ExpectFails(GetParam().status);
  EXPECT_EQ(scanner_->Job(), Bytes(8, 0));
}

INSTANTIATE_TEST_SUITE_P(Table, RefusedStart,
                         testing::Values(AnswerRow{'G', 4}, AnswerRow{'I', 8}, AnswerRow{'A', 5},
                                         AnswerRow{0, 5}, AnswerRow{0x53, 5}));

TEST_F(Start, WithoutAnAnswerIsStatus3) {
  ASSERT_TRUE(Prepare(page_));
  ScanCommand();
  script_->FailRead(kIOUSBTransactionTimeout, kCommand);
  ExpectFails(3);
}

TEST_F(Start, AnAnswerThatIsCutIsStatus3) {
  ASSERT_TRUE(Prepare(page_));
  ScanCommand();
  script_->Read(Response('C', Bytes(7, 1)), kCommand, 28);
  ExpectFails(3);
}

TEST_F(Start, TheJobIdIsKeptByteForByte) {
  const Bytes job = Hex("00 FF 80 7F 01 00 00 00");
  ASSERT_TRUE(Prepare(page_));
  ScanCommand();
  script_->Read(Response('C', job), kCommand, 28);
  Command(Packet(0x62, job));
  script_->FailRead(kIOReturnError, kCommand);
  ExpectFails(5);
}

TEST_F(Start, AScanCommandThatCannotBeSentIsStatus3AndSaysFailure) {
  const TraceLog log;
  ASSERT_TRUE(Prepare(page_));
  script_->Write(Packet(0x41, WireOf(scanner_->scan_info)), kCommand, kIOReturnNotResponding);
  ExpectFails(3);
  EXPECT_THAT(log.Lines(), testing::Contains("FAILURE\n"));
}

TEST_F(Start, AZeroLengthPacketThatCannotBeSentIsStatus3) {
  ASSERT_TRUE(Prepare(page_));
  script_->Write(Packet(0x41, WireOf(scanner_->scan_info)), kCommand)
      .Write(kNull, kPortsOwn, kIOUSBTransactionTimeout);
  ExpectFails(3);
}

TEST_F(Start, APageRequestThatCannotBeSentIsStatus3) {
  ASSERT_TRUE(Prepare(page_));
  ScanCommand();
  Accepted();
  script_->Write(Packet(0x62, kJob), kCommand, kIOReturnNotResponding);
  ExpectFails(3);
}

TEST_F(Start, AJobWhosePageDidNotComeStaysKnownAndIsCancelledByAnAbort) {
  ASSERT_TRUE(Prepare(page_));
  ScanCommand();
  Accepted();
  PageRequest();
  script_->FailRead(kIOUSBTransactionTimeout, kCommand);
  EXPECT_FALSE(scanner_->StartScan(false));
  EXPECT_EQ(Status(), 5u);
  ExpectClosed();
  EXPECT_EQ(scanner_->Job(), kJob);
  Cancel();
  scanner_->Abort();
  EXPECT_EQ(scanner_->GetJobId().dwJobNo, 0u);
  ExpectClosed();
}

struct ResolutionRow {
  std::uint32_t dpi;
  bool good;
};
class Resolution : public Start, public testing::WithParamInterface<ResolutionRow> {};

TEST_P(Resolution, LiesBetween75And19200) {
  Opened();
  _SCANINFO info = InfoFor(page_);
  info.Xresolution = GetParam().dpi;
  info.Yresolution = 1;
  Information(info);
  EXPECT_EQ(scanner_->ReadScanParameter(), GetParam().good);
  EXPECT_EQ(Status(), GetParam().good ? 0u : 5u);
}

INSTANTIATE_TEST_SUITE_P(Table, Resolution,
                         testing::Values(ResolutionRow{74, false}, ResolutionRow{75, true},
                                         ResolutionRow{19'200, true}, ResolutionRow{19'201, false},
                                         ResolutionRow{0, false},
                                         ResolutionRow{0xFFFFFFFF, false}));

TEST_F(Start, InformationThatIsCutIsStatus5) {
  Opened();
  const Bytes info = WireOf(InfoFor(page_));
  script_->Read(Bytes(info.begin(), info.end() - 1), kCommand, 128);
  EXPECT_FALSE(scanner_->ReadScanParameter());
  EXPECT_EQ(Status(), 5u);
}

// A status that stands would make a client that asks again and again ask for ever.
TEST_F(Start, WithAStatusFromBeforeAsksOnceAndFails) {
  for (const unsigned status : {1u, 2u, 3u, 4u, 5u, 7u, 8u}) {
    Plug();
    ASSERT_TRUE(Prepare(page_));
    scanner_->SetIfErrorStatus(status);
    ScanCommand();
    Accepted();
    ExpectFails(status);
  }
}

TEST_F(Start, OfADeviceThatIsGoneIsStatus3) {
  ASSERT_TRUE(Prepare(page_));
  port_.Detach(id_);
  ExpectFails(3);
}

TEST_F(Start, OfAnUnknownModelIsStatus1) {
  scanner_ = std::make_unique<UsbScanner>("Nobody's Scanner");
  ExpectFails(1);
}

TEST_F(Start, DropsWhatThePageBeforeLeft) {
  Opened();
  PageHeader(Header(8));
  Block(Bytes(8, 0xAA));
  PageHeader(Header(99));
  ReadLine(4);
  ScriptPage(page_, kLastPage);
  ASSERT_TRUE(scanner_->StartScan(false));
  EXPECT_EQ(ReadPage(), PageBytes(page_)) << "neither the bytes nor the header read ahead";
  scanner_->EndScan();
}

TEST_F(Start, WhenThePagesThreadsCannotRunReadLineSaysSo) {
  ScriptStart(page_);
  SessionSystem system = CurrentSessionSystem();
  system.start_thread = [](pthread_t*, void* (*)(void*), void*) { return EAGAIN; };
  SetSessionSystem(system);
  EXPECT_TRUE(scanner_->StartScan(false)) << "the device has begun to send";
  ExpectClosed();
  Bytes line(LineSize());
  EXPECT_EQ(scanner_->ReadLine(line.data()), 1);
  EXPECT_EQ(Status(), 1u);
  EXPECT_TRUE(scanner_->EndScan());
  Cancel();
  scanner_->Abort();
}

TEST_F(Start, OnThePagesOwnThreadIsStatus1AndAsksNothing) {
  std::atomic<bool> asked{false}, started{true};
  Moment over;
  scanner_->before_line = [&] {
    if (!asked.exchange(true)) started = scanner_->StartScan(false);
    over.Reach();
  };
  ScriptStart(page_);
  ASSERT_TRUE(scanner_->StartScan(false));
  ASSERT_TRUE(over.AwaitReached());
  PageHeader(kLastPage);
  over.Let();
  EXPECT_EQ(ReadPage(), Bytes());
  scanner_->EndScan();
  EXPECT_FALSE(started);
  EXPECT_EQ(Status(), 1u);
  ExpectClosed();
  script_->Done();
}

class Standby : public UsbScanTest {};

TEST_F(Standby, IsThisPacket) {
  EXPECT_EQ(ToHex(Packet(0x10)), "4D 46 50 50 30 32 30 30 4D 4C 30 31 00 00 32 10 00 00 00 00");
  const TraceLog log;
  Command(Packet(0x10));
  EXPECT_TRUE(scanner_->SendCmdStandby());
  ExpectClosed();
  EXPECT_THAT(log.Lines(),
              testing::Contains(testing::MatchesRegex("SendCmdStandby:[0-9]+: start\n")));
}

TEST_F(Standby, ThatCannotBeSentIsStatus3) {
  script_->Write(Packet(0x10), kCommand, kIOUSBTransactionTimeout);
  EXPECT_FALSE(scanner_->SendCmdStandby());
  EXPECT_EQ(Status(), 3u);
  ExpectClosed();
}

TEST_F(Standby, OfADeviceThatIsGoneIsStatus3) {
  port_.Detach(id_);
  EXPECT_FALSE(scanner_->SendCmdStandby());
  EXPECT_EQ(Status(), 3u) << "the first one stays";
}

TEST_F(Standby, OfAnUnknownModelIsStatus1) {
  scanner_ = std::make_unique<UsbScanner>("Nobody's Scanner");
  EXPECT_FALSE(scanner_->SendCmdStandby());
  EXPECT_EQ(Status(), 1u);
}

TEST_F(Standby, CanBeSentAfterAnAbort) {
  scanner_->Abort();
  Command(Packet(0x10));
  EXPECT_TRUE(scanner_->SendCmdStandby());
}

}  // namespace
}  // namespace vox::test
