// How another thread hurries this thread's exchanges: before, during and after one.
#include <thread>

#include <gtest/gtest.h>

#include "tests/support/Moment.h"
#include "tests/unit/net/Exchange.h"
#include "vox/drivers/net/NetworkComm/NetworkCommEntry.h"

namespace vox {
namespace {

using namespace test;

using std::chrono::milliseconds;

// Each wait of kLong seconds that is not hurried takes longer than the tests' patience.
constexpr int kGrace = 60;         // ms
constexpr int kLongGrace = 25000;  // ms, longer than the tests' patience

// RunCommand sends a command, waits for its answer and gives the result.
std::int32_t RunCommand() {
  _tagUDPCMD request{}, response{};
  return UdpCommandSendResponse(kHost, &request, &response);
}

// Accepting answers with the request's own header.
UdpPeer::Script Accepting() {
  return [](const Bytes& request) { return Answers{Answer(request)}; };
}

TEST(NetInterrupt, RaisedBeforeAnExchangeItEndsAfterTheGrace) {
  UdpPeer peer(Silent());
  const NetSettings settings(peer, kLong);
  EventFd wake;
  wake.Raise();
  const NetInterrupt interrupt(wake.Get(), kGrace);
  for (int i = 1; i <= 2; ++i) {
    const Stopwatch watch;
    EXPECT_EQ(RunCommand(), -1);
    EXPECT_GE(watch.Elapsed(), milliseconds(kGrace));
    EXPECT_LT(watch.Elapsed(), kPatience);
    EXPECT_EQ(peer.AwaitRequests(static_cast<std::size_t>(i)).size(), static_cast<std::size_t>(i))
        << "asked once an exchange, since no further attempt is made";
  }
}

TEST(NetInterrupt, RaisedDuringAnExchangeItEndsAfterTheGrace) {
  UdpPeer peer(Silent());
  const NetSettings settings(peer, kLong);
  EventFd wake;
  const NetInterrupt interrupt(wake.Get(), kGrace);
  const Stopwatch watch;
  std::thread hurrying([&] {
    peer.AwaitRequests(1);
    wake.Raise();
  });
  EXPECT_EQ(RunCommand(), -1);
  hurrying.join();
  EXPECT_GE(watch.Elapsed(), milliseconds(kGrace));
  EXPECT_LT(watch.Elapsed(), kPatience);
  EXPECT_EQ(peer.Requests().size(), 1u);
}

TEST(NetInterrupt, AnswerWithinTheGraceIsTaken) {
  EventFd wake;
  const UdpPeer peer([&wake](const Bytes& request) {
    wake.Raise();
    return Answers{Answer(request)};
  });
  const NetSettings settings(peer, kLong);
  const NetInterrupt interrupt(wake.Get(), kLongGrace);
  for (const char* when : {"during", "before"}) EXPECT_EQ(RunCommand(), 0) << when;
}

TEST(NetInterrupt, GraceDoesNotLengthenAWait) {
  UdpPeer peer(Silent());
  const NetSettings settings(peer, kShort);
  EventFd wake;
  wake.Raise();
  const NetInterrupt interrupt(wake.Get(), kLongGrace);
  const Stopwatch watch;
  EXPECT_EQ(RunCommand(), -1);
  EXPECT_LT(watch.Elapsed(), kPatience);
  EXPECT_EQ(peer.AwaitRequests(1).size(), 1u);
}

TEST(NetInterrupt, NotRaisedItChangesNothing) {
  UdpPeer peer(Silent());
  const NetSettings settings(peer, kShort);
  const EventFd wake;
  const NetInterrupt interrupt(wake.Get(), 0);
  const Stopwatch watch;
  EXPECT_EQ(RunCommand(), -101);
  EXPECT_GE(watch.Elapsed(), milliseconds(3 * 3 * kShort));
  EXPECT_EQ(peer.AwaitRequests(3).size(), 3u);
}

TEST(NetInterrupt, RaisedAfterItsLifeItIsForgotten) {
  UdpPeer peer(Silent());
  const NetSettings settings(peer, kShort);
  EventFd wake;
  wake.Raise();
  { const NetInterrupt interrupt(wake.Get(), 0); }
  const Stopwatch watch;
  EXPECT_EQ(RunCommand(), -101);
  EXPECT_GE(watch.Elapsed(), milliseconds(3 * 3 * kShort));
  EXPECT_EQ(peer.AwaitRequests(3).size(), 3u);
}

TEST(NetInterrupt, HurriesItsOwnThreadAlone) {
  const UdpPeer peer(Silent());
  const NetSettings settings(peer, kShort);
  EventFd wake;
  wake.Raise();
  const NetInterrupt interrupt(wake.Get(), 0);
  std::int32_t other = 0;
  std::thread([&other] { other = RunCommand(); }).join();
  EXPECT_EQ(other, -101);
  EXPECT_EQ(RunCommand(), -1);
}

TEST(NetInterrupt, EveryKindOfWaitFailsInIt) {
  const UdpPeer peer(Silent());
  const NetSettings settings(peer, kLong);
  EventFd wake;
  wake.Raise();
  const NetInterrupt interrupt(wake.Get(), 1);
  const Stopwatch watch;
  int sock = -1;
  ASSERT_EQ(net_socket(&sock), 0);
  EXPECT_EQ(readable_timeo(sock, 3), -1);
  EXPECT_EQ(net_select(sock, 3), -1);
  std::uint8_t byte = 0;
  EXPECT_EQ(recvfrom_timeo(sock, &byte, 1, 0, nullptr, nullptr, 3, nullptr), -1);
  net_close(sock);
  EXPECT_FALSE(Ask(kHost));
  EXPECT_FALSE(AskAll(kHost));
  _tagMIBREQ request{"1.3.6.1.2.1.1.5.0", 0, 1, &byte};
  EXPECT_EQ(SnmpGet(kHost, nullptr, &request), -1);
  EXPECT_LT(watch.Elapsed(), kPatience);
}

TEST(NetInterrupt, AnsweredExchangesNeedNoGrace) {
  const UdpPeer peer(Accepting());
  const NetSettings settings(peer, kLong);
  const EventFd wake;
  const NetInterrupt interrupt(wake.Get(), 0);
  EXPECT_EQ(RunCommand(), 0);
}

}  // namespace
}  // namespace vox
