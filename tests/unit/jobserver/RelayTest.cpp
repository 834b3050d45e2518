// Bytes between a client and a device that have met: all of them, in order, both ways, and how
// each kind of end on one side looks on the other.
#include <thread>

#include "tests/unit/jobserver/JobServerFixture.h"

namespace vox::test {
namespace {

using End = TcpPeer::End;

class Relaying : public WithJobServer {
 protected:
  void SetUp() override { Start(); }
};

TEST_F(Relaying, BytesFlowBothWays) {
  Pair pair = Met();
  ASSERT_TRUE(pair.client.SendByte(0x01));
  EXPECT_EQ(pair.device.Receive(1), Bytes{0x01});
  ASSERT_TRUE(pair.device.Send(Pattern(128)));
  EXPECT_EQ(pair.client.Receive(128), Pattern(128));
}

TEST_F(Relaying, LargePageArrivesWhole) {
  Pair pair = Met();
  const Bytes page = Pattern(20'000'000);
  std::thread device([&] {
    EXPECT_TRUE(pair.device.Send(page));
    pair.device.Close();
  });
  EXPECT_TRUE(pair.client.ReceiveAll() == page);
  device.join();
}

TEST_F(Relaying, BothWaysAtOnce) {
  Pair pair = Met();
  const Bytes bytes = Pattern(5'000'000);
  std::thread device_sends([&] { EXPECT_TRUE(pair.device.Send(bytes)); });
  std::thread client_sends([&] { EXPECT_TRUE(pair.client.Send(bytes)); });
  std::thread device_reads([&] { EXPECT_TRUE(pair.device.Receive(bytes.size()) == bytes); });
  EXPECT_TRUE(pair.client.Receive(bytes.size()) == bytes);
  for (std::thread* thread : {&device_sends, &client_sends, &device_reads}) thread->join();
}

TEST_F(Relaying, ManyAtOnceKeepApart) {
  std::vector<Pair> pairs;
  for (std::uint16_t i = 1; i <= 60; ++i) {
    pairs.push_back(Met({kLoopbackAddress, kJob.job_id, i}));
  }
  for (std::uint8_t i = 0; i < 60; ++i) ASSERT_TRUE(pairs[i].device.SendByte(i));
  for (std::uint8_t i = 0; i < 60; ++i) EXPECT_EQ(pairs[i].client.Receive(1), Bytes{i});
}

TEST_F(Relaying, DeviceThatHasSaidAllMayStillListen) {
  Pair pair = Met();
  ASSERT_TRUE(pair.device.Send(Pattern(1'000)));
  pair.device.CloseSending();
  EXPECT_EQ(pair.client.ReceiveAll(), Pattern(1'000));
  ASSERT_TRUE(pair.client.SendByte(0x00));
  EXPECT_EQ(pair.device.Receive(1), Bytes{0x00});
}

TEST_F(Relaying, ClientThatHasSaidAllMayStillListen) {
  Pair pair = Met();
  ASSERT_TRUE(pair.client.SendByte(0x01));
  pair.client.CloseSending();
  EXPECT_EQ(pair.device.ReceiveAll(), Bytes{0x01});
  ASSERT_TRUE(pair.device.Send(Pattern(1'000)));
  EXPECT_EQ(pair.client.Receive(1'000), Pattern(1'000));
}

TEST_F(Relaying, LastAnswerOfAClientThatLeavesArrives) {
  Pair pair = Met();
  ASSERT_TRUE(pair.client.SendByte(0x00));
  pair.client.Close();
  EXPECT_EQ(pair.device.ReceiveAll(), Bytes{0x00});
}

TEST_F(Relaying, ClosedDeviceLooksClosed) {
  Pair pair = Met();
  pair.device.Close();
  EXPECT_EQ(pair.client.AwaitEnd(), End::kClosed);
}

TEST_F(Relaying, ResetDeviceLooksReset) {
  Pair pair = Met();
  ASSERT_TRUE(pair.device.Send(Pattern(1'000)));
  ASSERT_EQ(pair.client.Receive(1'000), Pattern(1'000));
  pair.device.Reset();
  EXPECT_EQ(pair.client.AwaitEnd(), End::kReset);
}

TEST_F(Relaying, DeviceOfAClientThatLeftInMidPageIsSentAway) {
  Pair pair = Met();
  pair.client.Close();
  const Bytes page = Pattern(100'000);
  bool sends = true;
  for (int i = 0; sends && i < 1'000; ++i) sends = pair.device.Send(page);
  EXPECT_FALSE(sends);
}

TEST_F(Relaying, SlowClientHoldsTheDeviceBack) {
  Pair pair = Met();
  const Bytes page = Pattern(64'000'000);
  std::size_t sent = 0;
  for (int quiet = 0; quiet < 5;) {
    const std::size_t more = pair.device.SendWhatFits(std::span(page).subspan(sent));
    sent += more;
    quiet = more == 0 ? quiet + 1 : 0;
    ::usleep(5'000);
  }
  // What fits is the system's socket buffers and the relay's 512 KiB, far less than the page.
  ASSERT_LT(sent, page.size());
  const Bytes got = pair.client.Receive(sent);
  EXPECT_TRUE(std::equal(got.begin(), got.end(), page.begin(), page.begin() + sent));
}

TEST_F(Relaying, WaitingCostsNothing) {
  Pair slow = Met();
  slow.device.SendWhatFits(Pattern(64'000'000));  // a client that does not read
  Pair half = Met();
  half.device.CloseSending();
  Pair broken = Met();
  broken.device.SendWhatFits(Pattern(64'000'000));
  broken.device.Reset();
  TcpPeer waiting = Registered({kLoopbackAddress, kJob.job_id, 1});
  ASSERT_TRUE(waiting.SendByte(7));  // bytes that nobody wants yet
  TcpPeer early = Announced({kLoopbackAddress, kJob.job_id, 2});
  early.CloseSending();
  ::usleep(50'000);
  const long before = CpuMs();
  ::usleep(300'000);
  EXPECT_LE(CpuMs() - before, 60);
}

class HalfClosed : public WithJobServer {};

TEST_F(HalfClosed, RelayThatFallsSilentIsCut) {
  options_.times.half_closed = 80ms;
  Start();
  Pair pair = Met();
  pair.client.CloseSending();
  EXPECT_EQ(pair.device.ReceiveAll(), Bytes{});
  EXPECT_EQ(pair.client.AwaitEnd(), End::kReset);
}

TEST_F(HalfClosed, ClientThatReadsLateGetsEverythingAndMayAnswer) {
  options_.times.half_closed = 200ms;
  Start();
  Pair pair = Met();
  const Bytes page = Pattern(1'000'000);
  const std::size_t sent = pair.device.SendWhatFits(page);
  pair.device.CloseSending();
  ::usleep(500'000);
  const Bytes got = pair.client.ReceiveAll();
  ASSERT_EQ(got.size(), sent);
  EXPECT_TRUE(std::equal(got.begin(), got.end(), page.begin()));
  ASSERT_TRUE(pair.client.SendByte(0x00));
  EXPECT_EQ(pair.device.Receive(1), Bytes{0x00});
}

TEST_F(HalfClosed, WholeRelayIsNotCut) {
  options_.times.half_closed = 20ms;
  Start();
  Pair pair = Met();
  EXPECT_TRUE(pair.client.HasNothing(100ms));
  EXPECT_TRUE(pair.device.HasNothing(0ms));
}

}  // namespace
}  // namespace vox::test
