// Faults of the channels: each does what its name says, and the device is usable afterwards.
#include <gtest/gtest.h>

#include "tests/unit/sim/ScriptedHost.h"

namespace vox::sim {
namespace {

class ChannelFaults : public DeviceTest {
 protected:
  // A device with these faults and a job on it. Blocks of 10 lines, so that a page has four.
  void StartWith(const char* words, std::uint32_t type = kGrey) {
    DeviceOptions options;
    options.coding.lines_per_block = 10;
    ASSERT_EQ(ParseFault(words, options.faults), "") << words;
    ASSERT_NO_FATAL_FAILURE(DeviceTest::Start(std::move(options)));
    job_ = host_->StartJob(SmallRequest(type));
  }
  bool IsDeaf() {
    host_->Send(Packet(99, 0x32, 0x7E, {}));
    return host_->Receive(kMoment).empty();
  }
  // The device has been put in order: a page can be had.
  void ExpectUsable() {
    device_->SetFaults({});
    host_->Cancel(job_);
    const Bytes job = host_->StartJob(SmallRequest(), 500);
    EXPECT_EQ(host_->TakePage(job, 501).end_code, 0xA0);
  }
  Bytes job_;
};

TEST_F(ChannelFaults, SilenceAtThePageRequest) {
  StartWith("silent=request");
  host_->RequestPage(job_, 1);
  EXPECT_FALSE(host_->Accept(kMoment));
  EXPECT_TRUE(IsDeaf());
  ExpectUsable();
}

TEST_F(ChannelFaults, SilenceAtTheStartNotice) {
  StartWith("silent=start");
  host_->RequestPage(job_, 1);
  Connection data = host_->Accept();
  EXPECT_TRUE(data.IsSilent());
  EXPECT_TRUE(IsDeaf());
  ExpectUsable();
}

TEST_F(ChannelFaults, SilenceInsteadOfScanInformation) {
  StartWith("silent=info");
  host_->RequestPage(job_, 1);
  Connection data = host_->Accept();
  EXPECT_EQ(data.Read(28).size(), 28u);
  data.Write(0x01);
  EXPECT_TRUE(data.IsSilent());
  EXPECT_TRUE(IsDeaf());
  ExpectUsable();
}

TEST_F(ChannelFaults, SilenceAfterSoManyBytes) {
  for (const std::size_t bytes : {0u, 1u, 1000u, 2560u, 99999u}) {
    StartWith(("silent=data:" + std::to_string(bytes)).c_str());
    Connection data = host_->OpenPage(job_, 1);
    const std::size_t expected = std::min<std::size_t>(bytes, 64 * 40);
    EXPECT_EQ(data.Read(expected).size(), expected);
    EXPECT_TRUE(data.IsSilent()) << bytes;
    EXPECT_TRUE(IsDeaf());
    ExpectUsable();
  }
}

TEST_F(ChannelFaults, AStalledPageStillAnswersCommands) {
  StartWith("stall=data:100");
  Connection data = host_->OpenPage(job_, 1);
  EXPECT_EQ(data.Read(100).size(), 100u);
  EXPECT_TRUE(data.IsSilent());
  EXPECT_EQ(host_->Cancel(job_)[15], 0x53);
  EXPECT_TRUE(data.Read(1).empty());
  EXPECT_FALSE(data.IsSilent()) << "a cancelled page's channel is closed";
}

TEST_F(ChannelFaults, SilenceBeforeTheEndChannel) {
  StartWith("silent=end-connect");
  host_->OpenPage(job_, 1).ReadToEnd();
  EXPECT_FALSE(host_->Accept(kMoment));
  EXPECT_TRUE(IsDeaf());
  ExpectUsable();
}

TEST_F(ChannelFaults, SilenceOnTheEndChannel) {
  StartWith("silent=end");
  host_->OpenPage(job_, 1).ReadToEnd();
  Connection end = host_->Accept();
  EXPECT_TRUE(end.IsSilent());
  EXPECT_TRUE(IsDeaf());
  ExpectUsable();
}

TEST_F(ChannelFaults, ASilentDeviceSeesTheHostGo) {
  StartWith("silent=info");
  host_->RequestPage(job_, 1);
  {
    Connection data = host_->Accept();
    data.Read(28);
    data.Write(0x01);
    EXPECT_TRUE(data.IsSilent());
  }
  EXPECT_TRUE(device_->Events().WaitFor(EventKind::kJobLost, 1, kPatience));
}

TEST_F(ChannelFaults, NoticesAndScanInformationCutShort) {
  StartWith("start-cut=27");
  host_->RequestPage(job_, 1);
  EXPECT_EQ(host_->Accept().ReadToEnd().size(), 27u);
  StartWith("info-cut=127");
  host_->RequestPage(job_, 1);
  Connection data = host_->Accept();
  data.Read(28);
  data.Write(0x01);
  EXPECT_EQ(data.ReadToEnd().size(), 127u);
  StartWith("end-cut=15");
  host_->OpenPage(job_, 1).ReadToEnd();
  EXPECT_EQ(host_->Accept().ReadToEnd().size(), 15u);
  ExpectUsable();
}

TEST_F(ChannelFaults, ASpoiltStartNotice) {
  StartWith("bad-start");
  host_->RequestPage(job_, 1);
  Connection data = host_->Accept();
  EXPECT_NE(Hex(data.Read(28)), Hex(Notice(1, 0x80, job_)));
}

TEST_F(ChannelFaults, AnEndNoticeInTwoPieces) {
  StartWith("end-split=10");
  host_->OpenPage(job_, 1).ReadToEnd();
  EXPECT_EQ(host_->TakeEnd(job_, 1), 0xA0);
}

TEST_F(ChannelFaults, NotFinishedYetSoManyTimes) {
  StartWith("not-ready=2");
  host_->OpenPage(job_, 1).ReadToEnd();
  EXPECT_EQ(host_->TakeEnd(job_, 1), 0xF0);
  EXPECT_EQ(host_->TakeEnd(job_, 1), 0xF0);
  EXPECT_EQ(host_->TakeEnd(job_, 1), 0xA0);
  EXPECT_TRUE(device_->Events().WaitFor(EventKind::kJobEnded, 1, kPatience));
}

TEST_F(ChannelFaults, AnotherEndCode) {
  StartWith("end-code=0x55");
  host_->OpenPage(job_, 1).ReadToEnd();
  EXPECT_EQ(host_->TakeEnd(job_, 1), 0x55);
}

TEST_F(ChannelFaults, TheChannelCloses_AfterSoManyBytes) {
  for (const std::size_t bytes : {0u, 1u, 2460u}) {
    StartWith(("close-after=" + std::to_string(bytes)).c_str());
    bool ended = false;
    EXPECT_EQ(host_->OpenPage(job_, 1).ReadToEnd(&ended).size(), bytes);
    EXPECT_TRUE(ended);
    EXPECT_EQ(host_->TakeEnd(job_, 1), 0xA0);
  }
}

TEST_F(ChannelFaults, TheChannelIsReset) {
  StartWith("close-after=100,reset");
  bool ended = true;
  EXPECT_LE(host_->OpenPage(job_, 1).ReadToEnd(&ended).size(), 100u);
  EXPECT_FALSE(ended);
}

TEST_F(ChannelFaults, DelaysHoldTheirStageBack) {
  for (const char* where : {"connect", "start", "info", "data", "end-connect", "end"}) {
    StartWith(("delay=" + std::string(where) + ":60").c_str());
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(host_->TakePage(job_, 1).end_code, 0xA0);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 60ms) << where;
  }
}

TEST_F(ChannelFaults, OneBlockIsSpoilt) {
  StartWith("block=width:2", kBilevel);
  const Bytes data = host_->OpenPage(job_, 1).ReadToEnd();
  std::vector<unsigned> widths;
  for (std::size_t at = 0; at + 8 <= data.size();) {
    widths.push_back(data[at] | data[at + 1] << 8);
    at += 8 + (data[at + 4] | data[at + 5] << 8);
  }
  EXPECT_EQ(widths, (std::vector<unsigned>{64, 64, 72, 64}));
}

TEST_F(ChannelFaults, ABlockCutShortClosesTheChannel) {
  StartWith("block=cut-header", kBilevel);
  EXPECT_EQ(host_->OpenPage(job_, 1).ReadToEnd().size(), 5u);
  EXPECT_EQ(host_->TakeEnd(job_, 1), 0xA0);
}

TEST_F(ChannelFaults, ABlockFaultLeavesRawPagesAlone) {
  StartWith("block=cut-header", kGrey);
  EXPECT_EQ(host_->OpenPage(job_, 1).ReadToEnd().size(), 64u * 40);
}

TEST_F(ChannelFaults, OnlyThePageThatWasMeant) {
  StartWith("page=2,close-after=10");
  EXPECT_EQ(host_->TakePage(job_, 1).data.size(), 64u * 40);
  ASSERT_TRUE(device_->Events().WaitFor(EventKind::kJobEnded, 1, kPatience));
  EXPECT_EQ(host_->TakePage(host_->StartJob(SmallRequest(kGrey), 2), 2).data.size(), 10u);
}

TEST(ParseFault, ReadsEveryWord) {
  Faults faults;
  EXPECT_EQ(
      ParseFault("stall=data:5000,delay=reply:3500,busy=2,no-document,scan-reply=0x99", faults),
      "");
  EXPECT_EQ(faults.silence.at, Stage::kData);
  EXPECT_EQ(faults.silence.after_bytes, 5000u);
  EXPECT_FALSE(faults.silence.whole_device);
  EXPECT_EQ(faults.delays.reply, 3500ms);
  EXPECT_EQ(faults.busy, 2u);
  EXPECT_EQ(faults.no_document, Faults::kEveryTime);
  EXPECT_EQ(faults.scan_reply, 0x99);
  EXPECT_EQ(ParseFault("reply=cut:22,replies=3,page=2,block=garbage:7,not-ready=2", faults), "");
  EXPECT_EQ(faults.reply, ReplyFault::kCut);
  EXPECT_EQ(faults.reply_bytes, 22u);
  EXPECT_EQ(faults.replies, 3u);
  EXPECT_EQ(faults.page, 2u);
  EXPECT_EQ(faults.block, BlockFault::kGarbage);
  EXPECT_EQ(faults.block_index, 7u);
  EXPECT_EQ(faults.end_not_ready, 2u);
  EXPECT_EQ(faults.busy, 2u) << "earlier words stand";
}

TEST(ParseFault, RefusesWhatMakesNoSense) {
  for (const char* words : {"",
                            "nothing",
                            "silent=",
                            "silent=midnight",
                            "silent=scan:5",
                            "silent=data:x",
                            "delay=reply",
                            "delay=tea:5",
                            "delay=reply:-1",
                            "busy=x",
                            "busy=4294967296",
                            "scan-reply",
                            "scan-reply=256",
                            "reply=soon",
                            "reply=twice:3",
                            "reply=long:9999",
                            "block=width:",
                            "block=width:x",
                            "reset=1",
                            "end-split=ten",
                            "busy,",
                            "close-after=-1",
                            "register-reply=:2"}) {
    Faults faults;
    const std::string error = ParseFault(words, faults);
    if (std::string(words) == "silent=" || std::string(words) == "block=width:") {
      EXPECT_EQ(error, "") << words << " leaves the usual value";
      continue;
    }
    EXPECT_NE(error, "") << words;
    EXPECT_EQ(faults.busy, 0u) << "a refused text changes nothing: " << words;
  }
}

}  // namespace
}  // namespace vox::sim
