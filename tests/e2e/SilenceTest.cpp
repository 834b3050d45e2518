// A device that falls silent at any moment: Abort comes back within half a second, and without one
// the scan ends by itself with status 3.
#include <chrono>
#include <future>
#include <ostream>
#include <string>
#include <vector>

#include "tests/e2e/Trouble.h"
#include "tests/support/Beats.h"

namespace vox::test {
namespace {

using sim::Stage;

constexpr std::chrono::milliseconds kCancelTime{500};  // a cancel is back within it

struct Moment {
  const char* name;
  Stage at;
  std::uint64_t after_bytes = 0;  // of page data
  unsigned bits = 1;
  bool whole_device = false;
  bool starts = false;  // StartScan succeeds first
};

std::ostream& operator<<(std::ostream& out, const Moment& moment) {
  return out << moment.name;
}

constexpr Moment kMoments[] = {
    {.name = "ScanCommand", .at = Stage::kScanCommand},
    {.name = "PageRequest", .at = Stage::kPageRequest},
    {.name = "StartNotice", .at = Stage::kStartNotice},
    {.name = "ScanInfo", .at = Stage::kScanInfo},
    {.name = "FirstHeader", .at = Stage::kData, .starts = true},
    {.name = "MidHeader", .at = Stage::kData, .after_bytes = 5, .starts = true},
    {.name = "MidBlock", .at = Stage::kData, .after_bytes = 40, .starts = true},
    {.name = "FirstRawLine", .at = Stage::kData, .bits = 8, .starts = true},
    {.name = "MidRawLine", .at = Stage::kData, .after_bytes = 1000, .bits = 8, .starts = true},
    {.name = "EndConnect", .at = Stage::kEndConnect, .starts = true},
    {.name = "EndNotice", .at = Stage::kEndNotice, .starts = true},
    {.name = "PageRequestAndDead", .at = Stage::kPageRequest, .whole_device = true},
    {.name = "ScanInfoAndDead", .at = Stage::kScanInfo, .whole_device = true},
    {.name = "MidBlockAndDead",
     .at = Stage::kData,
     .after_bytes = 40,
     .whole_device = true,
     .starts = true},
    {.name = "EndNoticeAndDead", .at = Stage::kEndNotice, .whole_device = true, .starts = true},
};

class SilentAt : public Trouble, public testing::WithParamInterface<Moment> {
 protected:
  void SetUp() override {
    Device({});
    road.Scanner();
    const auto& [name, at, after_bytes, bits, whole_device, starts] = GetParam();
    road.FirstDevice().SetFaults({.silence = {at, after_bytes, whole_device}});
  }
  // A command that is not answered is no event of its own.
  bool AwaitSilence() {
    const bool at_command = GetParam().at == Stage::kScanCommand;
    return road.Events().WaitFor(at_command ? EventKind::kScanCommand : EventKind::kFault, 1, 5s);
  }

