// A job server that is missing, that is killed in the middle of a page, or that is no friend: the
// scan ends in status 3, within its time-outs, and nothing is left behind.
#include <functional>
#include <future>
#include <random>
#include <string>

#include "tests/e2e/ServerProcess.h"
#include "tests/e2e/Trouble.h"
#include "tests/support/Beats.h"
#include "tests/support/FakeJobServer.h"

namespace vox::test {
namespace {

class JobServerTrouble : public Trouble {
 protected:
  JobServerTrouble() : Trouble(Road::Server::kNone) {}
  void SetUp() override { Device({}); }

  // The script plays the server, and the device behind it, while a scan runs.
  using Script = std::function<void(FakeJobServer&)>;
  Page ScanAgainst(const tagTWSCANPARAM& request, const Script& script) {
    FakeJobServer server;
    auto page = std::async(std::launch::async, [&] { return ScanWhenFree(road, request); });
    script(server);
    return page.get();
  }
  void ExpectNothingStarts(const Script& script) {
    const ShortWaits waits(road);
    const Page page = ScanAgainst(Ask::Grey(), script);
    EXPECT_FALSE(page.started);
    EXPECT_EQ(page.status, IF_ERR_STS_DEVICE_COMM_ERR);
  }
};

TEST_F(JobServerTrouble, WithoutAServerNoCommandIsSent) {
  const Page page = road.Scan(Ask::Grey());
  EXPECT_FALSE(page.started);
  EXPECT_EQ(page.status, IF_ERR_STS_DEVICE_COMM_ERR);
  EXPECT_EQ(road.Events().Count(EventKind::kScanCommand), 0u);
}

TEST_F(JobServerTrouble, AServerThatComesBackIsFound) {
  EXPECT_FALSE(road.Scan(Ask::Grey()).started);
  ASSERT_TRUE(road.StartServer());
  EXPECT_TRUE(SameLines(road.Scan(Ask::Grey()).lines, road.Expected(Ask::Grey())));
}

TEST_F(JobServerTrouble, AServerKilledInMidPageEndsThePage) {
  for (const unsigned bits : {1u, 8u}) {
    ServerProcess server;
    road.PointDevicesAt(server.DevicePort());
    sim::Faults slow;
    slow.silence = {.at = sim::Stage::kData, .after_bytes = 500, .whole_device = false};
    road.FirstDevice().SetFaults(slow);
    const std::size_t faults = road.Events().Count(EventKind::kFault);
    ASSERT_TRUE(road.Scanner().Start(Ask::Depth(bits)));
    ASSERT_TRUE(road.Events().WaitFor(EventKind::kFault, faults + 1, 5s));
    server.Kill();
    const Beats beats;
    const Page page = road.Scanner().Finish();
    EXPECT_EQ(page.status, IF_ERR_STS_DEVICE_COMM_ERR);
    EXPECT_LT(beats.Elapsed(), 500ms);
    road.FirstDevice().SetFaults({});
  }
}

TEST_F(JobServerTrouble, ARefusedRegistrationStartsNothing) {
  ExpectNothingStarts([](FakeJobServer& server) { server.TakeChannel(1).peer.AwaitEnd(); });
  EXPECT_EQ(road.Events().Count(EventKind::kPageRequest), 0u);
}

TEST_F(JobServerTrouble, ClosedDoorsStartNothing) {
  ExpectNothingStarts([](FakeJobServer& server) { server.AwaitChannel(); });
  ExpectNothingStarts([](FakeJobServer& server) { server.AwaitChannel().peer.Reset(); });
  ExpectNothingStarts([](FakeJobServer& server) { server.TakeChannel(); });
  ExpectNothingStarts([](FakeJobServer& server) { server.TakeChannel().peer.Reset(); });
  ExpectNothingStarts([](FakeJobServer& server) {
    FakeChannel data = server.TakeChannel();
    data.peer.Send(data.Notice(0x80));
  });
}

TEST_F(JobServerTrouble, SilenceStartsNothing) {
  ExpectNothingStarts([](FakeJobServer& server) { server.AwaitChannel().peer.AwaitEnd(); });
  ExpectNothingStarts([](FakeJobServer& server) { server.TakeChannel().peer.AwaitEnd(); });
  ExpectNothingStarts([](FakeJobServer& server) {
    FakeChannel data = server.TakeChannel();
    data.peer.Send(data.Notice(0x80));
    EXPECT_EQ(data.peer.Receive(1), Bytes{0x01});
    data.peer.AwaitEnd();
  });
}

// The second registration is the end channel's.
TEST_F(JobServerTrouble, ARefusedEndChannelStartsNothing) {
  ExpectNothingStarts([](FakeJobServer& server) {
    FakeChannel data = server.TakeChannel();
    EXPECT_TRUE(data.OpenPage(_SCANINFO{}));
    server.TakeChannel(7).peer.AwaitEnd();
  });
}

TEST_F(JobServerTrouble, AFloodIsNoPage) {
  ExpectNothingStarts([](FakeJobServer& server) {
    FakeChannel data = server.TakeChannel();
    while (data.peer.Send(Bytes(8192, 0x55))) {
    }
  });
}

// Random scan information, then random data until the scan has enough. Three quarters of the rounds
// come far enough to start a page: a small window, a known type.
TEST_F(JobServerTrouble, NoiseEndsInTimeWhateverItSays) {
  const ShortWaits waits(road, 100ms);  // no round has to succeed
  std::mt19937 random(20240229);
  const tagTWSCANPARAM request = Ask::Colour().Dpi(75).Frame(0, 0, 0.5F, 0.5F);
  for (int round = 0; round < 60; ++round) {
    SCOPED_TRACE(round);
    Bytes block(sim::kScanInfoSize), noise(4096);
    for (auto* bytes : {&block, &noise}) {
      for (auto& byte : *bytes) byte = static_cast<std::uint8_t>(random());
    }
    if (round % 4 != 0) {
      for (std::size_t at = 0; at < 36; ++at) block[at] = at % 4 == 0 ? block[at] : 0;
      block[0] = static_cast<std::uint8_t>(random() % 2 + 2);
      block[114] = round % 2 == 0 ? 0 : 8;
    }
    const Page page = ScanAgainst(request, [&](FakeJobServer& server) {
      FakeChannel data = server.TakeChannel();
      data.peer.Send(data.Notice(0x80));
      if (data.peer.Receive(1) != Bytes{0x01}) return;
      data.peer.Send(block);
      FakeChannel end = server.TakeChannel();
      for (int i = 0; i < 100 && data.peer.Send(noise); ++i) {
      }
      data.peer.Close();
      end.EndPage(block[1]);
    });
    EXPECT_LE(page.lines.size(), request.dwImageLength);
  }
}

}  // namespace
}  // namespace vox::test
