// Faults of a device at USB: each does what its name says, and the device is usable afterwards.
#include "tests/unit/sim/UsbHost.h"

namespace vox::sim {
namespace {

class UsbFault : public UsbTest {
 protected:
  void ExpectUsableWithoutFaults() {
    device_->SetFaults({});
    Scanner().ClearHalt(UsbPipe::kIn);
    Scanner().ClearHalt(UsbPipe::kOut);
    Scanner().Reset();
    ExpectUsable();
  }
  void ExpectSilence() {
    EXPECT_TRUE(Read(512).empty());
    EXPECT_EQ(status_, UsbStatus::kNothing);
    EXPECT_FALSE(again_);
  }
};

const char kNotReady[] = "00 00 00 00 32 04 00 00";
constexpr std::size_t kStream = 8 + kGreyPage;  // the one header and the one block

TEST_F(UsbFault, AnswersToScanCommands) {
  StartWith("busy=1,no-document=1,scan-reply=0x99");
  for (const std::uint8_t code : {0x47, 0x49, 0x99}) {
    Send(0x41, Block(kGrey));
    EXPECT_EQ(Read(28)[15], code);
  }
  ExpectUsableWithoutFaults();
}

TEST_F(UsbFault, ShortAndLongResponses) {
  StartWith("reply=cut:27");
  Send(0x41, Block(kGrey));
  EXPECT_EQ(Read(512).size(), 27u);
  StartWith("reply=cut:0");
  Send(0x41, Block(kGrey));
  EXPECT_TRUE(Read(512).empty());
  EXPECT_EQ(status_, UsbStatus::kOk) << "an empty packet";
  StartWith("reply=long:600");
  Send(0x41, Block(kGrey));
  EXPECT_EQ(Read(1024).size(), 600u);
  StartWith("reply=twice,replies=1");
  Send(0x41, Block(kGrey));
  EXPECT_EQ(Read(28), Read(28));
}

TEST_F(UsbFault, ShortScanInformation) {
  StartWith("info-cut=127");
  EXPECT_EQ(OpenPage(StartJob()).size(), 127u);
  ExpectSilence();
  EXPECT_EQ(Events().Count(EventKind::kJobLost), 1u);
  ExpectUsableWithoutFaults();
}

TEST_F(UsbFault, SilenceAtEachStage) {
  for (const std::string how : {"silent=", "stall="}) {
    StartWith(how + "scan");
    Send(0x41, Block(kGrey));
    ExpectSilence();
    ExpectUsableWithoutFaults();
    for (const std::string stage : {"request", "info"}) {
      StartWith(how + stage);
      EXPECT_TRUE(OpenPage(StartJob()).empty()) << stage;
      ExpectSilence();
      ExpectUsableWithoutFaults();
    }
    StartWith(how + "end");
    OpenPage(StartJob());
    Read(8);
    EXPECT_EQ(Read(kGreyPage).size(), kGreyPage);
    ExpectSilence();
    ExpectUsableWithoutFaults();
    StartWith(how + "device-info");
    Send(0x22, Le32(0xA206));
    ExpectSilence();
    ExpectUsableWithoutFaults();
  }
}

TEST_F(UsbFault, SilenceAfterSoManyBytesOfThePage) {
  for (const std::size_t bytes : {0u, 3u, 8u, 9u, 1000u, unsigned{kStream}, 99999u}) {
    StartWith("silent=data:" + std::to_string(bytes));
    EXPECT_EQ(OpenPage(StartJob()).size(), 128u);
    Bytes got = Read(8);
    if (got.size() == 8) got = got + Read(kGreyPage);
    EXPECT_EQ(got.size(), std::min<std::size_t>(bytes, kStream));
    ExpectSilence();
    EXPECT_EQ(Send(0x10), UsbStatus::kNothing) << "nothing is taken any more";
    ExpectUsableWithoutFaults();
  }
}

TEST_F(UsbFault, AStalledPageCanBeCancelled) {
  StartWith("stall=data:100,page=1");
  const Bytes job = StartJob();
  OpenPage(job);
  Read(8);
  EXPECT_EQ(Read(kGreyPage).size(), 92u);
  EXPECT_EQ(Send(0x50, job), UsbStatus::kOk);
  ExpectUsable();
}

TEST_F(UsbFault, ASilentDeviceTakesNothing) {
  StartWith("silent");
  EXPECT_EQ(Send(0x41, Block(kGrey)), UsbStatus::kNothing);
  ExpectSilence();
  ExpectUsableWithoutFaults();
}

TEST_F(UsbFault, ThePipeToTheHostStalls) {
  for (const std::string stage : {"data:0", "data:8", "data:1000", "data:99999", "end:5"}) {
    StartWith("page=1,halt-in=" + stage);
    OpenPage(StartJob());
    Bytes got;
    do {
      got = Read(1024);
    } while (status_ == UsbStatus::kOk);
    EXPECT_EQ(status_, UsbStatus::kStall) << stage;
    EXPECT_TRUE(Read(8).empty());
    EXPECT_EQ(status_, UsbStatus::kStall);
    Scanner().ClearHalt(UsbPipe::kIn);
    ExpectUsable();
  }
  for (const std::string stage : {"scan", "device-info"}) {
    StartWith("halt-in=" + stage);
    Send(stage == "scan" ? 0x41 : 0x22, stage == "scan" ? Block(kGrey) : Le32(0xA206));
    Read(28);
    EXPECT_EQ(status_, UsbStatus::kStall);
    ExpectUsableWithoutFaults();
  }
  StartWith("halt-in=info:100");
  EXPECT_EQ(OpenPage(StartJob()).size(), 100u);
  EXPECT_EQ(status_, UsbStatus::kStall);
}

TEST_F(UsbFault, TheBytesBeforeAStallAreThoseOfThePage) {
  StartWith("halt-in=data:1000");
  OpenPage(StartJob());
  EXPECT_EQ(Read(8).size(), 8u);
  EXPECT_EQ(Read(kGreyPage).size(), 992u);
  EXPECT_EQ(status_, UsbStatus::kStall);
}

TEST_F(UsbFault, CommandsStall) {
  StartWith("halt-out=request");
  const Bytes job = StartJob();
  EXPECT_EQ(Send(0x62, job), UsbStatus::kStall);
  EXPECT_EQ(Send(0x10), UsbStatus::kStall) << "until it is cleared";
  Scanner().ClearHalt(UsbPipe::kOut);
  EXPECT_EQ(Send(0x10), UsbStatus::kOk);
  ExpectUsableWithoutFaults();
  StartWith("halt-out=scan:1");
  EXPECT_EQ(Scanner().OnBulkOut(UsbCommand(0x41, Block(kGrey))), UsbStatus::kOk);
  EXPECT_EQ(Scanner().OnBulkOut({}), UsbStatus::kStall);
  ExpectUsableWithoutFaults();
}

TEST_F(UsbFault, UnpluggedAtEachStage) {
  for (const std::string stage : {"scan", "request", "info:64", "data:0", "data:1234", "end"}) {
    StartWith("page=0,unplug=" + stage);
    if (Send(0x41, Block(kGrey)) == UsbStatus::kOk) {
      const Bytes response = Read(28);
      Send(0x62, {response.begin() + 20, response.end()});
      while (!Read(1024).empty() && status_ == UsbStatus::kOk) {
      }
      Read(8);
      EXPECT_EQ(status_, UsbStatus::kGone) << stage;
    }
    EXPECT_FALSE(Scanner().IsPlugged()) << stage;
    EXPECT_EQ(Send(0x10), UsbStatus::kGone);
    EXPECT_EQ(Events().Count(EventKind::kUnplugged), 1u);
    device_->SetFaults({});
    Scanner().Plug();
    ExpectUsable();
  }
}

TEST_F(UsbFault, UnpluggingLosesAJobBetweenItsPages) {
  DeviceOptions options;
  options.sheets = Sheets(2);
  options.reload_feeder = true;
  Start(options);
  OpenPage(StartJob());
  TakePage();
  Scanner().Unplug();
  Scanner().Plug();
  EXPECT_EQ(Events().Count(EventKind::kJobLost), 1u);
  ExpectUsable();
}

TEST_F(UsbFault, NotReadyHeaders) {
  StartWith("pending-first=2,pending=1,not-ready=1");
  OpenPage(StartJob());
  for (int i = 0; i < 3; ++i) EXPECT_EQ(ToHex(Read(8)), kNotReady);
  EXPECT_EQ(ToHex(Read(8)), "00 0A 00 00 32 00 00 00");
  EXPECT_EQ(Read(kGreyPage), Lines(kGrey));
  for (int i = 0; i < 2; ++i) EXPECT_EQ(ToHex(Read(8)), kNotReady);
  EXPECT_EQ(ToHex(Read(8)), "00 00 00 00 32 02 00 00");
}

TEST_F(UsbFault, NotReadyHeadersTakeTheirTime) {
  StartWith("pending-first=2:500");
  OpenPage(StartJob());
  for (int i = 0; i < 2; ++i) {
    EXPECT_TRUE(Read(8).empty());
    EXPECT_EQ(status_, UsbStatus::kNothing);
    ASSERT_TRUE(again_);
    EXPECT_EQ(*again_, now_ + 500ms);
    Pass(499ms);
    EXPECT_TRUE(Read(8).empty());
    Pass(1ms);
    EXPECT_EQ(ToHex(Read(8)), kNotReady);
  }
  EXPECT_EQ(TakePage().data, Lines(kGrey));
}

TEST_F(UsbFault, LateAnswers) {
  StartWith("delay=reply:100,delay=info:200,delay=data:300,delay=end:400");
  const auto expect_after = [&](std::chrono::milliseconds time, std::size_t bytes) {
    EXPECT_TRUE(Read(bytes).empty());
    EXPECT_EQ(status_, UsbStatus::kNothing);
    Pass(time - 1ms);
    EXPECT_TRUE(Read(bytes).empty());
    Pass(1ms);
    const Bytes got = Read(bytes);
    EXPECT_EQ(got.size(), bytes);
    return got;
  };
  Send(0x22, Le32(0xA206));
  expect_after(100ms, 20);
  Send(0x41, Block(kGrey));
  const Bytes response = expect_after(100ms, 28);
  Send(0x62, {response.begin() + 20, response.end()});
  expect_after(200ms, 128);
  expect_after(300ms, 8);
  EXPECT_EQ(Read(kGreyPage).size(), kGreyPage);
  expect_after(400ms, 8);
}

TEST_F(UsbFault, ALatePageCanBeCancelledAtOnce) {
  StartWith("delay=data:60000");
  const Bytes job = StartJob();
  OpenPage(job);
  EXPECT_TRUE(Read(8).empty());
  Send(0x50, job);
  EXPECT_EQ(ToHex(Read(8)), "00 00 00 00 32 02 00 00");
}

TEST_F(UsbFault, ACheckErrorEndsTheJob) {
  DeviceOptions options;
  options.sheets = Sheets(3);
  options.reload_feeder = true;
  options.usb.block_bytes = {1000};
  StartWith("check-error=1500,page=2", options);
  const Bytes job = StartJob();
  OpenPage(job);
  EXPECT_EQ(TakePage().data, Lines(kGrey, 0));
  OpenPage(job);
  const Taken taken = TakePage();
  EXPECT_EQ(taken.data.size(), 2000u) << "the block in which the trouble falls is whole";
  EXPECT_EQ(ToHex(taken.end), "00 00 00 00 32 03 00 00");
  ExpectSilence();
  EXPECT_TRUE(OpenPage(job).empty());
  EXPECT_EQ(Events().Last(EventKind::kJobLost).text, "check error");
  ExpectUsableWithoutFaults();
}

TEST_F(UsbFault, WrongLengths) {
  DeviceOptions options;
  options.usb.block_bytes = {1000};
  StartWith("block-length=0xFFFFFFF8:1", options);
  OpenPage(StartJob());
  EXPECT_EQ(ToHex(Read(8)), "E8 03 00 00 32 00 00 00");
  Read(1000);
  EXPECT_EQ(ToHex(Read(8)), "F8 FF FF FF 32 00 00 00");
  EXPECT_EQ(Read(2000).size(), 1000u) << "as many as ever";
  StartWith("block=cut-header:1", options);
  OpenPage(StartJob());
  Read(8);
  Read(1000);
  EXPECT_EQ(Read(8).size(), 5u);
  ExpectSilence();
  ExpectUsableWithoutFaults();
  StartWith("block=cut-data", options);
  OpenPage(StartJob());
  Read(8);
  EXPECT_EQ(Read(1000).size(), 500u);
  ExpectSilence();
  ExpectUsableWithoutFaults();
  StartWith("end-cut=7");
  OpenPage(StartJob());
  Read(8);
  Read(kGreyPage);
  EXPECT_EQ(Read(8).size(), 7u);
}

TEST_F(UsbFault, AnotherEnd) {
  StartWith("end-code=1");
  OpenPage(StartJob());
  EXPECT_EQ(ToHex(TakePage().end), "00 00 00 00 32 02 01 00");
}

TEST(UsbFaultWords, AreRead) {
  Faults faults;
  EXPECT_EQ(
      ParseFault("unplug=data:7,halt-in=end,halt-out=scan:1,pending=3:20,pending-first=1", faults),
      "");
  EXPECT_EQ(faults.unplug.at, Stage::kData);
  EXPECT_EQ(faults.unplug.after_bytes, 7u);
  EXPECT_EQ(faults.halt_in.at, Stage::kEndNotice);
  EXPECT_EQ(faults.halt_out.after_bytes, 1u);
  EXPECT_EQ(faults.every.headers, 3u);
  EXPECT_EQ(faults.every.pause, 20ms);
  EXPECT_EQ(faults.first.headers, 1u);
  for (const char* words : {"unplug", "unplug=nowhere", "unplug=data:x", "pending", "pending=1:x",
                            "check-error=", "block-length=1:x", "info-bytes=-1"}) {
    EXPECT_NE(ParseFault(words, faults), "") << words;
  }
}

TEST(UsbOptions, ThatMakeNoSenseAreRefused) {
  DeviceOptions packets;
  packets.usb.max_packet = 100;
  EXPECT_NE(UsbDevice(packets).Error(), "");
  DeviceOptions blocks;
  blocks.usb.block_bytes.clear();
  EXPECT_NE(UsbDevice(blocks).Error(), "");
}

}  // namespace
}  // namespace vox::sim