  const Ask request_ = Ask::Depth(GetParam().bits);
};

TEST_P(SilentAt, AbortReturnsWithinHalfASecond) {
  auto scan = std::async(std::launch::async, [&] { return road.Scan(request_); });
  ASSERT_TRUE(AwaitSilence());
  const Beats beats;
  road.Scanner().Interface().Abort();
  EXPECT_LT(beats.Elapsed(), kCancelTime);
  EXPECT_FALSE(scan.get().more);
  EXPECT_LT(beats.Elapsed(), kCancelTime) << "until the scan had ended too";
  ExpectGoodScan();
}

TEST_P(SilentAt, TheScanEndsByItselfWithACommunicationError) {
  const Page page = ScanWithShortWaits(road, request_);
  EXPECT_EQ(page.started, GetParam().starts);
  EXPECT_EQ(page.status, IF_ERR_STS_DEVICE_COMM_ERR);
  EXPECT_FALSE(page.more);
  if (GetParam().at == Stage::kEndConnect || GetParam().at == Stage::kEndNotice) {
    EXPECT_TRUE(SameLines(page.lines, road.Expected(request_)));
  }
  ExpectGoodScan();
}

std::string MomentName(const testing::TestParamInfo<Moment>& info) {
  return info.param.name;
}
INSTANTIATE_TEST_SUITE_P(Moments, SilentAt, testing::ValuesIn(kMoments), MomentName);

class SilentPage : public SilentAt {};

TEST_P(SilentPage, DeletingTheInterfaceEndsTheScan) {
  ASSERT_TRUE(road.Scanner().Start(request_));
  ASSERT_TRUE(AwaitSilence());
  const Beats beats;
  road.Scanner().Drop();
  EXPECT_LT(beats.Elapsed(), kCancelTime);
}

std::vector<Moment> MomentsOfAPage() {
  std::vector<Moment> moments;
  for (const Moment& moment : kMoments) {
    if (moment.starts) moments.push_back(moment);
  }
  return moments;
}
INSTANTIATE_TEST_SUITE_P(Moments, SilentPage, testing::ValuesIn(MomentsOfAPage()), MomentName);

class SilentDevice : public Trouble {};

TEST_F(SilentDevice, ThatNeverAnswersHasNoCapabilitiesAndStartsNoScan) {
  const ShortWaits waits(road);
  sim::DeviceOptions options = Options();
  options.faults.silence = {.at = Stage::kAlways};
  road.Device(options);
  const auto client = road.NewClient();
  EXPECT_FALSE(client->KnowsDevice());
  const Page page = client->Scan(Ask::Grey());
  EXPECT_FALSE(page.started);
  EXPECT_EQ(page.status, IF_ERR_STS_DEVICE_COMM_ERR);
}

// A device that does not answer the cancel command keeps nobody waiting either.
TEST_F(SilentDevice, ToTheCancelCommandIsLeftBehind) {
  sim::DeviceOptions options = Options();
  options.faults.silence = {.at = Stage::kCancel};
  options.faults.delays.data = 50ms;
  options.coding.lines_per_block = 8;
  road.Device(options);
  ASSERT_TRUE(road.Scanner().Start(Ask::Lineart()));
  ASSERT_TRUE(road.Scanner().ReadLine());
  const Beats beats;
  road.Scanner().Interface().Abort();
  EXPECT_LT(beats.Elapsed(), kCancelTime);
}

// The abort finds no job yet; the one that the answer names is cancelled all the same.
TEST_F(SilentDevice, ThatIsAboutToAcceptAJobIsToldThatItIsOver) {
  Device({.delays = {.reply = 100ms}});
  road.SetWaits({.nCancel = 5'000});  // the answer may come late on a busy machine
  road.Scanner();
  auto scan = std::async(std::launch::async, [&] { return road.Scan(Ask::Grey()); });
  ASSERT_TRUE(road.Events().WaitFor(EventKind::kJobStarted, 1, 5s));
  const Beats beats;
  road.Scanner().Interface().Abort();
  const Page page = scan.get();
  EXPECT_LT(beats.Elapsed(), kCancelTime);
  EXPECT_FALSE(page.started);
  EXPECT_EQ(page.status, 0u);
  EXPECT_TRUE(road.Events().WaitFor(EventKind::kJobCancelled, 1, 5s));
  ExpectGoodScan();
}

TEST_F(SilentDevice, ForAWhileIsWaitedFor) {
  sim::DeviceOptions options = Options();
  for (auto* delay : {&options.faults.delays.reply, &options.faults.delays.connect,
                      &options.faults.delays.start_notice, &options.faults.delays.scan_info,
                      &options.faults.delays.data, &options.faults.delays.end_connect,
                      &options.faults.delays.end_notice}) {
    *delay = 30ms;
  }
  road.Device(options);
  for (const unsigned bits : {1u, 8u}) {
    const Page page = road.Scan(Ask::Depth(bits));
    EXPECT_EQ(page.status, 0u);
    EXPECT_TRUE(SameLines(page.lines, road.Expected(Ask::Depth(bits))));
  }
}

}  // namespace
}  // namespace vox::test
