// Replies to commands that come late, twice, cut, too long or from somebody else; strangers at the
// job server; and two clients that scan at the same time.
#include <future>
#include <memory>
#include <thread>
#include <vector>

#include "tests/e2e/Trouble.h"
#include "tests/support/FakeJobServer.h"
#include "tests/support/SmallDevice.h"
#include "tests/support/TcpPeer.h"

namespace vox::test {
namespace {

using sim::ReplyFault;

class Replies : public Trouble {
 protected:
  void ExpectScan(const Faults& faults, bool works) {
    Device(faults);
    road.Scanner();
    // Where the scan works, so do its channels.
    const Page page = ScanWithShortWaits(road, Ask::Grey(), works ? 3s : ShortWaits::kChannels);
    EXPECT_EQ(page.started, works);
    EXPECT_EQ(page.status, works ? 0u : IF_ERR_STS_DEVICE_COMM_ERR);
    ExpectGoodScan();
  }
};

TEST_F(Replies, ThatComeTwiceCountOnce) {
  ExpectScan({.reply = ReplyFault::kTwice}, true);
}

TEST_F(Replies, OfAnotherSequenceAreNoReplies) {
  ExpectScan({.reply = ReplyFault::kWrongSequence}, false);
}

TEST_F(Replies, OfAnotherSequenceOnceAreAskedForAgain) {
  ExpectScan({.reply = ReplyFault::kWrongSequence, .replies = 1}, true);
}

TEST_F(Replies, OfAStrangerOnceDoNotEndTheScan) {
  ExpectScan({.reply = ReplyFault::kStranger, .replies = 1}, true);
}

TEST_F(Replies, OfAStrangerEveryTimeEndIt) {
  ExpectScan({.reply = ReplyFault::kStranger}, false);
}

TEST_F(Replies, FromAnotherAddressWithTheRightSequenceAreTaken) {
  ExpectScan({.reply = ReplyFault::kOtherSource}, true);
}

TEST_F(Replies, ThatAreCutShortNameNoJob) {
  ExpectScan({.reply = ReplyFault::kCut, .reply_bytes = 22}, false);
}

TEST_F(Replies, OfTheGreatestSizeAreNoOverflow) {
  ExpectScan({.reply = ReplyFault::kLong, .reply_bytes = 1400}, true);
}

TEST_F(Replies, ThatComeTooLateAreNotTakenForLaterOnes) {
  ExpectScan({.delays = {.reply = 2 * ShortWaits::kCommand}}, false);
}

class Strangers : public Trouble {
 protected:
  static Bytes Notice(std::uint16_t sequence_id, const Bytes& job) {
    FakeChannel channel;
    channel.registration.resize(5);
    for (const std::uint8_t byte : job) channel.registration.push_back(byte);
    channel.registration.push_back(static_cast<std::uint8_t>(sequence_id >> 8));
    channel.registration.push_back(static_cast<std::uint8_t>(sequence_id));
    return channel.Notice(0x80);
  }
};

// Others who connect to the device door, from the device's own address even, with another job, with
// another sequence id or with no notice at all, do not come between a scan and its device.
TEST_F(Strangers, AtTheDeviceDoorDoNotDisturbAScan) {
  Device({.delays = {.start_notice = 100ms}});
  road.Scanner();
  auto scan = std::async(std::launch::async, [&] { return road.Scan(Ask::Lineart()); });
  ASSERT_TRUE(road.Events().WaitFor(EventKind::kDataChannel, 1, 5s));
  const sim::Event asked = road.Events().Last(EventKind::kPageRequest);
  const Bytes job(asked.bytes.begin() + 20, asked.bytes.end());
  Bytes other_job = job;
  other_job.back() ^= 1;
  std::vector<TcpPeer> strangers;
  const auto send = [&](const Bytes& bytes) {
    strangers.push_back(TcpPeer::Connect(road.DevicePort()));
    EXPECT_TRUE(strangers.back().Send(bytes));
  };
  send(Notice(asked.sequence_id, other_job));
  send(Notice(static_cast<std::uint16_t>(asked.sequence_id + 1), job));
  send(Notice(0, Bytes(8)));
  send(Bytes(28, 0xFF));
  send(Bytes(5, 'M'));
  const Page page = scan.get();
  EXPECT_EQ(page.status, 0u);
  EXPECT_TRUE(SameLines(page.lines, road.Expected(Ask::Lineart())));
}

class TwoClients : public RoadTest {};

TEST_F(TwoClients, WithADeviceEachGetTheirOwnPages) {
  sim::DeviceOptions first = SmallDevice(), second = SmallDevice();
  first.glass = sim::MakeTestChart({30000, 25000}, 1);
  second.glass = sim::MakeTestChart({30000, 25000}, 2);
  second.address = "127.0.0.2";
  road.Device(first);
  sim::VirtualDevice& other_device = road.Device(second);
  const auto other = road.NewClient(1);
  const Ask ask = Ask::Lineart(), other_ask = Ask::Grey().Dpi(120);
  const auto expected = road.Expected(ask);
  const auto other_expected = ExpectedLines(other_device.Foretell(), other_ask,
                                            DeviceRequest(other_ask, other->Range()), 0);
  std::thread beside([&] {
    for (int i = 0; i < 10; ++i)
      EXPECT_TRUE(SameLines(other->Scan(other_ask).lines, other_expected));
  });
  for (int i = 0; i < 10; ++i) EXPECT_TRUE(SameLines(road.Scan(ask).lines, expected));
  beside.join();
}

}  // namespace
}  // namespace vox::test
