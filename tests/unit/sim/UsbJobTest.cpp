// Jobs of a device at USB: the packets of a page in their order, blocks of every size, several
// pages, cancelling.
#include <algorithm>

#include "tests/unit/sim/UsbHost.h"

namespace vox::sim {
namespace {

class UsbJob : public UsbTest {
 protected:
  void ExpectNothing() {
    EXPECT_TRUE(Read(512).empty());
    EXPECT_EQ(status_, UsbStatus::kNothing);
  }
};

const char kEnd[] = "00 00 00 00 32 02 00 00";
const char kMore[] = "00 00 00 00 32 02 01 00";

TEST_F(UsbJob, TheResponseCarriesTheJobId) {
  Start();
  EXPECT_EQ(Send(0x41, Block(kGrey)), UsbStatus::kOk);
  EXPECT_EQ(ToHex(Read(28)), std::string(kPrefix) + "43 08 00 00 00 7F 00 00 01 00 00 00 01");
  ExpectNothing();
}

TEST_F(UsbJob, ThePageRequestIsAnsweredByTheBlock) {
  Start();
  EXPECT_EQ(ToHex(OpenPage(StartJob(kColour))), ToHex(Block(kColour)));
}

TEST_F(UsbJob, TheBlockSaysWhatTheDeviceMadeOfTheRequest) {
  DeviceOptions options;
  options.flatbed->x_resolution_min = 200;
  options.left_cut_margin = 3;
  Start(options);
  const Bytes block = OpenPage(StartJob(kBilevel));
  ASSERT_EQ(block.size(), 128u);
  const auto word = [&](std::size_t at) { return ToHex(&block[at], 4); };
  EXPECT_EQ(word(12), "C8 00 00 00");  // 200 dpi across
  EXPECT_EQ(word(28), "88 00 00 00");  // 128 pixels, 3 and 5 of margin
  EXPECT_EQ(word(100), "03 00 00 00");
  EXPECT_EQ(word(104), "05 00 00 00");
  EXPECT_EQ(block[114], 0);  // raw lines: the host did not ask for another coding
}

TEST_F(UsbJob, OnePageIsOneBlockAndAHeaderThatEndsIt) {
  Start();
  OpenPage(StartJob());
  EXPECT_EQ(ToHex(Read(8)), "00 0A 00 00 32 00 00 00");
  EXPECT_EQ(Read(kGreyPage), Lines(kGrey));
  EXPECT_EQ(ToHex(Read(8)), kEnd);
  ExpectNothing();
  EXPECT_EQ(Events().Count(EventKind::kJobEnded), 1u);
  EXPECT_EQ(Events().Last(EventKind::kPageSent).count, kGreyPage);
  ExpectUsable();
}

TEST_F(UsbJob, EveryKindOfLines) {
  Start();
  for (const std::uint32_t type : {kBilevel, kGrey, kColour}) {
    OpenPage(StartJob(type));
    const Taken taken = TakePage();
    EXPECT_EQ(taken.data, Lines(type)) << type;
    EXPECT_GT(std::count(taken.data.begin(), taken.data.end(), 0), 0);
  }
}

TEST_F(UsbJob, BlocksOfEverySize) {
  for (const std::uint32_t size : {1u, 7u, 63u, 64u, 65u, 511u, 512u, 513u, 2559u, 2560u, 2561u}) {
    DeviceOptions options;
    options.usb.block_bytes = {size};
    Start(options);
    OpenPage(StartJob());
    const Taken taken = TakePage();
    EXPECT_EQ(taken.data, Lines(kGrey)) << size;
    ASSERT_EQ(taken.sizes.size(), (kGreyPage + size - 1) / size);
    EXPECT_EQ(taken.sizes.front(), std::min<std::size_t>(size, kGreyPage));
    EXPECT_EQ(taken.sizes.back(), (kGreyPage - 1) % size + 1);
    EXPECT_EQ(ToHex(taken.end), kEnd);
  }
}

TEST_F(UsbJob, BlocksOfSizesInTurn) {
  DeviceOptions options;
  options.usb.block_bytes = {1000, 1, 0};
  Start(options);
  OpenPage(StartJob());
  const Taken taken = TakePage();
  EXPECT_EQ(taken.sizes, (std::vector<std::uint32_t>{1000, 1, kGreyPage - 1001}));
  EXPECT_EQ(taken.data, Lines(kGrey));
}

std::vector<std::uint32_t> Sizes(std::size_t count, std::uint32_t size, std::uint32_t last) {
  std::vector<std::uint32_t> sizes(count, size);
  sizes.push_back(last);
  return sizes;
}

TEST_F(UsbJob, NoBlockIsLargerThanTheHostTakes) {
  Start();
  Bytes request = Block(kGrey);
  request[96] = 100;
  EXPECT_EQ(Send(0x41, request), UsbStatus::kOk);
  const Bytes response = Read(28);
  OpenPage({response.begin() + 20, response.end()});
  const Taken taken = TakePage();
  EXPECT_EQ(taken.sizes, Sizes(25, 100, 60));
}

TEST_F(UsbJob, PacketsOfAHeaderAndOfItsBlockAreTheirOwn) {
  Start();
  OpenPage(StartJob());
  EXPECT_EQ(Read(512).size(), 8u);
  EXPECT_EQ(Read(512).size(), 512u);
}

TEST_F(UsbJob, ABlockMayFollowItsHeaderInThePacket) {
  DeviceOptions options;
  options.usb.joined_headers = true;
  options.usb.block_bytes = {1000};
  Start(options);
  OpenPage(StartJob());
  const Bytes first = Read(2048);
  EXPECT_EQ(first.size(), 1008u);
  const Bytes lines = Lines(kGrey);
  EXPECT_TRUE(std::equal(first.begin() + 8, first.end(), lines.begin()));
  EXPECT_EQ(Read(2048).size(), 1008u);
  EXPECT_EQ(Read(2048).size(), 568u);
  EXPECT_EQ(ToHex(Read(2048)), kEnd);
}

TEST_F(UsbJob, ATransferWithTooLittleRoomLosesTheEndOfItsPacket) {
  DeviceOptions options;
  options.usb.joined_headers = true;
  Start(options);
  OpenPage(StartJob());
  EXPECT_EQ(Read(8).size(), 8u);
  EXPECT_EQ(status_, UsbStatus::kOverflow);
  const Bytes lines = Lines(kGrey);
  const Bytes next = Read(512);
  EXPECT_TRUE(std::equal(next.begin(), next.end(), lines.begin() + 504));
}

TEST_F(UsbJob, LinesBelowTheBedAreNotSent) {
  DeviceOptions options;
  options.flatbed->physical_height = 3000;
  Start(options);
  OpenPage(StartJob());
  EXPECT_EQ(TakePage().data.size(), 30u * 64);
}

TEST_F(UsbJob, AFeederSaysThatAnotherPageFollows) {
  DeviceOptions options;
  options.sheets = Sheets(3);
  Start(options);
  const Bytes job = StartJob();
  for (std::size_t page = 0; page < 3; ++page) {
    EXPECT_EQ(OpenPage(job)[80], 1);  // from the feeder
    const Taken taken = TakePage();
    EXPECT_EQ(taken.data, Lines(kGrey, page));
    EXPECT_EQ(ToHex(taken.end), page < 2 ? kMore : kEnd);
    EXPECT_EQ(device_->SheetsLeft(), 2 - page);
  }
  EXPECT_TRUE(Lines(kGrey, 0) != Lines(kGrey, 1) && Lines(kGrey, 1) != Lines(kGrey, 2));
  EXPECT_TRUE(OpenPage(job).empty()) << "the job is over";
}

TEST_F(UsbJob, BothSidesOfASheet) {
  DeviceOptions options;
  options.sheets = Sheets(1, true);
  options.duplex = 2;
  Start(options);
  Bytes request = Block(kGrey);
  request[40] = 2;
  request[41] = 3;
  EXPECT_EQ(Send(0x41, request), UsbStatus::kOk);
  const Bytes response = Read(28);
  const Bytes job(response.begin() + 20, response.end());
  const Forecast forecast = device_->Foretell();
  for (std::size_t page = 0; page < 2; ++page) {
    EXPECT_EQ(OpenPage(job)[108], page == 0 ? 0 : 180);
    const Taken taken = TakePage();
    EXPECT_EQ(taken.data, forecast.PageLines(*ParseScanInfo(request), page));
    EXPECT_EQ(taken.data[0], page == 0 ? 37 : static_cast<std::uint8_t>(2559 * 7 + 101 * 37));
    EXPECT_EQ(ToHex(taken.end), page == 0 ? kMore : kEnd);
  }
}

TEST_F(UsbJob, OneJobAtATime) {
  DeviceOptions options;
  options.sheets = Sheets(2);
  Start(options);
  const Bytes job = StartJob();
  EXPECT_EQ(Send(0x41, Block(kGrey)), UsbStatus::kOk);
  EXPECT_EQ(ToHex(Read(28)), std::string(kPrefix) + "47 08 00 00 00 00 00 00 00 00 00 00 00");
  OpenPage(job);
  TakePage();
  EXPECT_EQ(Send(0x41, Block(kGrey)), UsbStatus::kOk);
  EXPECT_EQ(Read(28)[15], 0x47) << "between the pages too";
  EXPECT_EQ(OpenPage(job).size(), 128u);
}

TEST_F(UsbJob, NoDocument) {
  DeviceOptions options;
  options.empty_glass = true;
  Start(options);
  EXPECT_EQ(Send(0x41, Block(kGrey)), UsbStatus::kOk);
  EXPECT_EQ(ToHex(Read(28)), std::string(kPrefix) + "49 08 00 00 00 00 00 00 00 00 00 00 00");
}

TEST_F(UsbJob, AnImpossibleRequestIsRefused) {
  Start();
  EXPECT_EQ(Send(0x41, Block(9)), UsbStatus::kOk);
  EXPECT_EQ(Read(28)[15], 0x45);
  EXPECT_EQ(Send(0x41, Bytes(100)), UsbStatus::kOk);
  EXPECT_EQ(Read(28)[15], 0x45);
}

TEST_F(UsbJob, NobodysPageDoesNotCome) {
  Start();
  Bytes job = StartJob();
  job[7] ^= 1;
  EXPECT_TRUE(OpenPage(job).empty());
  EXPECT_TRUE(OpenPage({}).empty());
}

TEST_F(UsbJob, APageRequestWithinAPageIsIgnored) {
  DeviceOptions options;
  options.sheets = Sheets(2);
  Start(options);
  const Bytes job = StartJob();
  OpenPage(job);
  Send(0x62, job);
  EXPECT_EQ(TakePage().data, Lines(kGrey, 0));
  ExpectNothing();
  OpenPage(job);
  EXPECT_EQ(TakePage().data, Lines(kGrey, 1));
}

TEST_F(UsbJob, StandbyIsNotAnswered) {
  Start();
  EXPECT_EQ(Send(0x10), UsbStatus::kOk);
  ExpectNothing();
  EXPECT_EQ(Events().Count(EventKind::kStandby), 1u);
}

TEST_F(UsbJob, CancelledBeforeItsPageItIsOver) {
  Start();
  const Bytes job = StartJob();
  EXPECT_EQ(Send(0x50, job), UsbStatus::kOk);
  EXPECT_TRUE(OpenPage(job).empty());
  EXPECT_EQ(Events().Count(EventKind::kJobCancelled), 1u);
  ExpectUsable();
}

TEST_F(UsbJob, CancelledRightAfterThePageRequestThePageIsEmpty) {
  Start();
  const Bytes job = StartJob();
  Send(0x62, job);
  Send(0x50, job);
  EXPECT_EQ(Read(128).size(), 128u);
  EXPECT_EQ(ToHex(Read(8)), kEnd);
  ExpectNothing();
  ExpectUsable();
}

TEST_F(UsbJob, CancelledWithinABlockTheBlockIsFinished) {
  DeviceOptions options;
  options.usb.block_bytes = {1536};
  options.sheets = Sheets(2);
  options.reload_feeder = true;
  for (const std::size_t taken : {0u, 512u, 1024u, 1536u}) {
    Start(options);
    const Bytes job = StartJob();
    OpenPage(job);
    EXPECT_EQ(ToHex(Read(8)), "00 06 00 00 32 00 00 00");
    Bytes data = taken == 0 ? Bytes{} : Read(taken);
    Send(0x50, job);
    if (taken < 1536) data = data + Read(1536 - taken);
    const Bytes lines = Lines(kGrey);
    EXPECT_TRUE(std::equal(data.begin(), data.end(), lines.begin(), lines.begin() + 1536));
    EXPECT_EQ(ToHex(Read(8)), kEnd) << "no page follows";
    ExpectNothing();
    ExpectUsable();
  }
}

TEST_F(UsbJob, CancelledBetweenPagesNothingComes) {
  DeviceOptions options;
  options.sheets = Sheets(2);
  Start(options);
  const Bytes job = StartJob();
  OpenPage(job);
  TakePage();
  Send(0x50, job);
  ExpectNothing();
  EXPECT_TRUE(OpenPage(job).empty());
}

TEST_F(UsbJob, WhatIsLeftOfACancelledPageStandsBeforeTheNextResponse) {
  Start();
  const Bytes job = StartJob();
  OpenPage(job);
  Read(8);
  Send(0x50, job);
  Send(0x41, Block(kGrey));
  EXPECT_EQ(Read(kGreyPage).size(), kGreyPage);
  EXPECT_EQ(ToHex(Read(8)), kEnd);
  EXPECT_EQ(Read(28)[15], 0x43);
}

TEST_F(UsbJob, OnlyItsOwnIdCancelsIt) {
  Start();
  const Bytes job = StartJob();
  OpenPage(job);
  Bytes other = job;
  other[4] ^= 1;
  Send(0x50, other);
  Send(0x51, job);  // a code that it does not know
  EXPECT_EQ(TakePage().data, Lines(kGrey));
}

TEST_F(UsbJob, ClearingThePipeGivesThePageUp) {
  Start();
  OpenPage(StartJob());
  Read(8);
  Read(512);
  Scanner().ClearHalt(UsbPipe::kIn);
  EXPECT_EQ(Events().Last(EventKind::kHaltCleared).count, kGreyPage - 512);
  ExpectNothing();
  ExpectUsable();
}

TEST_F(UsbJob, ClearingAPipeOnWhichNothingGoesChangesNothing) {
  DeviceOptions options;
  options.sheets = Sheets(2);
  Start(options);
  const Bytes job = StartJob();
  OpenPage(job);
  TakePage();
  Scanner().ClearHalt(UsbPipe::kIn);
  Scanner().ClearHalt(UsbPipe::kOut);
  EXPECT_EQ(Events().Last(EventKind::kHaltCleared).count, 0u);
  OpenPage(job);
  EXPECT_EQ(TakePage().data, Lines(kGrey, 1));
}

TEST_F(UsbJob, AHostThatReadsNothingForTooLongLosesItsPage) {
  Start();
  OpenPage(StartJob());
  Read(8);
  Pass(301s);
  Send(0x41, Block(kGrey));
  EXPECT_EQ(Read(28)[15], 0x43);
}

TEST_F(UsbJob, AResetEndsEverything) {
  Start();
  StartJob();
  Scanner().Reset();
  ExpectUsable();
}

}  // namespace
}  // namespace vox::sim
