// Scans that are started and aborted at random moments over the whole road, a thousand times from
// one client thread and a thousand times from two, beside storms of other kinds. Afterwards a scan
// is as good as ever.
#include <atomic>
#include <chrono>
#include <random>
#include <thread>
#include <vector>

#include "tests/e2e/Trouble.h"

namespace vox::test {
namespace {

constexpr int kCycles = 250;                 // of a storm
constexpr unsigned kSeeds[] = {1, 2, 3, 4};  // four storms make a thousand, which may run at once

class Storm : public Trouble {
 protected:
  void SetUp() override {
    sim::DeviceOptions options = Options();
    options.coding.lines_per_block = 16;
    options.feeder = options.flatbed;
    options.duplex = 2;
    options.sheets = {{.front = sim::MakeTestChart({15000, 10000}, 1), .back = nullptr},
                      {.front = sim::MakeTestChart({15000, 10000}, 2), .back = nullptr}};
    options.reload_feeder = true;
    options.cache_bytes = 64u << 20;
    road.Device(options);
    MeasurePage();
    road.SetWaits({.nFirstData = 1000, .nData = 200, .nRegistration = 200, .nCancel = 200});
  }

  static Ask RandomAsk(std::mt19937& random) {
    constexpr unsigned kDepths[] = {1, 8, 24};
    constexpr float kDpi[] = {75, 150, 150, 300};
    return Ask::Depth(kDepths[random() % 3])
        .Dpi(kDpi[random() % 4])
        .Frame(0, 0, 1, 0.5F)
        .Duplex(static_cast<std::uint32_t>(random() % 3));
  }
  // Somewhere within the time that so many pages take on this machine, in this build.
  std::chrono::microseconds RandomMoment(std::mt19937& random, unsigned pages) const {
    return std::chrono::microseconds(random() % (pages * page_time_.count() + 1));
  }
  void MeasurePage() {
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(road.Scan(Ask::Grey().Frame(0, 0, 1, 0.5F)).status, 0u);
    page_time_ = std::chrono::duration_cast<std::chrono::microseconds>(
        std::chrono::steady_clock::now() - start);
    road.Scanner().Interface().Abort();
  }

  // A page of the storm: started, read for a while, ended in one of the ways that clients have.
  void Weather(Client& client, std::mt19937& random) {
    const tagTWSCANPARAM request = RandomAsk(random);
    const bool started = client.Start(request);
    if (started) ++started_;
    for (auto lines = random() % 80; started && lines > 0 && client.ReadLine(); --lines) {
    }
    switch (random() % 5) {
      case 0:
        client.Interface().EndScan();
        break;
      case 1:
        client.Finish();
        client.Interface().stopStandBy();
        break;
      case 2:
        client.Interface().EjectADF();
        break;
      default:
        client.Interface().Abort();
    }
  }

  // The storm was one, and it is over: no job was forgotten on the device.
  void ExpectGoodScan() {
    constexpr std::chrono::seconds kBusyAtMost{5};  // a job forgotten in mid-page lasts for 10 s
    EXPECT_GE(started_, kCycles / 5);
    road.SetWaits({});
    road.Scanner().Interface().Abort();
    const Ask ask = Ask::Lineart().Frame(0, 0, 1, 1);
    const auto start = std::chrono::steady_clock::now();
    std::vector<Page> pages;
    do {
      pages = road.ScanJob(ask);
    } while (pages[0].status == IF_ERR_STS_DEVICE_BUSY &&
             std::chrono::steady_clock::now() - start < kBusyAtMost);
    ASSERT_EQ(pages.size(), 2u) << pages[0].status;
    for (std::size_t i = 0; i < pages.size(); ++i) {
      EXPECT_TRUE(SameLines(pages[i].lines, road.Expected(ask, i)));
    }
  }

  std::chrono::microseconds page_time_{0};
  std::atomic<int> started_{0};
};

class StormOfMany : public Storm, public testing::WithParamInterface<unsigned> {};

TEST_P(StormOfMany, FromOneThread) {
  std::mt19937 random(GetParam());
  for (int cycle = 0; cycle < kCycles; ++cycle) Weather(road.Scanner(), random);
  ExpectGoodScan();
}

TEST_P(StormOfMany, WithAbortsFromASecondThread) {
  std::mt19937 random(10 + GetParam()), other_random(20 + GetParam());
  CTwImgIFNW& interface = road.Scanner().Interface();
  std::atomic<bool> over{false};
  std::thread aborter([&] {
    while (!over) {
      std::this_thread::sleep_for(RandomMoment(other_random, 3));
      interface.Abort();
    }
  });
  for (int cycle = 0; cycle < kCycles; ++cycle) Weather(road.Scanner(), random);
  over = true;
  aborter.join();
  ExpectGoodScan();
}

INSTANTIATE_TEST_SUITE_P(Seeds, StormOfMany, testing::ValuesIn(kSeeds));

// An interface that is deleted tells the device nothing; its job ends when nobody meets the device
// at the job server any more.
TEST_F(Storm, OfInterfacesThatAreDeletedAtRandomMoments) {
  JobServerTimes times;
  times.meeting = 100ms;
  ASSERT_TRUE(road.StartServer(times));
  std::mt19937 random(4);
  for (int cycle = 0; cycle < kCycles / 5; ++cycle) {
    const auto client = road.NewClient();
    ASSERT_TRUE(client->KnowsDevice());
    const Ask ask = RandomAsk(random);
    ASSERT_TRUE(Eventually([&] {
      client->Start(ask);
      return client->Interface().GetIfErrorStatus() != IF_ERR_STS_DEVICE_BUSY;
    }));
    for (auto lines = random() % 40; lines > 0 && client->ReadLine(); --lines) {
    }
    std::this_thread::sleep_for(RandomMoment(random, 1));
    ++started_;
  }
  ASSERT_TRUE(road.StartServer());
  ExpectGoodScan();
}

TEST_F(Storm, OfTwoInterfacesAtOnce) {
  const auto other = road.NewClient();
  const auto weather = [&](Client& client, unsigned seed) {
    std::mt19937 random(seed);
    for (int cycle = 0; cycle < kCycles / 2; ++cycle) Weather(client, random);
  };
  std::thread beside([&] { weather(*other, 5); });
  weather(road.Scanner(), 6);
  beside.join();
  other->Interface().Abort();
  ExpectGoodScan();
}

}  // namespace
}  // namespace vox::test
