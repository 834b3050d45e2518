// A broadcast query: whom it hears, and when it ends.
#include <gtest/gtest.h>

#include "tests/support/Allocations.h"
#include "tests/unit/net/Exchange.h"

namespace vox {
namespace {

using namespace test;

using std::chrono::milliseconds;

// TickingClock replaces the clock of the library: a step passes with each look at it, so that time
// passes as the library works, and not as a machine is busy.
class TickingClock {
 public:
  using Clock = std::chrono::steady_clock;
  explicit TickingClock(milliseconds step) {
    step_ms = step.count();
    looks = 0;
    netClock = [] { return Clock::now() + milliseconds(step_ms * ++looks); };
  }
  ~TickingClock() { netClock = &Clock::now; }
  TickingClock(const TickingClock&) = delete;
  TickingClock& operator=(const TickingClock&) = delete;
  milliseconds Passed() const { return milliseconds(step_ms * looks); }

 private:
  static inline std::atomic<std::int64_t> step_ms{0}, looks{0};
};

TEST(Collect, EveryAnswerStartsTheTimeOutAgain) {
  const UdpPeer peer([](const Bytes&) {
    Answers answers;
    // A pause, so that each is awaited; the last is of the addressed host, which ends the query.
    for (std::uint8_t i = 0; i < 5; ++i) {
      answers.push_back(Answer({i}).From(i < 4 ? kOther : kHost).After(milliseconds(3)));
    }
    return answers;
  });
  const NetSettings settings(peer, kLong);
  const TickingClock clock(milliseconds(kLong / 4));
  EXPECT_EQ(BytesOf(AskAll(kHost, 1)), (std::vector<Bytes>{{0}, {1}, {2}, {3}, {4}}));
  EXPECT_GT(clock.Passed(), milliseconds(2 * kLong)) << "longer than one time-out in all";
}

TEST(Collect, EndsOneQuietTimeOutAfterTheLastAnswer) {
  const UdpPeer peer([](const Bytes&) { return Answers(5, Answer({7}).From(kOther)); });
  const NetSettings settings(peer, 600);
  const Stopwatch watch;
  EXPECT_EQ(BytesOf(AskAll(kHost, 1)).size(), 5u);
  EXPECT_GE(watch.Elapsed(), milliseconds(600));
}

TEST(Collect, EndsAtTheAnswerOfTheAddressedHost) {
  const UdpPeer peer([](const Bytes&) {
    return Answers{Answer(Hex("01")).From(kOther), Answer(kAnswer), Answer(Hex("02")).From(kOther)};
  });
  const NetSettings settings(peer, kLong);
  EXPECT_EQ(BytesOf(AskAll(kHost)), (std::vector<Bytes>{Hex("01"), kAnswer}));
}

TEST(Collect, BroadcastReachesEverybody) {
  UdpPeer peer(Always(kAnswer), "0.0.0.0");
  const NetSettings settings(peer, 600);
  const Packets packets = AskAll("127.255.255.255", 1);
  ASSERT_TRUE(packets);
  EXPECT_EQ(BytesOf(packets), std::vector<Bytes>{kAnswer});
  EXPECT_EQ(SenderOf(*packets->lpPacketData), kHost) << "who answers, not whom it was sent to";
  EXPECT_EQ(peer.Requests(), std::vector<Bytes>{kQuestion});
}

TEST(Collect, NobodyAnsweringGivesNone) {
  UdpPeer peer(Silent());
  const NetSettings settings(peer, kShort);
  const Stopwatch watch;
  EXPECT_FALSE(AskAll(kHost));
  EXPECT_GE(watch.Elapsed(), milliseconds(3 * kShort));
  EXPECT_EQ(peer.AwaitRequests(1).size(), 1u);
  EXPECT_FALSE(AskAll(kHost, -1));
}

TEST(Collect, NamesAreNotLookedUp) {
  UdpPeer peer(Always(kAnswer));
  const NetSettings settings(peer, kShort);
  EXPECT_FALSE(AskAll("localhost"));
  EXPECT_FALSE(AskAll(nullptr));
  EXPECT_TRUE(peer.Requests().empty());
}

TEST(Collect, FailedSendGivesNone) {
  const NetSettings settings(1, kShort);
  EXPECT_FALSE(Packets(multi_net_send_rev(kHost, 1, nullptr, 3)));
}

UdpPeer::Script Flood() {
  return [](const Bytes&) { return Answers(64, Answer({7}).From(kOther)); };
}

TEST(Collect, FloodEndsAt4096Datagrams) {
  const UdpPeer peer(Flood(), kHost, 0, true);
  const NetSettings settings(peer, kLong);
  EXPECT_EQ(BytesOf(AskAll(kHost, 1)).size(), 4096u);
}

// A time-out never passes between two of these answers, so that it is not silence that ends it.
TEST(Collect, DripEndsAfter60TimeOuts) {
  const UdpPeer peer(Flood(), kHost, 0, true);
  const NetSettings settings(peer, kLong);
  const TickingClock clock(milliseconds(kLong / 4));
  EXPECT_LT(BytesOf(AskAll(kHost, 1)).size(), 60u * 4);
  EXPECT_GE(clock.Passed(), milliseconds(60 * kLong));
  EXPECT_LE(clock.Passed(), milliseconds(62 * kLong));
}

TEST(Collect, FailedAllocationKeepsWhatWasGathered) {
  const UdpPeer peer([](const Bytes&) { return Answers(3, Answer({7}).From(kOther)); });
  const NetSettings settings(peer, kLong);
  for (const int spared : {2, 3}) {
    const FailingAllocation failing(spared);
    EXPECT_EQ(BytesOf(AskAll(kHost)).size(), 1u);
    EXPECT_TRUE(failing.HasFailed());
  }
}

}  // namespace
}  // namespace vox
