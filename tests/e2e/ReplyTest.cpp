// Replies to commands that come late, twice, cut, too long or from somebody else; and two clients
// that scan at the same time.
#include <memory>
#include <thread>

#include "tests/e2e/Trouble.h"

namespace vox::test {
namespace {

using sim::ReplyFault;

class Replies : public Trouble {
 protected:
  void ExpectScan(const Faults& faults, bool works) {
    const ShortWaits waits(road);
    Device(faults);
    const Page page = road.Scan(Ask::Grey());
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
  ExpectScan({.delays = {.reply = 100ms}}, false);
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
  const auto other_expected =
      ExpectedLines(other_device, other_ask, DeviceRequest(other_ask, other->Range()), 0);
  std::thread beside([&] {
    for (int i = 0; i < 10; ++i)
      EXPECT_TRUE(SameLines(other->Scan(other_ask).lines, other_expected));
  });
  for (int i = 0; i < 10; ++i) EXPECT_TRUE(SameLines(road.Scan(ask).lines, expected));
  beside.join();
}

}  // namespace
}  // namespace vox::test
