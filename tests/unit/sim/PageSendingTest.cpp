// Whole pages, from the page request to the answer on the end channel.
#include <gtest/gtest.h>

#include <thread>

#include "sim/Render.h"
#include "tests/unit/sim/ScriptedHost.h"

namespace vox::sim {
namespace {

class Pages : public DeviceTest {
 protected:
  static DeviceOptions Feeder(std::uint32_t sheets, std::uint32_t backs = 0) {
    DeviceOptions options;
    options.duplex = backs > 0 ? 2 : 0;
    for (std::uint32_t i = 0; i < sheets; ++i) {
      Sheet sheet{MakeTestChart({85000, 117000}, 2 * i + 1), nullptr};
      if (i < backs) sheet.back = MakeTestChart({85000, 117000}, 2 * i + 2);
      options.sheets.push_back(std::move(sheet));
    }
    return options;
  }
  // A request whose window holds the chart's number.
  static ScanInfo HeadRequest(std::uint32_t type = kGrey) {
    ScanInfo request = SmallRequest(type);
    request.x_extent = 848;
    request.y_extent = 100;
    return request;
  }
};

TEST_F(Pages, ARawPageIsExactlyWhatIsForetold) {
  Start();
  for (const std::uint32_t type : {kGrey, kColour}) {
    const ScanInfo request = HeadRequest(type);
    const Bytes job = host_->StartJob(request, static_cast<std::uint16_t>(type));
    const auto page = host_->TakePage(job, 0xABCD);
    EXPECT_EQ(page.info, device_->PageInfo(request, 0));
    EXPECT_EQ(page.data, device_->PageLines(request, 0));
    EXPECT_EQ(page.end_code, 0xA0);
    EXPECT_TRUE(device_->Events().WaitFor(EventKind::kJobEnded, type - 1, kPatience));
  }
  EXPECT_EQ(device_->Events().Last(EventKind::kPageSent).count,
            device_->PageLines(HeadRequest(kColour), 0).size());
}

TEST_F(Pages, AJbigPageDecodesToWhatIsForetold) {
  DeviceOptions options;
  options.left_cut_margin = 5;
  options.coding.lines_per_block = 32;
  Start(options);
  const ScanInfo request = HeadRequest(kBilevel);
  const auto page = host_->TakePage(host_->StartJob(request), 3);
  EXPECT_EQ(page.info.encode_header_size, 8);
  EXPECT_EQ(page.info.left_cut_margin, 5u);
  const Blocks blocks = DecodeBlocks(page.data, page.info, ImageHeader::kInData);
  EXPECT_EQ(blocks.headers.size(), 4u);
  EXPECT_EQ(blocks.lines, device_->PageLines(request, 0));
}

TEST_F(Pages, NothingFollowsTheNoticeUntilTheHostHasAnswered) {
  Start();
  const Bytes job = host_->StartJob(SmallRequest());
  host_->RequestPage(job, 3);
  Connection data = host_->Accept();
  EXPECT_EQ(Hex(data.Read(28)), Hex(Notice(3, 0x80, job)));
  EXPECT_TRUE(data.IsSilent());
  data.Write(0x01);
  EXPECT_EQ(data.Read(128).size(), 128u);
}

TEST_F(Pages, TheDataChannelIsClosedBeforeTheEndChannelOpens) {
  Start();
  const Bytes job = host_->StartJob(SmallRequest());
  Connection data = host_->OpenPage(job, 3);
  bool ended = false;
  data.ReadToEnd(&ended);
  EXPECT_TRUE(ended);
  EXPECT_EQ(host_->TakeEnd(job, 3), 0xA0);
}

TEST_F(Pages, AFeederSendsPageAfterPageOfOneJob) {
  Start(Feeder(3));
  const ScanInfo request = HeadRequest();
  const Bytes job = host_->StartJob(request);
  EXPECT_EQ(device_->PagesOf(request), 3u);
  for (std::uint16_t page = 0; page < 3; ++page) {
    EXPECT_EQ(device_->SheetsLeft(), 3u - page);
    const auto taken = host_->TakePage(job, static_cast<std::uint16_t>(100 + page));
    EXPECT_EQ(taken.info.feeder, 1u);
    EXPECT_EQ(taken.data, device_->PageLines(request, page)) << page;
    EXPECT_EQ(taken.end_code, page < 2 ? 0x90 : 0xA0);
  }
  EXPECT_NE(device_->PageLines(request, 0), device_->PageLines(request, 1));
  EXPECT_TRUE(device_->Events().WaitFor(EventKind::kJobEnded, 1, kPatience));
  EXPECT_EQ(device_->SheetsLeft(), 0u);
}

TEST_F(Pages, AnEmptiedFeederLeavesTheGlass) {
  Start(Feeder(1));
  host_->TakePage(host_->StartJob(HeadRequest(), 1), 1);
  ASSERT_TRUE(device_->Events().WaitFor(EventKind::kJobEnded, 1, kPatience));
  EXPECT_EQ(host_->TakePage(host_->StartJob(HeadRequest(), 2), 2).info.feeder, 0u);
}

TEST_F(Pages, SheetsComeBackWhenAsked) {
  DeviceOptions options = Feeder(1);
  options.reload_feeder = true;
  Start(options);
  for (std::uint16_t job = 1; job <= 2; ++job) {
    EXPECT_EQ(host_->TakePage(host_->StartJob(HeadRequest(), job), job).info.feeder, 1u);
    ASSERT_TRUE(device_->Events().WaitFor(EventKind::kJobEnded, job, kPatience));
  }
}

TEST_F(Pages, DuplexSendsTheBackTurned) {
  Start(Feeder(1, 1));
  ScanInfo request = HeadRequest(kBilevel);
  request.unit_mode = 0x302;
  const Bytes job = host_->StartJob(request);
  const auto front = host_->TakePage(job, 1);
  EXPECT_EQ(front.info.angle, 0u);
  EXPECT_EQ(front.end_code, 0x90);
  const auto back = host_->TakePage(job, 2);
  EXPECT_EQ(back.info.angle, 180u);
  EXPECT_EQ(back.end_code, 0xA0);
  Bytes lines = DecodeBlocks(back.data, back.info, ImageHeader::kInData).lines;
  EXPECT_EQ(lines, device_->PageLines(request, 1));
  // Turned once more it is the back as it lies.
  TurnLine(kBilevel, lines);
  ScanInfo upright = back.info;
  upright.angle = 0;
  EXPECT_EQ(lines, RenderPage(MakeTestChart({85000, 117000}, 2), upright, {}));
}

TEST_F(Pages, CancelInTheMiddleOfAPageEndsItAtOnce) {
  Start();
  ScanInfo request = device_->WholeBed(600, kColour);
  const Bytes job = host_->StartJob(request);
  Connection data = host_->OpenPage(job, 1);
  EXPECT_EQ(data.Read(100000).size(), 100000u);
  EXPECT_EQ(host_->Cancel(job)[15], 0x53);
  bool ended = false;
  EXPECT_LT(data.ReadToEnd(&ended).size(), 107000000u);
  EXPECT_FALSE(host_->Accept(kMoment)) << "no end channel for a cancelled page";
  EXPECT_EQ(host_->TakePage(host_->StartJob(SmallRequest(), 2), 2).end_code, 0xA0);
}

TEST_F(Pages, AnotherPageRequestInTheMiddleOfAPageMovesTheFeederOn) {
  Start(Feeder(2));
  ScanInfo request = device_->WholeBed(600, kColour);
  const Bytes job = host_->StartJob(request);
  Connection first = host_->OpenPage(job, 1);
  EXPECT_EQ(first.Read(1000).size(), 1000u);
  Connection second = host_->OpenPage(job, 2);
  first.ReadToEnd();
  EXPECT_EQ(second.Read(1000).size(), 1000u);
  EXPECT_EQ(device_->SheetsLeft(), 0u);
  EXPECT_EQ(host_->Cancel(job)[15], 0x53);
}

TEST_F(Pages, TheSamePageRequestTwiceIsOnePage) {
  Start();
  const Bytes job = host_->StartJob(SmallRequest());
  host_->RequestPage(job, 1);
  Connection data = host_->OpenPage(job, 1);
  EXPECT_FALSE(data.ReadToEnd().empty());
  EXPECT_EQ(host_->TakeEnd(job, 1), 0xA0);
  EXPECT_EQ(device_->Events().Count(EventKind::kDataChannel), 1u);
}

TEST_F(Pages, AHostThatHasEnoughOfAPageStillGetsTheEndNotice) {
  Start();
  const Bytes job = host_->StartJob(device_->WholeBed(600, kColour));
  Connection data = host_->OpenPage(job, 1);
  EXPECT_EQ(data.Read(100000).size(), 100000u);
  data.Close();
  EXPECT_EQ(host_->TakeEnd(job, 1), 0xA0);
  EXPECT_EQ(device_->Events().Count(EventKind::kDataChannelLost), 1u);
}

TEST_F(Pages, AHostThatIsNotThereLosesTheJob) {
  Start();
  const Bytes job = host_->StartJob(SmallRequest());
  device_->SetJobServerPort(1);
  host_->RequestPage(job, 1);
  EXPECT_TRUE(device_->Events().WaitFor(EventKind::kJobLost, 1, kPatience));
  EXPECT_EQ(host_->Cancel(job)[15], 0x53);
}

TEST_F(Pages, AnEndNoticeThatIsRefusedLosesTheJob) {
  Start();
  const Bytes job = host_->StartJob(SmallRequest());
  host_->OpenPage(job, 1).ReadToEnd();
  host_->Accept().Close();
  EXPECT_TRUE(device_->Events().WaitFor(EventKind::kJobLost, 1, kPatience));
}

TEST_F(Pages, LinesBelowTheBedAreNotSent) {
  Start();
  ScanInfo request = SmallRequest(kGrey);
  request.y_pos = 1160;
  const auto page = host_->TakePage(host_->StartJob(request), 1);
  EXPECT_EQ(page.info.y_extent, 40u);
  EXPECT_EQ(page.data.size(), 10u * 64);
}

TEST_F(Pages, AnEmptyWindowIsAPageWithoutData) {
  Start();
  ScanInfo request = SmallRequest();
  request.y_extent = 0;
  const auto page = host_->TakePage(host_->StartJob(request), 1);
  EXPECT_TRUE(page.data.empty());
}

TEST_F(Pages, ScanInformationMayBeEditedOnItsWay) {
  DeviceOptions options;
  options.edit_scan_info = [](std::uint32_t page, ScanInfo& info) { info.y_extent = 7000 + page; };
  Start(options);
  const auto page = host_->TakePage(host_->StartJob(SmallRequest(kGrey)), 1);
  EXPECT_EQ(page.info.y_extent, 7001u);
  EXPECT_EQ(page.data.size(), 64u * 40);
}

TEST_F(Pages, APreparedPageIsTheSamePage) {
  DeviceOptions options;
  options.cache_bytes = 1 << 20;
  Start(options);
  const ScanInfo request = HeadRequest(kBilevel);
  EXPECT_TRUE(device_->Prepare(request));
  const auto page = host_->TakePage(host_->StartJob(request), 1);
  EXPECT_EQ(DecodeBlocks(page.data, page.info, ImageHeader::kInData).lines,
            device_->PageLines(request, 0));
}

TEST_F(Pages, ConnectionsComeFromTheDevicesOwnAddress) {
  DeviceOptions options;
  options.address = "127.0.0.77";
  Start(options);
  const Bytes job = host_->StartJob(SmallRequest());
  EXPECT_EQ(host_->LastSender(), "127.0.0.77");
  host_->RequestPage(job, 1);
  EXPECT_EQ(host_->Accept().PeerAddress(), "127.0.0.77");
}

TEST_F(Pages, SeveralDevicesScanAtOnce) {
  const auto scan = [](const char* address) {
    DeviceOptions options;
    options.address = address;
    VirtualDevice device(options);
    ASSERT_TRUE(device.Start()) << device.Error();
    ScriptedHost host(device);
    for (std::uint16_t i = 1; i <= 3; ++i) {
      const ScanInfo request = HeadRequest(kBilevel);
      const auto page = host.TakePage(host.StartJob(request, i), i);
      EXPECT_EQ(DecodeBlocks(page.data, page.info, ImageHeader::kInData).lines,
                device.PageLines(request, 0));
      ASSERT_TRUE(device.Events().WaitFor(EventKind::kJobEnded, i, kPatience));
    }
  };
  std::vector<std::thread> scans;
  for (const char* address : {"127.0.0.1", "127.0.0.2", "127.0.0.1"})
    scans.emplace_back(scan, address);
  for (std::thread& thread : scans) thread.join();
}

TEST_F(Pages, StopEndsAPageThatIsOnItsWay) {
  Start();
  const Bytes job = host_->StartJob(device_->WholeBed(600, kColour));
  Connection data = host_->OpenPage(job, 1);
  EXPECT_EQ(data.Read(1000).size(), 1000u);
  const auto begin = std::chrono::steady_clock::now();
  device_->Stop();
  EXPECT_LT(std::chrono::steady_clock::now() - begin, 2s);  // a time-out would take minutes
  device_->Stop();
}

}  // namespace
}  // namespace vox::sim
